// Rings: files opened and closed, points stored and fetched. docs/formats/ring.md draws the layout.
//
// The order of stores when a point comes in: the oldest point of a full ring is hidden, the slot is
// written, index and count are published in one store. A writer that is killed between any two of
// them leaves a ring of true points.
#include "morva/ring.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "shared/ring.hpp"
#include "shared/ring_file.hpp"
#include "skerrows.h"

namespace {

namespace ringfile = morva::ringfile;
using morva::ring::look;
using morva::ring::Place;
using morva::ring::View;

constexpr char kMagic[] = {'n', 'e', 'w', 'r', 'i', 'n', 'g', 'b'};
constexpr double kGap = 60.0;
constexpr double kNull = -99999999.0;
enum { kReadonly = -1, kOutOfOrder = -2, kUnknownMethod = -3 };

std::size_t length_of(int32_t size) {
    return sizeof(Ring_header) + static_cast<std::size_t>(size) * sizeof(Ring_point);
}

// ---- opening

// What is wrong with a ring file whose magic is right, or null.
const char* fault(const Ring_header& header, std::size_t length) {
    if (length < sizeof header) return "it is shorter than its header";
    if (header.size < 1) return "its size is below 1";
    if (length < length_of(header.size)) return "it is shorter than its points";
    if (header.count < 0 || header.count > header.size) return "its count is not within its size";
    if (header.index < 0 || header.index >= header.size) return "its index is not within its size";
    return nullptr;
}

// The number of slots of a mapped ring file; 0, with the reason registered, when it is none.
int32_t checked_size(const ringfile::Mapped& map, const char* path) {
    Ring_header header{};
    std::memcpy(&header, map.data(), std::min(sizeof header, map.size()));
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0) {
        elog_log(0, "Bad magic number while trying to read ring buffer.\n");
        return 0;
    }
    const char* wrong = fault(header, map.size());
    if (wrong == nullptr) return header.size;
    elog_log(0, "ring buffer %s can't be used: %s\n", path, wrong);
    return 0;
}

bool make_missing(const char* path, const char* id, int size, int flags) {
    constexpr int kAttempts = 10;  // somebody may remove it as quickly
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const ringfile::Presence presence = ringfile::look_for(path);
        if (presence == ringfile::Presence::there) return true;
        if (presence == ringfile::Presence::unknown) break;
        if (newring(path, id, size, flags) != 0) return false;
    }
    elog_log(1, "ring buffer file '%s' does not exist", path);
    return false;
}

bool lock(const morva::Descriptor& fd, std::size_t length, const char* path) {
    if (ringfile::lock(fd, length) == 0) return true;
    elog_complain(1,
                  is_nfs(path) ? "Can't lock '%s': it is on an nfs filesystem\n"
                               : "Can't lock '%s' for exclusive use\n",
                  path);
    return false;
}

Ring* handle_of(ringfile::Mapped map, int32_t size, const char* path, bool readonly) {
    Ring* ring = morva::must_alloc<Ring>(1, "ring", MORVA_HERE);
    ring->path = morva::must_strdup(path, "ring", MORVA_HERE);
    ring->length = static_cast<int64_t>(map.size());
    ring->readonly = readonly;
    ring->header = reinterpret_cast<Ring_header*>(map.data());
    ring->points = reinterpret_cast<Ring_point*>(ring->header + 1);
    ring->size = size;
    ring->guard = map.release();
    // The word of a full ring, less this, is the slot that is next; before the seam, where there is
    // none, and in a ring that is not full it comes out larger than the last.
    ring->full = morva::ring::kOneCount * static_cast<uint64_t>(size) + morva::ring::kOneIndex;
    ring->last = readonly ? 0 : static_cast<uint64_t>(size) - 1;
    return ring;
}

// ---- storing

// Whether nothing can be stored.
bool is_closed(const Ring* ring) {
    return ring->readonly || ringfile::is_cut(ring->guard);
}

[[gnu::always_inline]] inline void add(Ring* ring, Place now, double time, double value) {
    if (now.count == ring->size) {
        --now.count;
        morva::ring::store_place(ring, now);
    }
    now.index = now.index == 0 ? ring->size - 1 : now.index - 1;
    now.count += 1;
    Ring_point& slot = ring->points[now.index];
    morva::ring::store(slot.time, time);
    morva::ring::store(slot.value, value);
    morva::ring::store_place(ring, now);
}

// Stores a point behind a break.
[[gnu::noinline]] void add_behind_break(Ring* ring, double newest, double time, double value) {
    const double null = morva::ring::load(ring->header->null);
    addring(ring, newest, null);
    addring(ring, time, null);
    addring(ring, time, value);
}

enum class Admission { refused, stored, open };

// Refuses a point that does not belong behind the newest one; stores one behind a break.
inline Admission admit(Ring* ring, Place now, double time, double value) {
    if (now.count == 0) return Admission::open;
    const Ring_point& point = ring->points[now.index];
    const double newest = morva::ring::load(point.time);
    if (time < newest || (time == newest && value == morva::ring::load(point.value)))
        return Admission::refused;
    const double gap = morva::ring::load(ring->header->gap);
    if (!(time - newest > gap) || gap == 0) return Admission::open;
    add_behind_break(ring, newest, time, value);
    return Admission::stored;
}

