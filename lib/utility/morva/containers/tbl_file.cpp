// List files: written, checked, opened and created. docs/formats/list-file.md draws the layout.
//
// Nothing in a file is believed before it is checked against the length of the mapping: the file
// may be cut off, damaged, or made by somebody who wishes us ill.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "base/diagnostics.hpp"
#include "base/ports.hpp"
#include "base/posix.hpp"
#include "containers/tbl_internal.hpp"
#include "containers/tbl_map.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

constexpr std::size_t kLabelAt = 16;
constexpr int64_t kLargestGrowth = int64_t{1} << 30;  // bytes, for a list of few slots

std::size_t round_up_to_8(std::size_t bytes) {
    return (bytes + 7) & ~std::size_t{7};
}

// ---- writing

bool put(FILE* stream, const void* bytes, std::size_t size) {
    return size == 0 || std::fwrite(bytes, 1, size, stream) == size;
}

bool put_zeros(FILE* stream, std::size_t size) {
    static constexpr char kZeros[512] = {};
    for (; size > sizeof kZeros; size -= sizeof kZeros)
        if (!put(stream, kZeros, sizeof kZeros)) return false;
    return put(stream, kZeros, size);
}

bool put_padded(FILE* stream, const void* bytes, std::size_t size, std::size_t padded) {
    return put(stream, bytes, size) && put_zeros(stream, padded - size);
}

bool put_label(FILE* stream, const char* label) {
    const std::size_t size = label != nullptr ? std::strlen(label) + 1 : 0;
    const std::size_t area = round_up_to_8(size);
    const uint32_t words[2] = {static_cast<uint32_t>(area), 0};
    return area <= UINT32_MAX && put(stream, kMagic, sizeof kMagic) &&
           put(stream, words, sizeof words) && put_padded(stream, label, size, area);
}

// Fields that mean nothing outside this process are zero, so that equal lists make equal files.
bool put_record(FILE* stream, const Tbl* tbl) {
    Tbl record{};
    record.null_value = tbl->null_value != nullptr ? reinterpret_cast<char*>(1) : nullptr;
    record.first = tbl->first;
    record.count = tbl->count;
    record.alloc_end = tbl->alloc_end;
    record.itemsize = tbl->itemsize;
    record.direct = tbl->direct;
    record.left_increment = tbl->left_increment;
    record.right_increment = tbl->right_increment;
    return put(stream, &record, sizeof record);
}

bool put_items(FILE* stream, const Tbl* tbl) {
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    return (tbl->null_value == nullptr ||
            put_padded(stream, tbl->null_value, size, round_up_to_8(size))) &&
           put(stream, block_of(tbl), static_cast<std::size_t>(slots_of(tbl)) * size);
}

// ---- reading

// Where the parts of a mapped file are, once they are known to lie inside it.
struct Layout {
    char* label = nullptr;
    Tbl* record = nullptr;
    char* null_value = nullptr;
    char* block = nullptr;
};

// The label area's length: 8 bytes are looked at, although only 4 count, because a file of another
// byte order or word size then shows as an absurd length.
uint64_t label_area(const char* map) {
    uint64_t area;
    std::memcpy(&area, map + sizeof kMagic, sizeof area);
    return area;
}

// alloc_end, allowing for a process that was killed between its stores into window and alloc_end.
int64_t settled_end(const Tbl& record) {
    return record.count > 0 && record.alloc_end == record.count - 1 ? record.count
                                                                    : record.alloc_end;
}

// Fills in what lies behind the label. Gives what is wrong, or null.
const char* find_items(char* map, std::size_t size, Layout* layout) {
    std::size_t at = reinterpret_cast<char*>(layout->record) - map + sizeof(Tbl);
    const Tbl record = *layout->record;
    const int64_t end = settled_end(record);
    if (record.itemsize < 1) return "its item size is below 1";
    if (record.direct == 0) return "its items are pointers";
    if (record.first > 0 || record.count < 0 || record.count > end)
        return "its counts contradict each other";
    if (record.null_value != nullptr) {
        layout->null_value = map + at;
        at += round_up_to_8(static_cast<std::size_t>(record.itemsize));
    }
    int64_t slots = 0, bytes = 0;
    if (at > size || __builtin_sub_overflow(end, record.first, &slots) ||
        __builtin_mul_overflow(slots, int64_t{record.itemsize}, &bytes) ||
        static_cast<std::size_t>(bytes) > size - at)
        return "it is shorter than its items";
    layout->block = map + at;
    return nullptr;
}

// As find_items, for the whole of a file whose magic is right.
const char* find_parts(char* map, std::size_t size, Layout* layout) {
    if (size < kLabelAt + sizeof(Tbl)) return "it is shorter than a list file";
    const uint64_t area = label_area(map);
    if (area % 8 != 0 || area > size - kLabelAt - sizeof(Tbl))
        return "its label does not fit into it";
    if (area > 0) {
        layout->label = map + kLabelAt;
        if (std::memchr(layout->label, 0, area) == nullptr) return "its label does not end";
    }
    layout->record = reinterpret_cast<Tbl*>(map + kLabelAt + area);
    return find_items(map, size, layout);
}

