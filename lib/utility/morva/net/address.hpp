// Addresses as the network families compare them.
#pragma once

#include <sys/socket.h>

#include <cstddef>

namespace morva::net {

// Whether a text is four decimal numbers of any size with points between.
bool is_dotted_quad(const char* text);

// The bytes of an IPv4 or IPv6 address; none of other families.
struct Bytes {
    const unsigned char* data;
    std::size_t size;
};
Bytes bytes_of(const sockaddr* address);

}  // namespace morva::net
