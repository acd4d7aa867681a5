// Samples to blocks of gencompress.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/bit_field.hpp"
#include "codec/gencompress_code.hpp"

namespace morva::gen {

struct Series {
    const std::int32_t* samples;
    std::size_t count;  // 2 or more
    std::size_t block;
};

// Writes the keys of all blocks at `keys` and their values at `data`. Returns the place behind the
// last one. Room for values of 32 bits is there, and may be written to.
std::uint8_t* encode(const Series& series, std::uint8_t* keys, std::uint8_t* data);

// The versions behind it. All write the same bytes.
std::uint8_t* encode_plain(const Series& series, std::uint8_t* keys, std::uint8_t* data);

}  // namespace morva::gen
