// Blocks of gencompress to samples.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/gencompress_code.hpp"

namespace morva::gen {

struct Source {
    const std::uint8_t* keys;
    const std::uint8_t* data;  // behind the keys
    const std::uint8_t* end;   // of what may be read; the values of all blocks lie before it
    std::size_t count;         // of samples, 2 or more
    std::size_t block;
    std::int32_t first;
};

// Bytes of the values that the keys ask for; no number when one of them is no key.
constexpr std::uint64_t kNoSize = UINT64_MAX;
std::uint64_t data_size(const std::uint8_t* keys, std::size_t count, std::size_t block);

// The values that are whole before the first byte that is no key, and within so many bytes of data.
std::size_t values_within(const std::uint8_t* keys, std::size_t count, std::size_t block,
                          std::size_t bytes);

// Writes `count` samples.
void decode(const Source& source, std::int32_t* samples);

// The versions behind it. All give the same samples.
void decode_plain(const Source& source, std::int32_t* samples);
void decode_avx2(const Source& source, std::int32_t* samples);
void decode_avx512(const Source& source, std::int32_t* samples);

}  // namespace morva::gen
