// Canadian compression to samples: keys and data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva::canada {

// Bytes in the data area of so many blocks.
std::size_t data_size(const std::uint8_t* keys, std::size_t blocks);

struct Source {
    const std::uint8_t* keys;
    const std::uint8_t* data;
    const std::uint8_t* end;  // of what may be read; the data of all blocks lie before it
    std::size_t blocks;
    std::int32_t first;
};

// Writes blocks * 20 + 1 samples: those of the series and the one behind it.
void decode(const Source& source, std::int32_t* samples);

// The versions behind it. All give the same samples.
void decode_plain(const Source& source, std::int32_t* samples);
void decode_avx2(const Source& source, std::int32_t* samples);

}  // namespace morva::canada
