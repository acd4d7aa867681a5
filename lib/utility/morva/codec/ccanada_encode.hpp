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

// One block of second differences: puts its key at `key` and moves on behind its data.
std::uint8_t* encode_block(const std::uint32_t* differences, std::uint8_t* key, std::uint8_t* data);

}  // namespace morva::canada
