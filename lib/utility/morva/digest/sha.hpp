// The compression function of SHA-1 (FIPS 180-4).
#pragma once

#include "digest/blocks.hpp"

namespace morva::sha {

// A block as 16 words.
void add_words(std::uint32_t* state, const std::uint32_t* words);

void add_blocks(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks);

}  // namespace morva::sha
