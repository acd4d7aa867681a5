// Writing what was put to a stream, keeping messages, and sending them again.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "base/diagnostics.hpp"
#include "net/bns.hpp"

namespace morva::stream {
namespace {

// The default routine for a stream that knows its descriptor: a socket whose peer is gone raises no
// signal.
ssize_t write_quietly(Bns* bns, const char* bytes, std::size_t n) {
    if (bns->is_socket != 0) {
        const ssize_t count = ::send(bns->fd, bytes, n, MSG_NOSIGNAL);
        if (count >= 0 || errno != ENOTSOCK) {
            bns->is_socket = 1;
            return count;
        }
        bns->is_socket = 0;
        errno = 0;
    }
    return ::write(bns->fd, bytes, n);
}

// Writes n bytes in one call, all of them again after an interruption.
ssize_t write_once(Bns* bns, int64_t from, int64_t n) {
    const auto length = static_cast<std::size_t>(n);
    ++bns->nsys;
    for (;;) {
        errno = 0;
        char* bytes = bns->data + from;
        const ssize_t count = bns->write_routine == plain_write
                                  ? write_quietly(bns, bytes, length)
                                  : bns->write_routine(bns->fd, bytes, length, bns->flags);
        if (count == n || errno != EINTR) return count;
    }
}

// Notes where the message just flushed began, and gives up those beyond the number to keep.
void keep_message(Bns* bns) {
    if (bns->marktbl == nullptr) return;
    pushtbl(bns->marktbl, reinterpret_cast<void*>(bns->fp));
    while (maxtbl(bns->marktbl) >= std::max(bns->keep, 1))
        bns->mark = reinterpret_cast<int64_t>(shifttbl(bns->marktbl));
}

}  // namespace

ssize_t plain_write(int fd, void* buffer, size_t length, int) {
    return ::write(fd, buffer, length);
}

}  // namespace morva::stream

using namespace morva::stream;

int bnsflush(Bns* bns) {
    const int64_t n = unread(bns);
    if (n < 1) return 0;
    const ssize_t count = write_once(bns, bns->fp, n);
    const int error = errno;
    snoop(bns, Direction::out, bns->data + bns->fp, n, count);
    errno = error;
    if (count != n) return failed(bns);
    bns->nbytes += n;
    if (bns->mark < 0) {
        bns->fp = bns->lp = 0;
        return 0;
    }
    keep_message(bns);
    bns->fp += n;
    compact(bns, bns->mark);
    return 0;
}

int bnskeep(Bns* bns, int n) {
    bns->keep = n;
    if (bns->marktbl != nullptr) return 0;
    bns->marktbl = newtbl(n > 0 ? static_cast<long>(n) + 1 : 1);
    bns->mark = bns->fp;
    return 0;
}

int bnsresend(Bns* bns) {
    const int64_t n = bns->fp - bns->mark;
    if (bns->keep < 1 || bns->mark < 0 || n < 1) return 0;
    const ssize_t count = write_once(bns, bns->mark, n);
    const int error = errno;
    // As with input, the bytes shown are those at the position of the stream.
    snoop(bns, Direction::out, bns->data + bns->fp, bns->sz - bns->fp, count);
    errno = error;
    if (static_cast<int32_t>(count) != n) return failed(bns);
    bns->nbytes += n;
    return 0;
}
