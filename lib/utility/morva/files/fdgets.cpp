// Lines from descriptors, without a buffer between the calls: what lies behind the newline must
// stay unread. How that is done fast depends on what the descriptor is.
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "base/posix.hpp"
#include "morva/files.h"

namespace {

using morva::retry;

constexpr int kLook = 1024;  // characters looked at ahead at once: most lines are shorter

// How many of n characters belong to the line.
ssize_t up_to_newline(const char* text, ssize_t n) {
    const void* newline = n > 0 ? std::memchr(text, '\n', static_cast<size_t>(n)) : nullptr;
    return newline == nullptr ? n : static_cast<const char*>(newline) - text + 1;
}

// Each reader below reads at most n characters and none behind a newline. Like read, it returns how
// many, 0 at the end, -1 on an error.

ssize_t read_file(int fd, char* buf, size_t n) {
    const off_t at = ::lseek(fd, 0, SEEK_CUR);
    if (at < 0) return -1;
    const ssize_t line = up_to_newline(buf, retry([&] { return ::pread(fd, buf, n, at); }));
    return line > 0 && ::lseek(fd, at + line, SEEK_SET) < 0 ? -1 : line;
}

ssize_t read_socket(int fd, char* buf, size_t n) {
    const ssize_t line = up_to_newline(buf, retry([&] { return ::recv(fd, buf, n, MSG_PEEK); }));
    return line <= 0 ? line : retry([&] { return ::read(fd, buf, static_cast<size_t>(line)); });
}

ssize_t read_character(int fd, char* buf, size_t) {
    return retry([&] { return ::read(fd, buf, 1); });
}

using Reader = ssize_t (*)(int fd, char* buf, size_t n);

bool is_stream(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

Reader reader_for(int fd) {
    struct stat status;
    if (::fstat(fd, &status) != 0) return read_character;
    if (S_ISREG(status.st_mode)) return read_file;
    return S_ISSOCK(status.st_mode) && is_stream(fd) ? read_socket : read_character;
}

}  // namespace

extern "C" char* fdgets(char* buf, int size, int fd) {
    errno = EINVAL;
    if (buf == nullptr || size <= 0) return nullptr;
    const Reader reader = reader_for(fd);
    int length = 0;
    ssize_t n = 1;
    while (length < size - 1 && (length == 0 || buf[length - 1] != '\n')) {
        n = reader(fd, buf + length, static_cast<size_t>(std::min(size - 1 - length, kLook)));
        if (n <= 0) break;
        length += static_cast<int>(n);
    }
    if (length > 0 || n > 0) buf[length] = '\0';
    if (n < 0) return nullptr;
    errno = 0;
    return length > 0 || n > 0 ? buf : nullptr;
}
