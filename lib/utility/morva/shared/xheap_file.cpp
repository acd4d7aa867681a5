// Heap files opened, made longer and closed.
#include <sys/stat.h>

#include <algorithm>
#include <climits>

#include "base/diagnostics.hpp"
#include "morva/files.h"
#include "shared/ring_file.hpp"
#include "shared/xheap.hpp"

namespace {

namespace mapping = morva::ringfile;
using morva::Descriptor;
using morva::GuardedRange;
using morva::retry;
using namespace morva::heap;

bool has_contents(const char* path) {
    struct stat status;
    return restat(path, &status) == 0 && status.st_size > 0;
}

// A file that is one free entry. What goes wrong shows when it is opened.
void make(const char* path, int size) {
    char header[kHeaderSize];
    store_free(header, kHeaderSize);
    store_word(header, size);
    mkfile(path, size, header, sizeof header);
}

// A mapped file, and what tells it from others that its path may lead to later.
struct File {
    mapping::Mapped map;
    struct stat status;
};

// The whole file; nothing, with the reason registered, when that cannot be.
mapping::Mapped map_file(const Descriptor& fd, const char* path, bool writable) {
    mapping::Mapped map = mapping::map(fd, writable);
    if (map.data() != nullptr && map.size() <= INT32_MAX) return map;
    if (map.data() != nullptr) errno = EFBIG;
    elog_log(1, "Can't map file %s\n", path);
    return {};
}

File open_and_map(const char* path, bool writable) {
    const Descriptor fd = mapping::open(path, writable);
    struct stat status;
    if (fd && ::fstat(fd.get(), &status) == 0) return {map_file(fd, path, writable), status};
    elog_log(1, "Couldn't open %s\n", path);
    return {};
}

void attach(Xheap* heap, mapping::Mapped map) {
    heap->address = map.data();
    heap->length = static_cast<int32_t>(map.size());
    heap->guard = map.release();
}

void attach(Xheap* heap, File file) {
    attach(heap, std::move(file.map));
    heap->device = file.status.st_dev;
    heap->inode = file.status.st_ino;
}

int detach(Xheap* heap) {
    if (heap->address == nullptr) return 0;
    is_cut(heap);
    GuardedRange::release(static_cast<GuardedRange*>(heap->guard));
    heap->guard = nullptr;
    return ::munmap(std::exchange(heap->address, nullptr),
                    static_cast<std::size_t>(std::exchange(heap->length, 0)));
}

// ---- growth

struct Growth {
    off_t from, to;
};

// Blocks for the bytes to come: what is stored in them later must not fail. 0, or -1 with errno.
int reserve(int fd, Growth growth) {
    do {
        errno = ::posix_fallocate(fd, growth.from, growth.to - growth.from);
    } while (errno == EINTR);
    if (errno == 0) return 0;
    if (errno != EOPNOTSUPP && errno != EINVAL) return -1;
    static constexpr char kZeros[65536] = {};
    for (off_t at = growth.from; at < growth.to;) {
        const auto n = static_cast<std::size_t>(std::min<off_t>(growth.to - at, sizeof kZeros));
        const ssize_t written = retry([&] { return ::pwrite(fd, kZeros, n, at); });
        if (written <= 0) return -1;
        at += written;
    }
    return 0;
}

// Whether the descriptor leads to the file that is mapped, and it is as long as that.
bool is_ours(int fd, const Xheap* heap) {
    struct stat status;
    if (::fstat(fd, &status) != 0) return false;
    errno = ESTALE;
    return status.st_size == heap->length && status.st_dev == heap->device &&
           status.st_ino == heap->inode;
}

// The grown file; nothing, with the reason registered and the file as it was, when that failed.
mapping::Mapped grow(const Xheap* heap, Growth growth) {
    const char* path = heap->path;
    const Descriptor fd = mapping::open(path, true);
    if (!fd || !is_ours(fd.get(), heap)) {
        elog_log(1, "Can't create new file '%s'\n", path);
        return {};
    }
    errno = EFBIG;
    if (growth.to > INT32_MAX || ::lseek(fd.get(), growth.to - 1, SEEK_SET) < 0) {
        elog_log(1, "Failed to seek to end of new file '%s'\n", path);
        return {};
    }
    const bool reserved = reserve(fd.get(), growth) == 0;
    if (!reserved) elog_log(1, "Failed to write byte at end of new file '%s'\n", path);
    mapping::Mapped map = reserved ? map_file(fd, path, true) : mapping::Mapped();
    if (map.data() == nullptr) retry([&] { return ::ftruncate(fd.get(), growth.from); });
    if (map.data() == nullptr || map.size() == static_cast<std::size_t>(growth.to)) return map;
    errno = ESTALE;  // another process has cut it off since
    elog_log(1, "Can't map file %s\n", path);
    return {};
}

// As far as a heap may grow for the need.
off_t grown_length(int64_t length, int64_t need) {
    const int64_t wanted = std::max(2 * length, length + 2 * need);
    return INT32_MAX - length >= need + kHeaderSize ? std::min<int64_t>(wanted, INT32_MAX) : wanted;
}

void move_record(Entry* entry, const char* from, char* to) {
    entry->address = to + (entry->address - from);
    if (entry->name == nullptr) return;
    entry->name = to + (entry->name - from);
    entry->data = to + (entry->data - from);
}

// Takes what is left at the end, too little for a header, out of the list; returns where the free
// space to come begins.
int32_t take_tail(Xheap* heap) {
    const long last = maxtbl(heap->free_list) - 1;
    auto* tail = static_cast<Entry*>(gettbl(heap->free_list, last));
    if (tail == nullptr || tail->size >= kHeaderSize) return heap->length;
    const int32_t size = tail->size;
    std::free(poptbl(heap->free_list));
    return heap->length - size;
}

struct Move {
    const char* from;
    char* to;
};

void move_records(Xheap* heap, Move move) {
    for (Entry* entry : morva::tbl_pointers<Entry>(heap->free_list))
        move_record(entry, move.from, move.to);
    applyarr(
        heap->names,
        [](char*, void* entry, void* of) {
            const Move* move = static_cast<Move*>(of);
            move_record(static_cast<Entry*>(entry), move->from, move->to);
            return 0;
        },
        &move);
}

}  // namespace

