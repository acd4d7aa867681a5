// Sockets that listen on a port, for IPv4 and for IPv6: each its own, so that an entry of an access
// list means the same address whichever way a client comes.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "morva.h"

inline int listening_socket(int family, int port) {
    const int fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const int yes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (family == AF_INET6) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    sockaddr_in6 six{};
    sockaddr_in four{};
    six.sin6_family = AF_INET6;
    four.sin_family = AF_INET;
    six.sin6_port = four.sin_port = htons(static_cast<uint16_t>(port));
    const bool bound = family == AF_INET6
                           ? ::bind(fd, reinterpret_cast<const sockaddr*>(&six), sizeof six) == 0
                           : ::bind(fd, reinterpret_cast<const sockaddr*>(&four), sizeof four) == 0;
    if (bound && ::listen(fd, SOMAXCONN) == 0) return fd;
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
}

inline int port_of(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// Listens on the port, and ends the program when that can't be done. A port of 0 becomes one that
// is free. A system without IPv6 does without.
inline std::vector<pollfd> listen_on(int* port) {
    const int four = listening_socket(AF_INET, *port);
    if (four < 0) elog_die(1, "can't listen on port %d\n", *port);
    *port = port_of(four);
    std::vector<pollfd> sockets = {{four, POLLIN, 0}};
    const int six = listening_socket(AF_INET6, *port);
    if (six >= 0) sockets.push_back({six, POLLIN, 0});
    return sockets;
}
