// Names of the host and its user, and addresses of other hosts.
#include <netdb.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "skerrows.h"

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

// All of `text`, or nothing.
int hand_over(const char* text, char* result, size_t size) {
    const size_t length = std::strlen(text);
    if (length >= size) return fail(ERANGE);
    std::memcpy(result, text, length + 1);
    return 0;
}

struct ResolverError {
    int code;
    int error;
};
constexpr ResolverError kResolverErrors[] = {
    {EAI_NONAME, ENOENT}, {EAI_AGAIN, EAGAIN},  {EAI_FAIL, EIO},
    {EAI_MEMORY, ENOMEM}, {EAI_FAMILY, ENOENT},
};

int errno_of(int code) {
    if (code == EAI_SYSTEM) return errno;
    for (const auto& row : kResolverErrors)
        if (row.code == code) return row.error;
    return ENOENT;
}

struct FreeAddresses {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

int look_up(const char* name, Addresses* result) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;  // one entry an address, not one a protocol
    addrinfo* list = nullptr;
    int code;
    do {
        code = ::getaddrinfo(name, nullptr, &wanted, &list);
    } while (code == EAI_SYSTEM && errno == EINTR);
    if (code != 0) return fail(errno_of(code));
    result->reset(list);
    return 0;
}

}  // namespace

extern "C" {

int my_hostname(char* name, size_t size) {
    char buffer[1025];
    if (::gethostname(buffer, sizeof buffer - 1) != 0) return -1;
    buffer[sizeof buffer - 1] = '\0';
    return hand_over(buffer, name, size);
}

int my_username(char* name, size_t size) {
    char buffer[16384];
    passwd entry, *found = nullptr;
    int error;
    do {
        error = ::getpwuid_r(::geteuid(), &entry, buffer, sizeof buffer, &found);
    } while (error == EINTR);
    if (found == nullptr) return fail(error != 0 ? error : ENOENT);
    return hand_over(found->pw_name, name, size);
}

int name2ip(const char* name, char* address, size_t size) {
    if (name == nullptr || *name == '\0') return fail(EINVAL);
    Addresses list;
    if (look_up(name, &list) != 0) return -1;
    char numeric[NI_MAXHOST];
    const int code = ::getnameinfo(list->ai_addr, list->ai_addrlen, numeric, sizeof numeric,
                                   nullptr, 0, NI_NUMERICHOST);
    if (code != 0) return fail(errno_of(code));
    return hand_over(numeric, address, size);
}

}  // extern "C"