// Whether the mapping is a list file of this machine; registers the reason when not.
bool check(char* map, std::size_t size, const char* path, Layout* layout) {
    if (size < sizeof kMagic || std::memcmp(map, kMagic, sizeof kMagic) != 0) {
        elog_log(0, "Bad magic number while trying to read tbl. %s", path);
        return false;
    }
    if (size >= kLabelAt && label_area(map) > strnlen(map + kLabelAt, size - kLabelAt) + 9) {
        elog_log(0,
                 "filetbl %s was probably created on a different architecture and won't work on "
                 "the current machine",
                 path);
        return false;
    }
    const char* wrong = find_parts(map, size, layout);
    if (wrong != nullptr) elog_log(0, "filetbl %s can't be used: %s\n", path, wrong);
    return wrong == nullptr;
}

// The address at which a process mapped the file last. Whoever has it open still uses that one.
char* last_address(int fd) {
    uint32_t area = 0;
    char* address = nullptr;
    constexpr off_t kWithin = offsetof(Tbl, mapaddr);
    if (::pread(fd, &area, sizeof area, sizeof kMagic) != sizeof area ||
        ::pread(fd, &address, sizeof address, kLabelAt + area + kWithin) != sizeof address)
        return nullptr;
    return address;
}

enum class Outcome { opened, absent, unusable, mislabelled, failed };

struct Opened {
    Outcome outcome = Outcome::failed;
    Tbl* tbl = nullptr;
    char* label = nullptr;
};

// An increment from a file, such that growing takes in the order of what the list already has, and
// not all memory or the whole disk because the file says so.
int64_t sane_increment(const Tbl* tbl, int64_t increment) {
    const int64_t largest =
        std::max(saturating_double(slots_of(tbl)), kLargestGrowth / tbl->itemsize);
    return std::clamp<int64_t>(increment, 0, largest);
}

// Makes the record of a checked file ready for use: the one in the file, or a private copy.
Tbl* adopt(const Layout& layout, char* map, std::size_t size, int fd, bool writable) {
    Tbl* tbl = layout.record;
    if (!writable) {
        tbl = must_alloc<Tbl>(1, "tbl", MORVA_HERE);
        *tbl = *layout.record;
    }
    tbl->base = layout.block - tbl->first * tbl->itemsize;
    tbl->mapaddr = map;
    tbl->null_value = layout.null_value;
    tbl->deleted = nullptr;
    tbl->alloc_end = settled_end(*tbl);
    tbl->maplen = static_cast<int64_t>(size);
    tbl->fd = fd;
    tbl->mode = writable ? kReadable | kWritable : kReadable;
    tbl->left_increment = sane_increment(tbl, tbl->left_increment);
    tbl->right_increment = sane_increment(tbl, tbl->right_increment);
    return tbl;
}

bool has_label(const char* found, const char* wanted) {
    return wanted == nullptr || (found != nullptr && std::strcmp(found, wanted) == 0);
}