[[gnu::noinline]] int push_any(Ring* ring, double time, double value) {
    if (is_closed(ring)) return kReadonly;
    const Place now = morva::ring::load_place(ring);
    const Admission admission = admit(ring, now, time, value);
    if (admission == Admission::open) add(ring, now, time, value);
    return admission == Admission::refused ? kOutOfOrder : 0;
}

// Whether the newest two points have the value.
bool runs_on(const View& view, double value) {
    return view.count >= 2 && view.value(0) == value && view.value(1) == value;
}

void give(double* to, double value) {
    if (to != nullptr) *to = value;
}

}  // namespace

extern "C" {

int newring(const char* path, const char* id, int size, int flags) {
    if (size < 1) {
        errno = EINVAL;
        elog_log(1, "Can't open new ring buffer %s", path);
        return -1;
    }
    Ring_header header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    if (id != nullptr) std::memcpy(header.id, id, ::strnlen(id, sizeof header.id));
    header.size = size;
    header.flags = flags & ~RING_READONLY;
    header.gap = kGap;
    header.null = kNull;
    return ringfile::make(path, &header, sizeof header, length_of(size));
}

Ring* openring(const char* path, char* id, int size, int flags) {
    const bool readonly = (flags & RING_READONLY) != 0;
    if (!readonly && !make_missing(path, id, size, flags)) return nullptr;
    const morva::Descriptor fd = ringfile::open(path, !readonly);
    if (!fd) {
        elog_log(1, "Can't open ringbuffer %s.", path);
        return nullptr;
    }
    ringfile::Mapped map = ringfile::map(fd, !readonly);
    if (map.data() == nullptr) {
        elog_log(1, "failed to mmap ringbuffer %s", path);
        return nullptr;
    }
    const int32_t checked = checked_size(map, path);
    if (checked == 0) return nullptr;
    if (!readonly && !lock(fd, map.size(), path)) return nullptr;
    Ring* ring = handle_of(std::move(map), checked, path, readonly);
    if (id != nullptr) std::memcpy(id, ring->header->id, sizeof ring->header->id);
    return ring;
}

int closering(Ring* ring) {
    if (ring == nullptr) return 0;
    const int result =
        ringfile::unmap(ring->header, static_cast<std::size_t>(ring->length), ring->guard);
    std::free(ring->path);
    std::free(ring);
    return result;
}

int rmring(Ring* ring) {
    if (ring == nullptr) return 0;
    const int removed = std::remove(ring->path);
    return closering(ring) | removed;
}

char* idring(Ring* ring) {
    return ring->header->id;
}

char* filenamering(Ring* ring) {
    return ring->path;
}

int setring(Ring* ring, double gap, double null) {
    if (is_closed(ring)) return kReadonly;
    morva::ring::store(ring->header->gap, gap);
    morva::ring::store(ring->header->null, null);
    return 0;
}

int addring(Ring* ring, double time, double value) {
    if (is_closed(ring)) return kReadonly;
    add(ring, morva::ring::load_place(ring), time, value);
    return 0;
}

// What most points meet is done here: a full ring, no seam, a later time, no break.
int pushring(Ring* ring, double time, double value) {
    Ring_header* header = ring->header;
    const uint64_t word = morva::ring::load_word(header), next = word - ring->full;
    const auto* guard = static_cast<const morva::GuardedRange*>(ring->guard);
    if (next >= ring->last || guard->damaged()) [[unlikely]]
        return push_any(ring, time, value);
    Ring_point* slot = ring->points + next;
    const double newest = morva::ring::load(slot[1].time), gap = morva::ring::load(header->gap);
    if (!(time > newest && time - newest <= gap)) [[unlikely]]
        return push_any(ring, time, value);
    morva::ring::store_word(header, word - morva::ring::kOneCount);
    morva::ring::store(slot->time, time);
    morva::ring::store(slot->value, value);
    morva::ring::store_word(header, word - morva::ring::kOneIndex);
    return 0;
}

int cramring(Ring* ring, const char* method, double time, double value) {
    if (is_closed(ring)) return kReadonly;
    const View view = look(ring);
    const Admission admission = admit(ring, {view.index, view.count}, time, value);
    if (admission == Admission::refused) return kOutOfOrder;
    if (admission == Admission::stored) return 0;
    if (method == nullptr || std::strcmp(method, "collapse") != 0) {
        elog_log(0, "unrecognized cramring method '%s'", method != nullptr ? method : "");
        return kUnknownMethod;
    }
    if (!runs_on(view, value)) return addring(ring, time, value);
    morva::ring::store(ring->points[view.index].time, time);
    return 0;
}

long countring(Ring* ring) {
    return morva::ring::load_place(ring).count;
}

int getring(Ring* ring, int i, double* time, double* value) {
    for (;;) {
        const View view = look(ring);
        if (i < 0 || i >= view.count) return -1;
        const Ring_point point = view.point(i);
        // Overwritten meanwhile, be it by as many points as there are slots?
        if (morva::ring::intact(view) <= i || !morva::ring::same(point, view.point(i))) continue;
        give(time, point.time);
        give(value, point.value);
        return 0;
    }
}

}  // extern "C"
