// Ringlets: a ring of records. docs/formats/ring.md draws the layout.
//
// Index and count are two words here. The order of stores when a record comes in: the oldest record
// of a full ringlet is hidden, the slot is written, then index, then count. Between any two of them
// the file shows true records, and at most the oldest is hidden.
#include "morva/ringlet.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/paths.h"
#include "shared/ring_file.hpp"
#include "skerrows.h"

namespace {

namespace ringfile = morva::ringfile;

constexpr char kMagic[8] = "ringlet";
static_assert(sizeof(Ringlet_header) == 40 && offsetof(Ringlet_header, size) == 32);

// Bytes of a file of such records; 0 when that cannot be.
std::size_t length_of(int64_t nslots, int64_t size) {
    int64_t bytes = 0;
    constexpr int64_t kHeader = sizeof(Ringlet_header);
    if (nslots < 1 || size < 1 || __builtin_mul_overflow(nslots, size, &bytes) ||
        __builtin_add_overflow(bytes, kHeader, &bytes))
        return 0;
    return static_cast<std::size_t>(bytes);
}

// ---- opening

const char* fault(const Ringlet_header& header, std::size_t length) {
    if (length < sizeof header) return "it is shorter than its header";
    const std::size_t needed = length_of(header.nslots, header.size);
    if (needed == 0) return "its slots or their size are out of range";
    if (length < needed) return "it is shorter than its records";
    if (header.count < 0 || header.count > header.nslots)
        return "its count is not within its slots";
    if (header.index < 0 || header.index >= header.nslots)
        return "its index is not within its slots";
    return nullptr;
}

// Copies the header of a mapped ringlet; false, with the reason registered, when it is none.
bool check(const ringfile::Mapped& map, const char* path, Ringlet_header* header) {
    std::memcpy(header, map.data(), std::min(sizeof *header, map.size()));
    if (std::memcmp(header->magic, kMagic, sizeof kMagic) != 0) {
        elog_log(0, "Bad magic number while trying to read ringlet.\n");
        return false;
    }
    const char* wrong = fault(*header, map.size());
    if (wrong != nullptr) elog_log(0, "ringlet %s can't be used: %s\n", path, wrong);
    return wrong == nullptr;
}

bool make_missing(const char* path, long nslots, long size) {
    // When folders cannot be made, opening the file tells the rest.
    make_pathdirs(path);
    constexpr int kAttempts = 10;  // somebody may remove it as quickly
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const ringfile::Presence presence = ringfile::look_for(path);
        if (presence == ringfile::Presence::there) return true;
        if (presence == ringfile::Presence::unknown) break;
        if (newringlet(path, nslots, size) != 0) return false;
    }
    elog_log(1, "ringlet buffer file '%s' does not exist", path);
    return false;
}

// Whether the handle may write. Where locks are not to be relied on, it may.
bool lock(const morva::Descriptor& fd, std::size_t length, const char* path) {
    if (ringfile::lock(fd, length) == 0) return true;
    if (is_nfs(path)) {
        elog_complain(1, "Can't lock '%s': it is on an nfs filesystem: proceeding anyway\n", path);
        return true;
    }
    elog_log(1, "Can't lock '%s' for exclusive use\n", path);
    return false;
}

// ---- records

