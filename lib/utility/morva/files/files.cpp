// Files made, mapped and examined.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/files.h"

namespace {

using morva::Descriptor;
using morva::retry;
using morva::write_all;

constexpr mode_t kMode = 0664;
// A path may name a terminal or a pipe: neither is to become ours or to hold us up.
constexpr int kCarefully = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

// For file systems that cannot reserve room: what has been written has it.
int write_zeros(int fd, long size) {
    static constexpr char kZeros[65536] = {};
    for (long at = 0; at < size; at += sizeof kZeros)
        if (write_all(fd, kZeros, std::min<std::size_t>(size - at, sizeof kZeros)) != 0) return -1;
    return ::lseek(fd, 0, SEEK_SET) == 0 ? 0 : -1;
}

// Gives an empty file its size, and room for it.
int reserve(int fd, long size) {
    if (size == 0) return 0;
    int error;
    do {
        error = ::posix_fallocate(fd, 0, size);
    } while (error == EINTR);
    if (error == EOPNOTSUPP || error == EINVAL) return write_zeros(fd, size);
    errno = error;
    return error == 0 ? 0 : -1;
}

// Gives back its room, also while somebody else holds the file open, or when the path is a link to
// it.
void empty(int fd) {
    const morva::ErrnoSaver keep;
    if (::ftruncate(fd, 0) != 0) return;  // nothing more can be done for it
}

int fill(int fd, long size, const void* bytes, long n) {
    if (retry([&] { return ::ftruncate(fd, 0); }) != 0) return -1;
    if (reserve(fd, size) == 0 && write_all(fd, bytes, static_cast<std::size_t>(n)) == 0) return 0;
    empty(fd);
    return -1;
}

// Removes the file, unless the path leads to another one meanwhile.
void remove_again(const char* path, const struct stat& ours) {
    const morva::ErrnoSaver keep;
    struct stat there;
    if (::lstat(path, &there) == 0 && ours.st_dev == there.st_dev && ours.st_ino == there.st_ino)
        ::unlink(path);
}

// Some file systems report a full disk only now. After EINTR the descriptor is gone all the same,
// and the data is with the system.
int close_checked(Descriptor fd) {
    return ::close(fd.release()) == 0 || errno == EINTR ? 0 : -1;
}

// What a descriptor is; false with errno unless it is a regular file.
bool is_regular(int fd, struct stat* status) {
    if (::fstat(fd, status) != 0) return false;
    errno = S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
    return S_ISREG(status->st_mode);
}

int cannot_make(const char* path) {
    elog_log(1, "Can't make file '%s'\n", path != nullptr ? path : "");
    return -1;
}

int cannot_map(const char* path) {
    elog_log(1, "Can't map file '%s'\n", path != nullptr ? path : "");
    return -1;
}

}  // namespace

extern "C" {

char* vkunique_filename(const char* base) {
    const char* shown = base != nullptr ? base : "";
    const std::size_t length = std::strlen(shown), bytes = length + sizeof ".XXXXXX";
    morva::malloced<char> name(static_cast<char*>(morva::must_malloc(bytes, "name", MORVA_HERE)));
    errno = EINVAL;
    const Descriptor fd(length == 0 ? -1 : retry([&] {
        std::snprintf(name.get(), bytes, "%s.XXXXXX", shown);
        return ::mkostemp(name.get(), O_CLOEXEC);
    }));
    if (fd) return name.release();
    elog_log(1, "Can't make a file with a new name from '%s'\n", shown);
    return nullptr;
}

int mkfile(const char* path, long size, const void* bytes, long n) {
    errno = EINVAL;
    if (path == nullptr || size < 0 || n < 0 || n > size || (n > 0 && bytes == nullptr))
        return cannot_make(path);
    Descriptor fd(retry([&] { return ::open(path, O_RDWR | O_CREAT | kCarefully, kMode); }));
    struct stat status;
    if (!fd || !is_regular(fd.get(), &status)) return cannot_make(path);
    const bool filled = fill(fd.get(), size, bytes, n) == 0;
    if (filled && close_checked(std::move(fd)) == 0) return 0;
    remove_again(path, status);
    return cannot_make(path);
}

int restat(const char* path, struct stat* status) {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    return retry([&] { return ::stat(path, status); });
}

int is_filename(const char* name) {
    const morva::ErrnoSaver keep;
    struct stat status;
    return restat(name, &status) == 0 && S_ISREG(status.st_mode);
}

int is_file(const char* name) {
    return is_filename(name);
}

int mapfile(const char* path, int writable, void** address, long* size) {
    errno = EFAULT;
    if (path == nullptr) return cannot_map(path);
    const int access = writable ? O_RDWR : O_RDONLY;
    const Descriptor fd(retry([&] { return ::open(path, access | kCarefully); }));
    struct stat status;
    if (!fd || !is_regular(fd.get(), &status)) return cannot_map(path);
    const off_t length = status.st_size;
    void* where = nullptr;
    if (length > 0) {
        const int protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
        where = ::mmap(nullptr, static_cast<size_t>(length), protection, MAP_SHARED, fd.get(), 0);
        if (where == MAP_FAILED) return cannot_map(path);
    }
    *address = where;
    *size = length;
    return 0;
}

}  // extern "C"
