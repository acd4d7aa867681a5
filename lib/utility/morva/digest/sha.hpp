// The compression function of SHA-1 (FIPS 180-4).
#pragma once

#include "digest/blocks.hpp"

namespace morva::sha {

// A block as 16 words.
void add_words(std::uint32_t* state, const std::uint32_t* words);

using AddBlocks = void (*)(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks);

void add_blocks_plain(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks);

// The version by the processor's own instructions; null when it has none.
AddBlocks add_blocks_x86();

// The best of both, chosen when the library is loaded.
extern AddBlocks g_add_blocks;

}  // namespace morva::sha
