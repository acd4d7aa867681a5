// Waiting for descriptors.
#include <cerrno>

#include "deadline.hpp"
#include "skerrows.h"

namespace {

constexpr skerrows::Nanoseconds kMillisecond = 1'000'000;

int milliseconds_until(skerrows::Nanoseconds end) {
    const skerrows::Nanoseconds left = end - skerrows::monotonic_now();
    return left <= 0 ? 0 : static_cast<int>((left + kMillisecond - 1) / kMillisecond);
}

int poll_timed(struct pollfd* fds, nfds_t count, int timeout_ms) {
    const skerrows::Nanoseconds end = skerrows::monotonic_now() + timeout_ms * kMillisecond;
    int result = ::poll(fds, count, timeout_ms);
    while (result == -1 && errno == EINTR) result = ::poll(fds, count, milliseconds_until(end));
    return result;
}

int poll_untimed(struct pollfd* fds, nfds_t count, int timeout_ms) {
    int result;
    do {
        result = ::poll(fds, count, timeout_ms);
    } while (result == -1 && errno == EINTR);
    return result;
}

}  // namespace

extern "C" int std_poll(struct pollfd* fds, nfds_t count, int timeout_ms) {
    return timeout_ms > 0 ? poll_timed(fds, count, timeout_ms)
                          : poll_untimed(fds, count, timeout_ms);
}
