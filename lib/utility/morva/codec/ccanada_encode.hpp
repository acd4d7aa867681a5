// Samples to Canadian compression: keys and data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva::canada {

struct Series {
    const std::int32_t* samples;
    std::size_t blocks;  // of 20 samples each
    std::int32_t next;   // the sample behind the last one
};

// Writes the keys at `keys` and the data at `data`, whole blocks only. Returns the place behind the
// data. Room for the largest blocks is there, and may be written to.
std::uint8_t* encode(const Series& series, std::uint8_t* keys, std::uint8_t* data);

// The versions behind it. All write the same keys and data.
std::uint8_t* encode_plain(const Series& series, std::uint8_t* keys, std::uint8_t* data);
std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data);
std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys, std::uint8_t* data);

}  // namespace morva::canada
