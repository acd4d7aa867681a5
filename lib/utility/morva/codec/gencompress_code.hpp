// The layout of gencompress that encoder and decoder share: docs/formats/gencompress.md.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva::gen {

inline constexpr std::size_t kHeader = 9;       // sample count, first sample, block size less one
inline constexpr std::size_t kShortHeader = 8;  // of a single sample
inline constexpr int kDefaultBlock = 25;
inline constexpr int kLargestBlock = 256;

// What the values of a block are. Samples before the first one count as equal to it.
enum Order : unsigned {
    kSamples = 0,           // x[i]
    kDifferences = 1,       // x[i] - x[i-1]
    kSecondDifferences = 2  // x[i] - 2 x[i-1] + x[i-2]
};

// The key of a block: two bits of order, six of the width of its values.
struct Key {
    unsigned order;
    int width;
};
constexpr std::uint8_t key_byte(Key key) {
    return static_cast<std::uint8_t>(key.order << 6 | static_cast<unsigned>(key.width));
}
constexpr Key key_of(std::uint8_t byte) {
    return {static_cast<unsigned>(byte >> 6), byte & 63};
}
constexpr bool is_key(std::uint8_t byte) {
    return key_of(byte).order <= kSecondDifferences && key_of(byte).width <= 32;
}

// Blocks of a series: its first sample stands in the header.
constexpr std::size_t blocks_of(std::size_t count, std::size_t block) {
    return count < 2 ? 0 : (count - 2) / block + 1;
}

}  // namespace morva::gen
