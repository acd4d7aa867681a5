#include "shared/ring_file.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/files.h"

namespace morva::ringfile {
namespace {

constexpr mode_t kMode = 0666;
// A path may name a terminal or a pipe: neither is to become ours or to hold us up.
constexpr int kCarefully = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr std::size_t kChunk = 65536;

enum class Step { open, header, data, close, done };

// Gives the file its blocks. 0, or an error number.
int allocate(int fd, std::size_t length) {
    int error;
    do {
        error = ::posix_fallocate(fd, 0, static_cast<off_t>(length));
    } while (error == EINTR);
    return error;
}

bool write_zeros(FILE* stream, std::size_t length) {
    static constexpr char kZeros[kChunk] = {};
    for (std::size_t n; length > 0; length -= n) {
        n = std::min(length, kChunk);
        if (std::fwrite(kZeros, 1, n, stream) != n) return false;
    }
    return true;
}

struct Contents {
    const void* header;
    std::size_t header_size;
    std::size_t length;
};

// Fills an empty file: Step::done, or the step that failed, with errno.
Step fill(Descriptor fd, const Contents& contents) {
    if (!fd) return Step::open;
    // Devices and some file systems cannot allocate: what has been written there has its place.
    const int error = allocate(fd.get(), contents.length);
    const bool allocated = error == 0;
    errno = error;
    if (error == ENOSPC || error == EFBIG || error == EDQUOT) return Step::data;
    struct Close {
        void operator()(FILE* stream) const {
            ErrnoSaver keep;
            std::fclose(stream);
        }
    };
    std::unique_ptr<FILE, Close> stream(::fdopen(fd.get(), "w"));
    if (!stream) return Step::open;
    fd.release();
    if (std::fwrite(contents.header, contents.header_size, 1, stream.get()) != 1)
        return Step::header;
    if (!allocated && !write_zeros(stream.get(), contents.length - contents.header_size))
        return Step::data;
    return std::fclose(stream.release()) == 0 ? Step::done : Step::close;
}

Step rewrite(const char* path, const Contents& contents) {
    return fill(Descriptor(retry(
                    [&] { return ::open(path, O_RDWR | O_CREAT | O_TRUNC | kCarefully, kMode); })),
                contents);
}

// A name in the folder of `path` that no other process uses.
String neighbour(const char* path, int attempt) {
    const char* slash = std::strrchr(path, '/');
    String name(path, slash == nullptr ? 0 : static_cast<std::size_t>(slash + 1 - path));
    char own[48];
    std::snprintf(own, sizeof own, ".ring-%ld-%d.new", static_cast<long>(::getpid()), attempt);
    return name + own;
}

// Puts the complete file in place, unless another process was quicker: then its file stays.
Step publish(const char* temporary, const char* path) {
    if (::link(temporary, path) == 0 || errno == EEXIST) return Step::done;
    // Some file systems have no links.
    return ::rename(temporary, path) == 0 ? Step::done : Step::open;
}

// A file that appears complete: whoever is killed on the way leaves none of that name.
Step create(const char* path, const Contents& contents) {
    String name;
    Descriptor fd;
    for (int attempt = 0; attempt < 100 && !fd; ++attempt) {
        name = neighbour(path, attempt);
        fd = Descriptor(retry(
            [&] { return ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | kCarefully, kMode); }));
        if (!fd && errno != EEXIST) return Step::open;
    }
    if (!fd) return Step::open;
    Step step = fill(std::move(fd), contents);
    if (step == Step::done) step = publish(name.c_str(), path);
    ErrnoSaver keep;
    ::unlink(name.c_str());
    return step;
}

// A link that leads nowhere yet counts as there: the file it names is made by opening it.
bool name_is_free(const char* path) {
    struct stat status;
    return ::lstat(path, &status) != 0 && errno == ENOENT;
}

}  // namespace

int make(const char* path, const void* header, std::size_t header_size, std::size_t length) {
    const Contents contents{header, header_size, length};
    const Step step = name_is_free(path) ? create(path, contents) : rewrite(path, contents);
    switch (step) {
        case Step::done:
            return 0;
        case Step::open:
            elog_log(1, "Can't open new ring buffer %s", path);
            break;
        case Step::header:
            elog_log(1, "Can't write new ring buffer %s", path);
            break;
        case Step::data:
            elog_log(1, "Can't write new ring buffer data %s", path);
            break;
        case Step::close:
            elog_log(1, "Can't close new ring buffer %s", path);
            break;
    }
    return -1;
}

Descriptor open(const char* path, bool writable) {
    const int access = writable ? O_RDWR : O_RDONLY;
    return Descriptor(retry([&] { return ::open(path, access | kCarefully); }));
}

Mapped map(const Descriptor& fd, bool writable) {
    struct stat status;
    if (::fstat(fd.get(), &status) != 0) return {};
    errno = EINVAL;
    if (!S_ISREG(status.st_mode) || status.st_size == 0) return {};
    const auto length = static_cast<std::size_t>(status.st_size);
    if (writable && status.st_blocks * 512 < status.st_size) {
        errno = allocate(fd.get(), length);
        if (errno == ENOSPC || errno == EDQUOT || errno == EIO) return {};
    }
    const int protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* address = ::mmap(nullptr, length, protection, MAP_SHARED, fd.get(), 0);
    if (address == MAP_FAILED) return {};
    return Mapped(address, length);
}

void tell_of_cut(GuardedRange* range) {
    if (range->newly_damaged())
        elog_complain(0, "Another process cut off a ring buffer while it was mapped at %p\n",
                      range->begin());
}

int unmap(void* address, std::size_t length, void* guard) {
    auto* range = static_cast<GuardedRange*>(guard);
    tell_of_cut(range);
    GuardedRange::release(range);
    return ::munmap(address, length);
}

int lock(const Descriptor& fd, std::size_t length) {
    return retry([&] { return ::lockf(fd.get(), F_TLOCK, static_cast<off_t>(length)); });
}

Presence look_for(const char* path) {
    struct stat status;
    if (restat(path, &status) == 0) return Presence::there;
    return errno == ENOENT ? Presence::missing : Presence::unknown;
}

}  // namespace morva::ringfile