int64_t load(const int64_t& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

void store(int64_t& word, int64_t value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

// What the file says, made to lie inside it.
inline int64_t count_in(const Ringlet_header* header, int64_t nslots) {
    const int64_t count = load(header->count);
    if (static_cast<uint64_t>(count) > static_cast<uint64_t>(nslots)) [[unlikely]]
        return count < 0 ? 0 : nslots;
    return count;
}

inline int64_t index_in(const Ringlet_header* header, int64_t nslots) {
    const int64_t index = load(header->index);
    return static_cast<uint64_t>(index) < static_cast<uint64_t>(nslots) ? index : 0;
}

char* slot(const Ringlet* ringlet, int64_t i) {
    return ringlet->records + i * ringlet->size;
}

// Hides the oldest record of a full ringlet. Gives the slot for the new one and the count with it.
struct Next {
    int64_t index;
    int64_t count;
};
inline Next make_room(Ringlet_header* header, int64_t nslots) {
    const int64_t index = index_in(header, nslots), count = count_in(header, nslots);
    const bool full = count == nslots;
    if (full) store(header->count, count - 1);
    // Nothing is written to the slot before that.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    return {index == 0 ? nslots - 1 : index - 1, full ? count : count + 1};
}

inline void publish(Ringlet_header* header, Next next) {
    store(header->index, next.index);
    store(header->count, next.count);
}

typedef char Sixteen [[gnu::vector_size(16)]];

template <class Bytes>
inline Bytes bytes_at(const char* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

template <class Bytes>
inline void put(char* to, const Bytes& bytes) {
    std::memcpy(to, &bytes, sizeof bytes);
}

// As memcpy for 8 to 64 bytes, without a call: pieces from both ends, which may overlap.
template <class Bytes>
inline void copy_ends(char* to, const char* from, std::size_t size) {
    const auto last =
        static_cast<std::ptrdiff_t>(size) - static_cast<std::ptrdiff_t>(sizeof(Bytes));
    const auto first_bytes = bytes_at<Bytes>(from), last_bytes = bytes_at<Bytes>(from + last);
    put(to, first_bytes);
    put(to + last, last_bytes);
}

// The slots of records of 64 bytes lie at odd multiples of 8: pieces of 16 behind one of 8 keep
// within the lines of the cache. They are filled from the last to the first, which few processors
// foresee.
inline void copy_large(char* to, const char* from, std::size_t size) {
    constexpr std::size_t kWord = sizeof(uint64_t), kVector = sizeof(Sixteen);
    const std::size_t last = size - kWord - kVector, middle = std::min(kWord + kVector, last);
    __builtin_prefetch(to - 4 * size, 1);
    const auto first_word = bytes_at<uint64_t>(from),
               last_word = bytes_at<uint64_t>(from + size - kWord);
    const auto first_bytes = bytes_at<Sixteen>(from + kWord),
               middle_bytes = bytes_at<Sixteen>(from + middle),
               last_bytes = bytes_at<Sixteen>(from + last);
    put(to, first_word);
    put(to + kWord, first_bytes);
    put(to + middle, middle_bytes);
    put(to + last, last_bytes);
    put(to + size - kWord, last_word);
}

inline void copy_small(char* to, const char* from, std::size_t size) {
    constexpr std::size_t kVector = sizeof(Sixteen);
    if (size <= kVector) [[likely]]
        return copy_ends<uint64_t>(to, from, size);
    if (size > 2 * kVector) return copy_large(to, from, size);
    copy_ends<Sixteen>(to, from, size);
}

// The caller's records may be shorter than the file's: the rest is zeros.
void copy_any(char* to, const char* from, const Ringlet* ringlet) {
    const auto size = static_cast<std::size_t>(ringlet->size);
    const auto given = static_cast<std::size_t>(ringlet->given);
    std::memcpy(to, from, given);
    std::memset(to + given, 0, size - given);
}

[[gnu::noinline]] int push_any(Ringlet* ringlet, const void* record) {
    if (ringlet->readonly || ringfile::is_cut(ringlet->guard)) return -1;
    const Next next = make_room(ringlet->header, ringlet->nslots);
    copy_any(slot(ringlet, next.index), static_cast<const char*>(record), ringlet);
    publish(ringlet->header, next);
    return 0;
}

// The size of records that are copied without a call; 0 for others, and when there is no writing.
std::size_t quick_size(const Ringlet* ringlet) {
    constexpr int64_t kLeast = 8, kMost = 64;
    const int64_t size = ringlet->size;
    const bool quick =
        !ringlet->readonly && size >= kLeast && size <= kMost && ringlet->given == size;
    return quick ? static_cast<std::size_t>(size) : 0;
}

}  // namespace

extern "C" {

int newringlet(const char* path, long nslots, long size) {
    const std::size_t length = length_of(nslots, size);
    if (length == 0) {
        errno = EINVAL;
        elog_log(1, "Can't open new ring buffer %s", path);
        return -1;
    }
    Ringlet_header header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.nslots = nslots;
    header.size = size;
    return ringfile::make(path, &header, sizeof header, length);
}

Ringlet* openringlet(const char* path, long nslots, long size) {
    if (!make_missing(path, nslots, size)) return nullptr;
    const morva::Descriptor fd = ringfile::open(path, true);
    if (!fd) {
        elog_log(1, "Can't open ringlet %s.", path);
        return nullptr;
    }
    ringfile::Mapped map = ringfile::map(fd, true);
    if (map.data() == nullptr) {
        elog_log(1, "failed to mmap ringlet %s", path);
        return nullptr;
    }
    Ringlet_header header{};
    if (!check(map, path, &header)) return nullptr;
    if (size >= 1 && size != header.size)
        elog_log(0, "ringlet %s holds records of %ld bytes, not of %ld\n", path,
                 static_cast<long>(header.size), size);
    Ringlet* ringlet = morva::must_alloc<Ringlet>(1, "ringlet", MORVA_HERE);
    ringlet->readonly = !lock(fd, map.size(), path);
    ringlet->length = static_cast<int64_t>(map.size());
    ringlet->nslots = header.nslots;
    ringlet->size = header.size;
    ringlet->given = size < 1 ? header.size : std::min<int64_t>(size, header.size);
    ringlet->quick = quick_size(ringlet);
    ringlet->last = ringlet->quick == 0 ? 0 : static_cast<std::size_t>(header.nslots) - 1;
    ringlet->header = reinterpret_cast<Ringlet_header*>(map.data());
    ringlet->records = reinterpret_cast<char*>(ringlet->header + 1);
    ringlet->guard = map.release();
    return ringlet;
}

int closeringlet(Ringlet* ringlet) {
    if (ringlet == nullptr) return 0;
    const int result =
        ringfile::unmap(ringlet->header, static_cast<std::size_t>(ringlet->length), ringlet->guard);
    std::free(ringlet);
    return result;
}

// What most records meet is done here: small ones, a full ringlet, no seam.
int pushringlet(Ringlet* ringlet, const void* record) {
    Ringlet_header* header = ringlet->header;
    const int64_t nslots = ringlet->nslots, next = load(header->index) - 1;
    const auto* guard = static_cast<const morva::GuardedRange*>(ringlet->guard);
    if (static_cast<std::size_t>(next) >= ringlet->last || load(header->count) != nslots ||
        guard->damaged()) [[unlikely]]
        return push_any(ringlet, record);
    const std::size_t size = ringlet->quick;
    store(header->count, nslots - 1);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    copy_small(ringlet->records + static_cast<std::size_t>(next) * size,
               static_cast<const char*>(record), size);
    publish(header, {next, nslots});
    return 0;
}

long countringlet(Ringlet* ringlet) {
    return count_in(ringlet->header, ringlet->nslots);
}

int getringlet(Ringlet* ringlet, long i, void** record) {
    // Count before index: between the two a record more is no record that is not there.
    if (i < 0 || i >= countringlet(ringlet)) return -1;
    const int64_t at = index_in(ringlet->header, ringlet->nslots) + i;
    if (record != nullptr)
        *record = slot(ringlet, at < ringlet->nslots ? at : at - ringlet->nslots);
    return 0;
}

}  // extern "C"
