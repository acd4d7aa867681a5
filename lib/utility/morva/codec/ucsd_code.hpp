// The classes of UCSD runs, and what both directions know of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace morva::ucsd {

struct Class {
    std::uint8_t code;  // of which readers look at the upper half only
    int bits;           // of each value
};

// In order of width. The last one holds samples, the others hold differences.
inline constexpr Class kClasses[] = {{0x10, 4}, {0x20, 8}, {0x30, 12}, {0x40, 16}, {0x50, 24}};
inline constexpr int kSampleClass = 4;
inline constexpr int kClassCount = kSampleClass + 1;
// What precedes the first run counts as a run of a class wider than all others.
inline constexpr int kBeforeFirst = 5;
inline constexpr int kBitsBeforeFirst = 32;

inline constexpr std::size_t kFirstSampleSize = 4;
inline constexpr std::size_t kHeaderSize = 2;
inline constexpr std::size_t kMaxRun = 255;

constexpr int bits_of(int class_index) {
    return class_index == kBeforeFirst ? kBitsBeforeFirst : kClasses[class_index].bits;
}

// The bytes of the values of a run, a half one counted whole.
constexpr std::size_t run_size(int class_index, std::size_t count) {
    return (count * static_cast<std::size_t>(bits_of(class_index)) + 7) / 8;
}

// True when a number fits in that many bits, one of them for the sign.
constexpr bool fits(std::int32_t number, int bits) {
    return number >> (bits - 1) == number >> 31;
}
static_assert(fits(-8, 4) && fits(7, 4) && !fits(8, 4) && !fits(-9, 4));

// The first class that holds a difference, the last one also when none does.
constexpr int class_of(std::int32_t difference) {
    int index = 0;
    while (index < kSampleClass && !fits(difference, kClasses[index].bits)) ++index;
    return index;
}
static_assert(class_of(7) == 0 && class_of(-9) == 1 && class_of(32768) == kSampleClass);

// The sample before minus the sample, wrapping at 32 bits.
inline std::int32_t difference_at(const std::int32_t* samples, std::size_t i) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(samples[i - 1]) -
                                     static_cast<std::uint32_t>(samples[i]));
}

inline void store_be32(std::uint8_t* bytes, std::int32_t number) {
    const std::uint32_t big = __builtin_bswap32(static_cast<std::uint32_t>(number));
    std::memcpy(bytes, &big, sizeof big);
}

inline std::int32_t load_be32(const std::uint8_t* bytes) {
    std::uint32_t big;
    std::memcpy(&big, bytes, sizeof big);
    return static_cast<std::int32_t>(__builtin_bswap32(big));
}

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

}  // namespace morva::ucsd
