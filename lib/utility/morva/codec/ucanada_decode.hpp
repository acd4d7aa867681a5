// Canadian compression to samples: keys and data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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

// The values of a block that are whole when so many bytes of its data are there, fewer than all.
std::size_t values_within(unsigned key, std::size_t bytes);

// Decodes those of the block that is cut behind samples[last].
void decode_cut_block(unsigned key, std::span<const std::uint8_t> data, std::int32_t* samples,
                      std::size_t last);

// The versions behind it. All give the same samples.
void decode_plain(const Source& source, std::int32_t* samples);
void decode_avx2(const Source& source, std::int32_t* samples);

}  // namespace morva::canada
