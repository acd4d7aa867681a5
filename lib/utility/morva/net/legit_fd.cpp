// The check of a socket's peer.
#include <sys/socket.h>

#include "base/diagnostics.hpp"
#include "morva/legit_ip.h"

int legit_fd(const char* name, Pf* pf, int fd, char** comment) {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    if (::getpeername(fd, address, &length) == 0) return legit_ipv6(name, pf, address, comment);
    elog_notify(1, "Rejecting open from unknown source (getpeername failed)");
    return 0;
}
