// Mappings of list files.
//
// The record of a writable list lies in its mapping, so the mapping must never move. It therefore
// stands at the start of a wide range of reserved addresses, and grows into that range:
//
//      | note (a page) | file | reserved, no access ... |
//                      mapaddr
//
// The note keeps what this process must know even when another process that has the same file open
// overwrites the record's own fields. A read-only list is mapped plainly: it never grows.
#include "containers/tbl_map.hpp"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/diagnostics.hpp"
#include "base/fault_guard.hpp"
#include "base/posix.hpp"
#include "containers/tbl_internal.hpp"

namespace morva::list {
namespace {

struct Note {
    std::size_t reserved;  // bytes from the note to the end of the reserved range
    int fd;
    char* deleted;
};

constexpr std::size_t kGenerous = std::size_t{1} << 36;
constexpr int64_t kLongestFile = INT64_MAX / 2;
constexpr int kReserve = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

std::size_t page_size() {
    static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

std::size_t whole_pages(std::size_t bytes) {
    return (bytes + page_size() - 1) & ~(page_size() - 1);
}

Note* note_of(char* mapaddr) {
    return reinterpret_cast<Note*>(mapaddr - page_size());
}

// Reserves addresses for at least so many bytes, and far more when the system grants it.
Mapping reserve(std::size_t least, void* hint) {
    for (std::size_t length = std::max(kGenerous, 2 * least);;
         length = std::max(length / 2, least)) {
        void* address = ::mmap(hint, length, PROT_NONE, kReserve, -1, 0);
        if (address != MAP_FAILED) return {address, length};
        if (length == least) return {};
    }
}

// Takes in the addresses right behind the reserved range, unless somebody else has them.
bool widen(char* mapaddr, std::size_t more) {
    Note* note = note_of(mapaddr);
    char* end = reinterpret_cast<char*>(note) + note->reserved;
    void* got = ::mmap(end, more, PROT_NONE, kReserve, -1, 0);
    if (got == MAP_FAILED) return false;
    if (got != end) {
        ::munmap(got, more);
        return false;
    }
    note->reserved += more;
    return true;
}

// Maps the pages of the file from byte `from` (a whole page) up to byte `to`.
bool map_part(char* mapaddr, int fd, std::size_t from, std::size_t to) {
    return ::mmap(mapaddr + from, to - from, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd,
                  static_cast<off_t>(from)) != MAP_FAILED;
}

// Whether an address that a file asks for may be tried. Not one from which the reserved range could
// end near the stack and keep it from growing.
bool acceptable(const char* wanted) {
    const char here = 0;
    const auto stack = reinterpret_cast<std::uintptr_t>(&here);
    const auto address = reinterpret_cast<std::uintptr_t>(wanted);
    return address > page_size() && address % page_size() == 0 &&
           stack - address > kGenerous + kGenerous / 8;
}

// Where a file goes that asks for nothing: far from where systems put programs, libraries and
// stacks. The address is at random there, and the next process that opens the file would often find
// it taken.
char* home_of(int fd) {
    constexpr std::uintptr_t kLowest = std::uintptr_t{1} << 45;
    struct stat status {};
    if (::fstat(fd, &status) != 0) return nullptr;
    const uint64_t place = (status.st_ino * 0x9e3779b97f4a7c15U) >> 56;
    return reinterpret_cast<char*>(kLowest + place * (2 * kGenerous));
}

char* map_growing(int fd, std::size_t size, char* wanted) {
    const std::size_t page = page_size();
    char* start = acceptable(wanted) ? wanted - page : home_of(fd);
    Mapping range = reserve(page + whole_pages(size), start);
    char* mapaddr = range.data() + page;
    if (range.data() == nullptr || ::mprotect(range.data(), page, PROT_READ | PROT_WRITE) != 0 ||
        !map_part(mapaddr, fd, 0, size))
        return nullptr;
    *note_of(mapaddr) = {range.size(), fd, nullptr};
    GuardedRange::watch(mapaddr, range.size() - page);
    range.release();
    return mapaddr;
}

// Lengthens a file such that every new byte has its place on the disk: a full disk shows here, and
// not as a fatal signal when the mapping is first written.
int lengthen(int fd, int64_t from, int64_t to) {
    int error;
    do {
        error = ::posix_fallocate(fd, from, to - from);
    } while (error == EINTR);
    errno = error;
    return error;
}

void map_more(Tbl* tbl, int fd, std::size_t length) {
    const std::size_t mapped = whole_pages(tbl->maplen), wanted = whole_pages(length);
    const std::size_t reserved = note_of(tbl->mapaddr)->reserved - page_size();
    const bool fits = wanted <= reserved || widen(tbl->mapaddr, wanted - reserved);
    if (!fits || (wanted > mapped && !map_part(tbl->mapaddr, fd, mapped, wanted)))
        elog_die(1, "Couldn't remap tbl.\n");
    tbl->maplen = static_cast<int64_t>(length);
}

}  // namespace

char* map_file(int fd, std::size_t size, bool writable, char* wanted) {
    if (writable) return map_growing(fd, size, wanted);
    void* address = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) return nullptr;
    GuardedRange::watch(address, size);
    return static_cast<char*>(address);
}

int unmap_file(char* mapaddr, std::size_t size, bool writable) {
    GuardedRange* range = GuardedRange::around(mapaddr);
    if (range != nullptr && range->newly_damaged())
        elog_complain(0, "Another process cut off a list file while it was mapped at %p\n",
                      static_cast<void*>(mapaddr));
    GuardedRange::release(range);
    if (!writable) return ::munmap(mapaddr, size);
    Note* note = note_of(mapaddr);
    return ::munmap(note, note->reserved);
}

int file_of(const Tbl* tbl) {
    return (tbl->mode & kWritable) != 0 ? note_of(tbl->mapaddr)->fd : tbl->fd;
}

char*& deleted_buffer(Tbl* tbl) {
    return (tbl->mode & kWritable) != 0 ? note_of(tbl->mapaddr)->deleted : tbl->deleted;
}

void release_file(Tbl* tbl) {
    const Tbl last = *tbl;
    const bool writable = (last.mode & kWritable) != 0;
    ::close(file_of(tbl));
    if (!writable) std::free(tbl);
    if (unmap_file(last.mapaddr, last.maplen, writable) != 0)
        elog_complain(1, "munmap (%lx, %ld) fails", reinterpret_cast<unsigned long>(last.mapaddr),
                      static_cast<long>(last.maplen));
}

void release_cut_file(Tbl* tbl) {
    GuardedRange* range = GuardedRange::around(tbl);
    if (range == nullptr) return;
    char* mapaddr = static_cast<char*>(range->begin());
    ::close(note_of(mapaddr)->fd);
    std::free(note_of(mapaddr)->deleted);
    unmap_file(mapaddr, 0, true);
}

void extend_file(Tbl* tbl, int64_t n) {
    require_extendable(tbl);
    int64_t bytes = 0, length = 0;
    const int64_t end = block_of(tbl) - tbl->mapaddr + slots_of(tbl) * tbl->itemsize;
    if (__builtin_mul_overflow(n, int64_t{tbl->itemsize}, &bytes)) bytes = INT64_MAX;
    if (__builtin_add_overflow(end, bytes, &length) || length > kLongestFile) {
        errno = EFBIG;
        elog_die(1, "Couldn't lseek %ld bytes beyond end of file", static_cast<long>(bytes));
    }
    // A process that was killed while it extended the file leaves room that is used up here.
    if (length <= tbl->maplen) return;
    const int fd = file_of(tbl);
    if (lengthen(fd, tbl->maplen, length) != 0)
        elog_die(1, "Couldn't write 1 byte to extend file by %ld bytes", static_cast<long>(bytes));
    map_more(tbl, fd, static_cast<std::size_t>(length));
}

}  // namespace morva::list