// The process ran out of something: that says nothing about the file.
bool is_exhaustion(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// A file of another label than the one wanted, if any, is not touched.
Opened open_file(const char* path, bool writable, const char* wanted_label = nullptr) {
    // Without O_NONBLOCK a named pipe would hold the process until somebody opens its other end.
    const int flags = (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK;
    Descriptor fd(retry([&] { return ::open(path, flags); }));
    if (!fd) {
        const Outcome outcome = is_exhaustion(errno) ? Outcome::failed : Outcome::absent;
        elog_log(1, "Can't open %s to read tbl.", path);
        return {outcome};
    }
    struct stat status;
    if (::fstat(fd.get(), &status) != 0) {
        elog_log(1, "Error trying to stat %s", path);
        return {};
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    char* map = map_file(fd.get(), size, writable, writable ? last_address(fd.get()) : nullptr);
    if (map == nullptr) {
        elog_log(1, "Error trying to mmap %s.", path);
        return {size == 0 ? Outcome::absent : Outcome::failed};
    }
    Layout layout;
    if (!check(map, size, path, &layout)) {
        unmap_file(map, size, writable);
        return {Outcome::unusable};
    }
    if (!has_label(layout.label, wanted_label)) {
        unmap_file(map, size, writable);
        return {Outcome::mislabelled};
    }
    Tbl* tbl = adopt(layout, map, size, fd.release(), writable);
    return {Outcome::opened, tbl, layout.label};
}

// ---- filetbl

struct Wanted {
    const char* path;
    const char* label;
    long size;
    const void* null_value;
    int itemsize;
};

Tbl* create_file(const Wanted& wanted) {
    Tbl* tbl = inittbl(0, wanted.size, 1, wanted.null_value, wanted.itemsize);
    if (tbl == nullptr) return nullptr;
    malloced<void> local_null;
    if (wanted.null_value == nullptr)
        local_null.reset(must_calloc(1, wanted.itemsize, "local_null", MORVA_HERE));
    settbl(tbl, wanted.size, local_null ? local_null.get() : wanted.null_value);
    tbl->count = 0;
    tbl->right_increment = std::max(wanted.size / 2, 0L);
    const int saved = savetbl(tbl, wanted.path, wanted.label);
    freetbl(tbl, nullptr);
    return saved == 0 ? readtbl(wanted.path, nullptr, 1) : nullptr;
}

String with_ending(std::string_view path, std::string_view ending) {
    String name;
    name.reserve(path.size() + ending.size());
    name.append(path).append(ending);
    return name;
}

// Replaces the file of `old` by one with room for as many items as wanted. The new file is complete
// before it takes the name, so that whatever happens there is a file with all the items.
Tbl* rebuild(Tbl* old, const Wanted& wanted) {
    const String building = with_ending(wanted.path, ".new");
    Wanted larger = wanted;
    larger.path = building.c_str();
    ::unlink(larger.path);
    Tbl* tbl = create_file(larger);
    if (tbl == nullptr || cattbl(tbl, old) != 0 || std::rename(larger.path, wanted.path) != 0) {
        ::unlink(larger.path);
        elog_die(0, "Couldn't extend list %s", wanted.path);
    }
    struct stat status;
    if (::fstat(file_of(old), &status) == 0) ::fchmod(file_of(tbl), status.st_mode & 07777);
    freetbl(old, nullptr);
    return tbl;
}

// Whether the items have the size that the caller expects of them; below 1, any will do.
bool has_size(const Tbl* tbl, int itemsize) {
    if (itemsize < 1 || tbl->itemsize == itemsize) return true;
    elog_log(0, "tbl lists have different entry sizes: %d %d\n", itemsize, tbl->itemsize);
    return false;
}

// Whether a list that filetbl would make could take the items of this one.
bool fits(const Tbl* tbl, const Wanted& wanted) {
    Tbl model{};
    model.itemsize = wanted.itemsize;
    model.direct = 1;
    model.null_value = static_cast<char*>(const_cast<void*>(wanted.null_value));
    return can_be_joined(&model, tbl);
}

// Whether a list lives in this very file, which cannot be written anew under it.
bool is_file_of(const Tbl* tbl, const char* path) {
    struct stat own, other;
    return in_file(tbl) && ::fstat(file_of(tbl), &own) == 0 && ::stat(path, &other) == 0 &&
           own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

// Keeps what is no list file, or a damaged one, under another name: somebody may miss it.
void put_aside(const char* path) {
    std::rename(path, with_ending(path, ".damaged").c_str());
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

int writetbl(Tbl* tbl, FILE* stream, const char* label) {
    if (!tbl->direct) {
        elog_log(0, "tbl of pointers can't be written to a file.\n");
        return -1;
    }
    const bool written =
        put_label(stream, label) && put_record(stream, tbl) && put_items(stream, tbl);
    return written ? 0 : -1;
}

int savetbl(Tbl* tbl, const char* path, const char* label) {
    port::make_pathdirs(path);
    const bool own = is_file_of(tbl, path);
    FILE* stream = own ? nullptr : std::fopen(path, "w+e");
    if (own) errno = EBUSY;
    if (stream == nullptr) {
        elog_log(1, "Can't open %s to write tbl.\n", path);
        return -1;
    }
    const int result = writetbl(tbl, stream, label);
    if (result != 0) elog_log(1, "Errors while writing tbl to %s.\n", path);
    if (std::fclose(stream) == 0) return result;
    elog_log(1, "Failed to close tbl file %s", path);
    return -1;
}

Tbl* readtbl(const char* path, char** label, int writable) {
    const Opened file = open_file(path, writable != 0);
    if (label != nullptr) *label = file.label;
    return file.tbl;
}

int filetbl(const char* path, const char* label, long size, const void* null_value, int itemsize,
            Tbl** tbl) {
    const Wanted wanted{path, label, size, null_value, itemsize};
    *tbl = nullptr;
    const int mark = elog_mark();
    const Opened file = open_file(path, true, label);
    if (file.outcome == Outcome::failed) return -1;
    elog_flush(0, mark);
    if (file.outcome == Outcome::mislabelled) return -2;
    if (file.outcome != Outcome::opened) {
        if (file.outcome == Outcome::unusable) put_aside(path);
        *tbl = create_file(wanted);
    } else if (!has_size(file.tbl, itemsize)) {
        freetbl(file.tbl, nullptr);
    } else if (slots_of(file.tbl) >= size) {
        *tbl = file.tbl;
    } else if (fits(file.tbl, wanted)) {
        *tbl = rebuild(file.tbl, wanted);
    } else {
        freetbl(file.tbl, nullptr);
    }
    return *tbl != nullptr ? 0 : -1;
}

}  // extern "C"
