// Connecting to servers.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/files.h"
#include "morva/pfread.h"
#include "morva/sockets.h"
#include "net/words.hpp"
#include "skerrows.h"

namespace morva::net {
namespace {

constexpr double kHeadStart = 0.25;  // seconds before the next address joins the race

struct FreeAddresses {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

Addresses resolve(const char* host, const char* service) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int error = ::getaddrinfo(host, service, &wanted, &list);
    if (error == 0) return Addresses(list);
    elog_log(1, "couldn't find ip address for '%s' : '%s'\n", host, ::gai_strerror(error));
    return nullptr;
}

// The outcome of a connection that is being made: 0, or -1 with errno.
int outcome(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return -1;
    errno = error;
    return error == 0 ? 0 : -1;
}

// A connection that a signal interrupts goes on by itself: it is waited for, not made again.
int connect_whole(int fd, const addrinfo& address) {
    if (::connect(fd, address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINTR) return -1;
    pollfd writable{fd, POLLOUT, 0};
    return std_poll(&writable, 1, -1) == 1 ? outcome(fd) : -1;
}

// A new socket for the address, bound to the local one if that is wanted.
Descriptor make_socket(const addrinfo& address, bool bound) {
    Descriptor fd(
        ::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol));
    if (!fd) {
        elog_log(1, "failed to make socket\n");
    } else if (bound && bind2_ORB_IP_ADDRESS(fd.get()) != 0) {
        return {};
    }
    return fd;
}

int connect_any(const addrinfo* list, bool bound) {
    for (const addrinfo* address = list; address != nullptr; address = address->ai_next) {
        Descriptor fd = make_socket(*address, bound);
        if (fd && connect_whole(fd.get(), *address) == 0) return fd.release();
    }
    return -1;
}

// Addresses in the order of the race: families take turns, each in the resolver's order.
Vector<const addrinfo*> alternating(const addrinfo* list) {
    Vector<const addrinfo*> first, other, order;
    for (const addrinfo* address = list; address != nullptr; address = address->ai_next)
        (address->ai_family == list->ai_family ? first : other).push_back(address);
    for (std::size_t i = 0; i < std::max(first.size(), other.size()); ++i) {
        if (i < first.size()) order.push_back(first[i]);
        if (i < other.size()) order.push_back(other[i]);
    }
    return order;
}

// Connections that are being made at the same time; the first that stands wins.
class Race {
  public:
    Race(const addrinfo* list, double until) : waiting_(alternating(list)), until_(until) {}

    int run() {
        for (double next = 0; next_ < waiting_.size() || !running_.empty();) {
            const double now = std_now();
            if (now >= until_) return errno = ETIMEDOUT, -1;
            if (next_ < waiting_.size() && (now >= next || running_.empty())) {
                if (const int fd = start(*waiting_[next_++]); fd >= 0) return fd;
                next = now + kHeadStart;
                continue;
            }
            if (std::exchange(failed_, false)) {
                next = now;
                continue;
            }
            const double wake = next_ < waiting_.size() ? std::min(next, until_) : until_;
            if (const int fd = wait(wake - now); fd >= 0) return fd;
        }
        return -1;
    }

  private:
    static int finish(Descriptor fd) {
        ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
        return fd.release();
    }

    // The descriptor when the connection stands at once, else -1.
    int start(const addrinfo& address) {
        Descriptor fd = make_socket(address, true);
        if (!fd) return -1;
        ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
        if (::connect(fd.get(), address.ai_addr, address.ai_addrlen) == 0)
            return finish(std::move(fd));
        if (errno == EINPROGRESS || errno == EINTR) running_.push_back(std::move(fd));
        return -1;
    }

    int wait(double seconds) {
        Vector<pollfd> fds;
        for (const Descriptor& fd : running_) fds.push_back({fd.get(), POLLOUT, 0});
        const int timeout = static_cast<int>(std::clamp(seconds * 1000 + 1, 0.0, 1e9));
        if (std_poll(fds.data(), fds.size(), timeout) < 1) return -1;
        for (std::size_t i = fds.size(); i-- > 0;) {
            if (fds[i].revents == 0) continue;
            Descriptor fd = std::move(running_[i]);
            running_.erase(running_.begin() + static_cast<long>(i));
            if (outcome(fd.get()) == 0) return finish(std::move(fd));
            failed_ = true;
        }
        return -1;
    }

    Vector<const addrinfo*> waiting_;
    std::size_t next_ = 0;
    Vector<Descriptor> running_;
    bool failed_ = false;  // one of them: the next address need not wait
    const double until_;
};

int open_server(const char* name, const char* default_port, const char* emulator_key, char* host,
                int* port, char* description, double seconds) {
    const int kind = vk_parse_servername(name, default_port, emulator_key, host, port, description);
    if (kind == 1) return vk_exec_subprogram(host, name);
    if (kind < 0) return -1;
    char service[16];
    std::snprintf(service, sizeof service, "%d", *port);
    const Addresses list = resolve(host, service);
    if (list == nullptr) return -1;
    const int fd =
        seconds > 0 ? Race(list.get(), std_now() + seconds).run() : connect_any(list.get(), true);
    if (fd >= 0) {
        errno = 0;
        return fd;
    }
    elog_log(1, "failed to connect to %s (%s:%d)", name, host, *port);
    return -1;
}

}  // namespace
}  // namespace morva::net

using namespace morva::net;

int bind2_ORB_IP_ADDRESS(int fd) {
    const char* text = std_getenv("ORB_IP_ADDRESS");
    if (text == nullptr) return 0;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = ::inet_addr(text);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0) return 0;
    elog_log(1, "Failed to bind ip address '%s'", text);
    return -1;
}

int vk_open_socket2(const char* name, const char* default_port, const char* emulator_key,
                    char* host, int* port, char* description) {
    return open_server(name, default_port, emulator_key, host, port, description, 0);
}

int vk_open_socket_t(const char* name, const char* default_port, const char* emulator_key,
                     char* host, int* port, char* description, double seconds) {
    return open_server(name, default_port, emulator_key, host, port, description, seconds);
}

int vk_open_socket(const char* name, const char* pfname, char* description) {
    Pf* pf = nullptr;
    if (pfname != nullptr) {
        const morva::ErrnoSaver keep;
        if (pfread(pfname, &pf) < 0) pffree(std::exchange(pf, nullptr));
    }
    const std::unique_ptr<Pf, void (*)(Pf*)> owner(pf, pffree);
    const char* emulator = top_string(pf, "emulator");
    if (emulator != nullptr && is_filename(name) != 0) return vk_exec_subprogram(emulator, name);
    char host[kTextSize], port[kTextSize];
    vk_parsename(name, pf, host, port, description);
    const Addresses list = resolve(host, port);
    if (list == nullptr) return -1;
    const int fd = connect_any(list.get(), false);
    if (fd < 0) elog_log(1, "failed to connect to %s (%s:%s)", name, host, port);
    return fd;
}
