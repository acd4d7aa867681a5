// What the sources of the list family share among themselves.
//
// The record of a writable list file is the record in the file: whatever is stored into it is there
// for the next process, even when this one is killed in the middle of a call. The sources therefore
// change it in this order: first items, then the window {first, count} in one store, and alloc_end
// such that it never takes in a slot outside the file and lags behind count by at most one slot.
// Opening a file allows for that one slot.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

#include "base/memory.hpp"
#include "containers/tbl.hpp"

namespace morva::list {

constexpr int32_t kReadable = 1;
constexpr int32_t kWritable = 2;
constexpr int64_t kDefaultIncrement = 10;
constexpr int32_t kPointerSize = sizeof(void*);
constexpr char kMagic[8] = {'#', 'F', 'i', 'l', 'e', 'T', 'b', 'l'};

static_assert(sizeof(Tbl) == 96 && alignof(Tbl) == 8);
static_assert(offsetof(Tbl, first) == 32 && offsetof(Tbl, count) == 40);
static_assert(offsetof(Tbl, itemsize) == 56 && offsetof(Tbl, left_increment) == 80);

inline bool in_file(const Tbl* tbl) {
    return tbl->mapaddr != nullptr;
}
inline bool read_only(const Tbl* tbl) {
    return tbl->mode == kReadable;
}
inline char* block_of(const Tbl* tbl) {
    return tbl->base + tbl->first * tbl->itemsize;
}
inline int64_t slots_of(const Tbl* tbl) {
    return tbl->alloc_end - tbl->first;
}
inline int64_t saturating_double(int64_t n) {
    return n > INT64_MAX / 2 ? INT64_MAX : 2 * n;
}

// Keeps stores into a list file in the order in which they are written.
inline void barrier() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// Changes first and count in a single store, so that a killed process leaves both or neither.
inline void publish_window(Tbl* tbl, int64_t first, int64_t count) {
    using Pair [[gnu::vector_size(16), gnu::aligned(8), gnu::may_alias]] = int64_t;
    barrier();
    *reinterpret_cast<volatile Pair*>(&tbl->first) = Pair{first, count};
    barrier();
}

inline void publish_count(Tbl* tbl, int64_t count) {
    barrier();
    tbl->count = count;
    barrier();
}

// Ends the process when the list may not take in more items, or not have its items changed.
void require_extendable(const Tbl* tbl);
void require_changeable(const Tbl* tbl);

// True when the item in this slot counts as the null value.
bool holds_null(const Tbl* tbl, const char* slot);

// Fills the slots from `from` up to (not including) `to` with the null value.
void fill_null(Tbl* tbl, int64_t from, int64_t to);

// Stores an item in a slot; a null item of a direct list stands for the null value.
void store_item(Tbl* tbl, char* slot, const void* item);

// Item i as a terminated string: itself, or a copy in `copy` when its slot leaves no room for the
// terminator. Null for a null item.
const char* string_of(const Tbl* tbl, int64_t i, String* copy);

// Whether cattbl may append `from` to `to`; registers the reason when not.
bool can_be_joined(const Tbl* to, const Tbl* from);

// Makes a free slot before item 0: afterwards first is below 0.
void left_grow(Tbl* tbl);

// An item on its way into a list. When it lies in the list's own block, which is about to move, a
// copy is kept, so that pushtbl(tbl, shifttbl(tbl)) turns a direct list round.
class SafeItem {
  public:
    SafeItem(const Tbl* tbl, const void* item);
    SafeItem(const SafeItem&) = delete;
    SafeItem& operator=(const SafeItem&) = delete;
    const void* get() const { return item_; }

  private:
    const void* item_;
    char small_[64];
    malloced<char> large_;
};

}  // namespace morva::list
