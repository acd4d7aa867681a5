// Waiting for a word of memory to change.
#include <cerrno>

#include "deadline.hpp"
#include "skerrows.h"

#if defined(__linux__)
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace {

// The system's call finds waiters in other processes, too, by the page that they share.
long futex(const int32_t* word, int operation, uint32_t value, const timespec* limit) {
    return ::syscall(SYS_futex, word, operation, value, limit, nullptr, 0);
}

}  // namespace
#endif

extern "C" {

int std_wait_word(const int32_t* word, int32_t value, double seconds) {
    const timespec limit = skerrows::to_timespec(skerrows::from_seconds(seconds));
#if defined(__linux__)
    if (futex(word, FUTEX_WAIT, static_cast<uint32_t>(value), &limit) == 0) return 0;
    return errno == EAGAIN || errno == EINTR ? 0 : -1;
#else
    // Nobody wakes: a look every millisecond.
    constexpr long kNap = 1'000'000;
    const timespec nap = {0, limit.tv_sec > 0 || limit.tv_nsec > kNap ? kNap : limit.tv_nsec};
    if (__atomic_load_n(word, __ATOMIC_ACQUIRE) == value) ::nanosleep(&nap, nullptr);
    return 0;
#endif
}

int std_wake_word(const int32_t* word) {
#if defined(__linux__)
    return futex(word, FUTEX_WAKE, INT_MAX, nullptr) >= 0 ? 0 : -1;
#else
    static_cast<void>(word);
    return 0;
#endif
}

}  // extern "C"
