#include "support/failing_calls.hpp"

#include <fcntl.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

thread_local long t_countdown = 0, t_seen = 0;
thread_local int t_error = 0;

// True when this call is the one.
bool chosen() {
    ++t_seen;
    return t_countdown > 0 && --t_countdown == 0;
}

template <class... Arguments>
long call(long number, Arguments... arguments) {
    if (chosen() && t_error != 0) {
        errno = t_error;
        return -1;
    }
    return ::syscall(number, arguments...);
}

}  // namespace

namespace kit {

void fail_call(long nth, int error) {
    t_countdown = nth;
    t_error = error;
    t_seen = 0;
}

long calls_seen() {
    return t_seen;
}

}  // namespace kit

// In place of the C library's functions, for everything that is linked into the test program.
extern "C" {

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return static_cast<int>(call(SYS_openat, folder, path, flags, mode));
}

ssize_t write(int fd, const void* bytes, size_t n) {
    if (!chosen()) return ::syscall(SYS_write, fd, bytes, n);
    if (t_error == 0) return ::syscall(SYS_write, fd, bytes, (n + 1) / 2);
    errno = t_error;
    return -1;
}

int fsync(int fd) {
    return static_cast<int>(call(SYS_fsync, fd));
}

int fchown(int fd, uid_t owner, gid_t group) noexcept {
    return static_cast<int>(call(SYS_fchown, fd, owner, group));
}

int fchmod(int fd, mode_t mode) noexcept {
    return static_cast<int>(call(SYS_fchmod, fd, mode));
}

int renameat(int from_folder, const char* from, int to_folder, const char* to) noexcept {
    return static_cast<int>(call(SYS_renameat2, from_folder, from, to_folder, to, 0));
}

}  // extern "C"
