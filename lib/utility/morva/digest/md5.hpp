// The compression function of MD5 (RFC 1321).
#pragma once

#include "digest/blocks.hpp"

namespace morva::md5 {

void add_blocks(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks);

}  // namespace morva::md5
