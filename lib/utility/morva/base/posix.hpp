// Guards over what the system hands out, and the retry loop for interrupted calls.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace morva {

// Repeats a call that a signal interrupted. Not for close: after EINTR the descriptor is already
// gone, and a second close could hit another thread's file.
template <class Call>
auto retry(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

// Writes all of the bytes. 0, or -1 with errno.
inline int write_all(int fd, const void* bytes, std::size_t n) {
    const char* from = static_cast<const char*>(bytes);
    while (n > 0) {
        const ssize_t written = retry([&] { return ::write(fd, from, n); });
        if (written < 0) return -1;
        from += written;
        n -= static_cast<std::size_t>(written);
    }
    return 0;
}

// Keeps errno through clean-up.
class ErrnoSaver {
  public:
    ErrnoSaver() = default;
    ~ErrnoSaver() { errno = saved_; }
    ErrnoSaver(const ErrnoSaver&) = delete;
    ErrnoSaver& operator=(const ErrnoSaver&) = delete;

  private:
    int saved_ = errno;
};

// Owns a descriptor; closes it without disturbing errno.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ < 0) return;
        ErrnoSaver keep;
        ::close(fd_);
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};

// Owns a mapping; unmaps it without disturbing errno.
class Mapping {
  public:
    Mapping() = default;
    Mapping(void* address, std::size_t length) : address_(address), length_(length) {}
    Mapping(Mapping&& other) noexcept
        : address_(std::exchange(other.address_, nullptr)), length_(other.length_) {}
    Mapping& operator=(Mapping&& other) noexcept {
        std::swap(address_, other.address_);
        std::swap(length_, other.length_);
        return *this;
    }
    ~Mapping() {
        if (address_ == nullptr) return;
        ErrnoSaver keep;
        ::munmap(address_, length_);
    }
    char* data() const { return static_cast<char*>(address_); }
    std::size_t size() const { return length_; }
    void* release() { return std::exchange(address_, nullptr); }

  private:
    void* address_ = nullptr;
    std::size_t length_ = 0;
};

}  // namespace morva
