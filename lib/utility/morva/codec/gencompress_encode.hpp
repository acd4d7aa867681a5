// Samples to blocks of gencompress.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "codec/bit_field.hpp"
#include "codec/gencompress_code.hpp"

namespace morva::gen {

inline constexpr std::size_t kSpare = 8;

struct Series {
    const std::int32_t* samples;
    std::size_t count;  // 2 or more
    std::size_t block;
};

// Writes the keys of all blocks at `keys` and their values at `data`. Returns the place behind the
// last one. Room for values of 32 bits and kSpare bytes more is there, and may be written to.
std::uint8_t* encode(const Series& series, std::uint8_t* keys, std::uint8_t* data);

// The versions behind it. All write the same bytes.
std::uint8_t* encode_plain(const Series& series, std::uint8_t* keys, std::uint8_t* data);
std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data);
std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys, std::uint8_t* data);

// The order with the narrowest values, the lowest of several; `changes` are those of all values.
inline Key narrowest(const std::uint32_t changes[3]) {
    Key best{kSamples, 33};
    for (unsigned order = kSamples; order <= kSecondDifferences; ++order)
        if (const auto width = static_cast<int>(std::bit_width(changes[order])); width < best.width)
            best = {order, width};
    return best;
}

}  // namespace morva::gen
