// The files of rings and ringlets: made so that a disk cannot be too full later, opened and mapped.
#pragma once

#include <cstddef>
#include <utility>

#include "base/fault_guard.hpp"
#include "base/posix.hpp"

namespace morva::ringfile {

// Makes a file of `length` bytes that begins with the header; the rest are zeros. 0, or -1 with the
// reason registered.
int make(const char* path, const void* header, std::size_t header_size, std::size_t length);

// The file, for reading or for both; a pipe or terminal of that name does not hold us up.
Descriptor open(const char* path, bool writable);

// A mapped file that another process may cut off without harm.
class Mapped {
  public:
    Mapped() = default;
    Mapped(void* address, std::size_t length)
        : map_(address, length), guard_(GuardedRange::watch(address, length)) {}
    Mapped(Mapped&& other) noexcept
        : map_(std::move(other.map_)), guard_(std::exchange(other.guard_, nullptr)) {}
    ~Mapped() { GuardedRange::release(guard_); }

    char* data() const { return map_.data(); }
    std::size_t size() const { return map_.size(); }
    // Hands over the mapping, whose end is unmap.
    GuardedRange* release() {
        map_.release();
        return std::exchange(guard_, nullptr);
    }

  private:
    Mapping map_;
    GuardedRange* guard_ = nullptr;
};

// The whole file, shared. When it is to be written, all its blocks are allocated first. Without
// data and with errno on failure.
Mapped map(const Descriptor& fd, bool writable);

// Complains, once, of a file that was cut off.
void tell_of_cut(GuardedRange* range);

// Whether the file was cut off since it was mapped: what is stored is then lost.
inline bool is_cut(void* guard) {
    auto* range = static_cast<GuardedRange*>(guard);
    if (!range->damaged()) [[likely]]
        return false;
    tell_of_cut(range);
    return true;
}

// The result of munmap.
int unmap(void* address, std::size_t length, void* guard);

// Tries an exclusive lock over so many bytes. 0, or -1 with errno.
int lock(const Descriptor& fd, std::size_t length);

enum class Presence { there, missing, unknown };  // unknown: errno tells why

Presence look_for(const char* path);

}  // namespace morva::ringfile