namespace morva::heap {

void tell_of_cut(Xheap* heap) {
    if (static_cast<GuardedRange*>(heap->guard)->newly_damaged())
        elog_complain(0, "Another process cut off the heap '%s' while it was mapped\n", heap->path);
}

bool may_store(Xheap* heap) {
    if (heap == nullptr || is_cut(heap)) return false;
    if (!heap->readonly) return true;
    elog_log(0, "The heap '%s' was opened to be read only\n", heap->path);
    return false;
}

}  // namespace morva::heap

extern "C" {

Xheap* newx() {
    return morva::must_alloc<Xheap>(1, "x", MORVA_HERE);
}

Xheap* mapx(const char* path, const char* mode, int size) {
    const char* name = path != nullptr ? path : "";
    const bool readonly = mode != nullptr && std::strcmp(mode, "r") == 0;
    if (!readonly && !has_contents(name)) make(name, size);
    File file = open_and_map(name, !readonly);
    if (file.map.data() == nullptr) return nullptr;
    Xheap* heap = newx();
    heap->path = morva::must_strdup(name, "x", MORVA_HERE);
    heap->readonly = readonly;
    attach(heap, std::move(file));
    return heap;
}

Xheap* openx(const char* path, const char* mode, int size) {
    Xheap* heap = mapx(path, mode, size);
    if (heap != nullptr) assimilatex(heap);
    return heap;
}

int closex(Xheap** heap) {
    if (heap == nullptr || *heap == nullptr) return 0;
    Xheap* closed = std::exchange(*heap, nullptr);
    free_lists(closed);
    const int result = detach(closed);
    std::free(closed->path);
    std::free(closed);
    return result;
}

int refreshx(Xheap* heap) {
    if (heap == nullptr) return -1;
    File file = open_and_map(heap->path, !heap->readonly);
    if (file.map.data() == nullptr) return -1;
    free_lists(heap);
    detach(heap);
    attach(heap, std::move(file));
    return assimilatex(heap);
}

int expandx(Xheap* heap, int need) {
    if (!may_store(heap)) return -1;
    settle(heap);
    const Growth growth{heap->length, grown_length(heap->length, std::max(need, 0))};
    mapping::Mapped map = grow(heap, growth);
    if (map.data() == nullptr) return -1;
    const int32_t begin = take_tail(heap);
    Entry* added = new_entry(map.data() + begin, static_cast<int32_t>(map.size()) - begin);
    store_free(added->address, added->size);
    move_records(heap, {heap->address, map.data()});
    pushtbl(heap->free_list, added);
    detach(heap);
    attach(heap, std::move(map));
    return 0;
}

}  // extern "C"
