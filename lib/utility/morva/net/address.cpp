// Addresses of the internet as text and back.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "base/diagnostics.hpp"
#include "morva/sockets.h"
#include "net/address.hpp"
#include "net/words.hpp"

namespace morva::net {

// What the pattern says, one number after another: quicker than a compiled one, and without a lock.
bool is_dotted_quad(const char* text) {
    for (int number = 0; number < 4; ++number) {
        if (number > 0 && *text++ != '.') return false;
        const std::size_t digits = std::strspn(text, "0123456789");
        if (digits == 0) return false;
        text += digits;
    }
    return *text == '\0';
}

Bytes bytes_of(const sockaddr* address) {
    if (address->sa_family == AF_INET)
        return {reinterpret_cast<const unsigned char*>(
                    &reinterpret_cast<const sockaddr_in*>(address)->sin_addr),
                4};
    if (address->sa_family == AF_INET6)
        return {reinterpret_cast<const unsigned char*>(
                    &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr),
                16};
    return {nullptr, 0};
}

}  // namespace morva::net

using namespace morva::net;

int vk_inet_family(const char* text) {
    if (std::strchr(text, ':') != nullptr) return AF_INET6;
    return is_dotted_quad(text) ? AF_INET : -1;
}

char* vk_inet_ntop(const sockaddr* address, char* buffer, int size) {
    const Bytes bytes = bytes_of(address);
    if (size <= 0) return nullptr;
    if (bytes.data == nullptr) {
        store_text("Unknown AF", buffer, static_cast<std::size_t>(size));
        return nullptr;
    }
    const char* text =
        ::inet_ntop(address->sa_family, bytes.data, buffer, static_cast<socklen_t>(size));
    return text != nullptr ? buffer : nullptr;
}

int vk_inet_pton(const char* text, sockaddr* address) {
    const int family = vk_inet_family(text);
    if (family < 0) return -1;
    const sa_family_t before = address->sa_family;
    address->sa_family = static_cast<sa_family_t>(family);
    if (::inet_pton(family, text, const_cast<unsigned char*>(bytes_of(address).data)) == 1)
        return 1;
    address->sa_family = before;
    return -1;
}

int vk_getpeername(int fd, char* buffer) {
    constexpr int kSize = 46;
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    if (::getpeername(fd, address, &length) == 0 && vk_inet_ntop(address, buffer, kSize) != nullptr)
        return 0;
    elog_log(1, "getpeername failed");
    store_text("*unknown*", buffer, kSize);
    return -1;
}
