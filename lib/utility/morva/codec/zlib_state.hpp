// The state that zlib compresses and expands in: made once a thread and used again for every
// packet.
#pragma once

#include <zlib.h>

#include <cstddef>

namespace morva::zlib {

// What compress() and uncompress() of zlib do, for lengths of any size. Both return zlib's result
// and set *written.
int deflate_bytes(const char* bytes, std::size_t n, char* out, std::size_t room,
                  std::size_t* written);
int inflate_bytes(const char* bytes, std::size_t n, char* out, std::size_t room,
                  std::size_t* written);

}  // namespace morva::zlib
