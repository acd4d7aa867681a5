// The layout of Canadian compression that encoder and decoder share: docs/formats/canadian.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace morva::canada {

inline constexpr std::size_t kBlock = 20;  // samples
inline constexpr std::size_t kGroup = 4;   // values of one width
inline constexpr std::size_t kGroups = kBlock / kGroup;
inline constexpr std::size_t kKeySize = 2;      // bytes of a block in the key area
inline constexpr std::size_t kFirstSample = 4;  // bytes between key and data area
inline constexpr std::size_t kSpareBytes = 4;   // that may follow the data

// The widths of a group's values, by the flag of its block and its code.
inline constexpr std::uint8_t kWidths[2][8] = {{4, 6, 8, 10, 12, 14, 16, 18},
                                               {4, 8, 12, 16, 20, 24, 28, 32}};
inline constexpr int kWidestUnflagged = kWidths[0][7];

// The smallest code whose values have at least so many bits, by the flag and those bits. Where
// flag 0 has no such code its last one stands.
inline constexpr auto kCodes = [] {
    std::array<std::array<std::uint8_t, 33>, 2> codes{};
    for (std::size_t flag = 0; flag < 2; ++flag)
        for (std::size_t bits = 0; bits <= 32; ++bits) {
            std::uint8_t code = 0;
            while (code < 7 && kWidths[flag][code] < bits) ++code;
            codes[flag][bits] = code;
        }
    return codes;
}();

// A key: one flag bit, then five codes of three bits, from the top.
inline constexpr unsigned flag_of(unsigned key) {
    return key >> 15;
}
inline constexpr unsigned code_of(unsigned key, std::size_t group) {
    return key >> (12 - 3 * group) & 7;
}
inline constexpr std::size_t group_size(unsigned flag, unsigned code) {
    return kGroup * kWidths[flag][code] / 8;
}

// Bytes of a block in the data area: two for each group, and one for each step of its code or with
// the flag two. Sums up without branches, so that compilers do several keys at once.
inline constexpr std::size_t block_size(unsigned key) {
    unsigned steps = 0;
    for (std::size_t group = 0; group < kGroups; ++group) steps += code_of(key, group);
    return 2 * kGroups + (steps << flag_of(key));
}
static_assert(block_size(0x0002 << 12) == 8 + group_size(0, 2));
static_assert(block_size(0x8000 | 5 << 6) == 8 + group_size(1, 5));

// The fewest bytes that key and data of a block take, and the most.
inline constexpr std::size_t kSmallestBlock = kKeySize + block_size(0x0000);
inline constexpr std::size_t kLargestBlock = kKeySize + block_size(0xFFFF);
static_assert(kSmallestBlock == 12 && kLargestBlock == 82);

}  // namespace morva::canada
