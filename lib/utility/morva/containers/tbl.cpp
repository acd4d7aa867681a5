// Tbl, the growable list: making and freeing lists, single items, and the operations on whole lists
// that need nothing but the items.
//
// Invariants: first <= 0 <= count <= alloc_end; the block holds the slots first .. alloc_end - 1;
// base is the slot of item 0. Lists have no lock: users of one list take turns.
// The functions themselves are compiled here, not the short paths of them.
#define MORVA_NO_INLINE
#include "morva/tbl.h"

#include <algorithm>
#include <cstdarg>

#include "base/diagnostics.hpp"
#include "containers/tbl_internal.hpp"
#include "containers/tbl_map.hpp"

namespace morva::list {

void require_extendable(const Tbl* tbl) {
    if (read_only(tbl)) elog_die(0, "*stack* Can't extend read-only list.\n");
}

void require_changeable(const Tbl* tbl) {
    if (read_only(tbl)) elog_die(0, "*stack* Can't change read-only list.\n");
}

bool holds_null(const Tbl* tbl, const char* slot) {
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    if (!tbl->direct && *reinterpret_cast<char* const*>(slot) == tbl->null_value) return true;
    if (tbl->null_value != nullptr) return std::memcmp(slot, tbl->null_value, size) == 0;
    if (!tbl->direct) return false;
    return std::all_of(slot, slot + size, [](char byte) { return byte == 0; });
}

void fill_null(Tbl* tbl, int64_t from, int64_t to) {
    if (from >= to) return;
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    const std::size_t bytes = static_cast<std::size_t>(to - from) * size;
    char* slots = tbl_slot(tbl, from);
    if (tbl->null_value == nullptr) {
        std::memset(slots, 0, bytes);
        return;
    }
    std::memcpy(slots, tbl->null_value, size);
    for (std::size_t filled = size; filled < bytes; filled *= 2)
        std::memcpy(slots + filled, slots, std::min(filled, bytes - filled));
}

void store_item(Tbl* tbl, char* slot, const void* item) {
    if (!tbl->direct) {
        *reinterpret_cast<const void**>(slot) = item;
        return;
    }
    if (item == nullptr) item = tbl->null_value;
    if (item == nullptr) {
        std::memset(slot, 0, tbl->itemsize);
    } else {
        std::memmove(slot, item, tbl->itemsize);
    }
}

namespace {

bool same_null_values(const Tbl* a, const Tbl* b) {
    if (a->null_value == nullptr || b->null_value == nullptr) return a->null_value == b->null_value;
    return std::memcmp(a->null_value, b->null_value, a->itemsize) == 0;
}

}  // namespace

bool can_be_joined(const Tbl* to, const Tbl* from) {
    if (to->itemsize != from->itemsize) {
        elog_log(0, "tbl lists have different entry sizes: %d %d\n", to->itemsize, from->itemsize);
    } else if ((to->direct != 0) != (from->direct != 0)) {
        elog_log(0, "tbl lists are not both direct or indirect.\n");
    } else if (!same_null_values(to, from)) {
        elog_log(0, "tbl lists have different null values.\n");
    } else {
        return true;
    }
    return false;
}

SafeItem::SafeItem(const Tbl* tbl, const void* item) : item_(item) {
    const auto address = reinterpret_cast<std::uintptr_t>(item);
    const auto block = reinterpret_cast<std::uintptr_t>(block_of(tbl));
    if (!tbl->direct || address - block >= static_cast<std::size_t>(slots_of(tbl)) * tbl->itemsize)
        return;
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    if (size > sizeof small_)
        large_.reset(static_cast<char*>(must_malloc(size, "item", MORVA_HERE)));
    item_ = std::memcpy(large_ ? large_.get() : small_, item, size);
}

namespace {

void* item_in(const Tbl* tbl, char* slot) {
    return tbl->direct ? slot : *reinterpret_cast<void**>(slot);
}

// Stores an item at i, at or behind the end too. Kept apart so that storing a pointer in a slot
// that exists stays short.
[[gnu::noinline]] void store_anywhere(Tbl* tbl, long i, const void* item) {
    i < tbl->count ? require_changeable(tbl) : require_extendable(tbl);
    if (i < tbl->alloc_end) {
        store_item(tbl, tbl_slot(tbl, i), item);
    } else {
        const SafeItem kept(tbl, item);
        right_growtbl(tbl, i == INT64_MAX ? i : i + 1 - tbl->alloc_end);
        store_item(tbl, tbl_slot(tbl, i), kept.get());
    }
    if (i >= tbl->count) publish_count(tbl, i + 1);
}

inline long set_item(Tbl* tbl, long i, const void* item) {
    if (tbl->direct || i >= tbl->alloc_end) {
        store_anywhere(tbl, i, item);
    } else {
        reinterpret_cast<const void**>(tbl->base)[i] = item;
        if (i >= tbl->count) tbl->count = i + 1;
    }
    return i;
}

// The first increment for a size hint. Callers that declare the hint an int leave its upper half
// zero: what is negative in the lower half counts as below 1 as well.
int64_t first_increment(long hint) {
    const bool negative = hint == static_cast<uint32_t>(hint) && static_cast<int32_t>(hint) < 0;
    return hint < 1 || negative ? kDefaultIncrement : hint;
}

void free_items(Tbl* tbl, int64_t from, void (*free_function)(void*), bool reset) {
    for (int64_t i = from; i < tbl->count; ++i) {
        char* slot = tbl_slot(tbl, i);
        if (!holds_null(tbl, slot)) free_function(item_in(tbl, slot));
        if (reset) store_item(tbl, slot, nullptr);
    }
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

Tbl* newtbl(long size) {
    return inittbl(kDefaultIncrement, size, 0, nullptr, kPointerSize);
}

Tbl* inittbl(long left_increment, long right_increment, int direct, const void* null_value,
             int itemsize) {
    if (direct && itemsize < 1) {
        elog_log(0, "inittbl called with item size %d\n", itemsize);
        return nullptr;
    }
    Tbl* tbl = must_alloc<Tbl>(1, "tbl", MORVA_HERE);
    tbl->fd = -1;
    tbl->direct = direct;
    tbl->itemsize = direct ? itemsize : kPointerSize;
    tbl->left_increment = first_increment(left_increment);
    tbl->right_increment = first_increment(right_increment);
    if (null_value != nullptr) {
        void* copy = must_malloc(tbl->itemsize, "null_value", MORVA_HERE);
        tbl->null_value = static_cast<char*>(std::memcpy(copy, null_value, tbl->itemsize));
    }
    return tbl;
}

Tbl* strtbl(const char* first, ...) {
    Tbl* tbl = newtbl(0);
    pushtbl(tbl, const_cast<char*>(first));
    va_list arguments;
    va_start(arguments, first);
    while (char* next = va_arg(arguments, char*)) pushtbl(tbl, next);
    va_end(arguments);
    return tbl;
}

void freetbl(Tbl* tbl, void (*free_function)(void*)) {
    if (tbl == nullptr) return;
    if (tbl->itemsize == 0) return release_cut_file(tbl);
    if (free_function != nullptr) free_items(tbl, 0, free_function, false);
    std::free(deleted_buffer(tbl));
    if (in_file(tbl)) return release_file(tbl);
    std::free(block_of(tbl));
    std::free(tbl->null_value);
    std::free(tbl);
}

Tbl* duptbl(Tbl* tbl, void* (*dup_function)(void*)) {
    if (tbl == nullptr) return nullptr;
    Tbl* copy = inittbl(tbl->left_increment, tbl->right_increment, tbl->direct, tbl->null_value,
                        tbl->itemsize);
    cattbl(copy, tbl);
    if (dup_function == nullptr) return copy;
    for (int64_t i = 0; i < copy->count; ++i) {
        char* slot = tbl_slot(copy, i);
        if (holds_null(copy, slot)) continue;
        void* made = dup_function(item_in(copy, slot));
        if (!copy->direct) store_item(copy, slot, made);
    }
    return copy;
}

long maxtbl(Tbl* tbl) {
    return tbl != nullptr ? tbl->count : 0;
}

void* gettbl(Tbl* tbl, long i) {
    if (tbl == nullptr) return nullptr;
    if (i < 0 || i >= tbl->count) return tbl->null_value;
    return tbl_item(tbl, i);
}

void* addrtbl(Tbl* tbl, long i) {
    if (tbl == nullptr || i < 0 || i >= tbl->count) return nullptr;
    return tbl_slot(tbl, i);
}

long settbl(Tbl* tbl, long i, const void* item) {
    return set_item(tbl, i < 0 ? tbl->count : i, item);
}

long pushtbl(Tbl* tbl, const void* item) {
    return set_item(tbl, tbl->count, item);
}

void* poptbl(Tbl* tbl) {
    if (tbl == nullptr) return nullptr;
    if (tbl->count == 0) return tbl->null_value;
    tbl->count -= 1;
    return tbl_item(tbl, tbl->count);
}

void* shifttbl(Tbl* tbl) {
    if (tbl == nullptr) return nullptr;
    if (tbl->count == 0) return tbl->null_value;
    char* slot = tbl->base;
    tbl->base = slot + tbl->itemsize;
    tbl->alloc_end -= 1;
    publish_window(tbl, tbl->first - 1, tbl->count - 1);
    return item_in(tbl, slot);
}

long unshifttbl(Tbl* tbl, const void* item) {
    require_extendable(tbl);
    const SafeItem kept(tbl, item);
    if (tbl->first == 0) left_grow(tbl);
    char* slot = tbl_slot(tbl, -1);
    store_item(tbl, slot, kept.get());
    tbl->base = slot;
    publish_window(tbl, tbl->first + 1, tbl->count + 1);
    tbl->alloc_end += 1;
    return 0;
}

long instbl(Tbl* tbl, long i, const void* item) {
    if (i < 0) return unshifttbl(tbl, item);
    if (i >= tbl->count) return pushtbl(tbl, item);
    require_extendable(tbl);
    const SafeItem kept(tbl, item);
    if (tbl->count >= tbl->alloc_end) right_growtbl(tbl, 1);
    char* slot = tbl_slot(tbl, i);
    std::memmove(slot + tbl->itemsize, slot, (tbl->count - i) * tbl->itemsize);
    store_item(tbl, slot, kept.get());
    publish_count(tbl, tbl->count + 1);
    return i;
}

void* deltbl(Tbl* tbl, long i) {
    if (tbl == nullptr) return nullptr;
    if (i < 0 || i >= tbl->count) return tbl->null_value;
    require_changeable(tbl);
    char* slot = tbl_slot(tbl, i);
    void* removed = item_in(tbl, slot);
    if (tbl->direct) {
        char*& buffer = deleted_buffer(tbl);
        if (buffer == nullptr)
            buffer = static_cast<char*>(must_malloc(tbl->itemsize, "tbl->deleted", MORVA_HERE));
        removed = std::memcpy(buffer, slot, tbl->itemsize);
        tbl->deleted = buffer;
    }
    std::memmove(slot, slot + tbl->itemsize, (tbl->count - i - 1) * tbl->itemsize);
    publish_count(tbl, tbl->count - 1);
    fill_null(tbl, tbl->count, tbl->count + 1);
    return removed;
}

void trunctbl(Tbl* tbl, long n, void (*free_function)(void*)) {
    if (tbl == nullptr) return;
    n = std::clamp<int64_t>(n, 0, tbl->count);
    const bool reset = tbl->direct && !read_only(tbl);
    if (free_function != nullptr) free_items(tbl, n, free_function, reset);
    publish_count(tbl, n);
}

void clrtbl(Tbl* tbl, void (*free_function)(void*)) {
    trunctbl(tbl, 0, free_function);
}

int applytbl(Tbl* tbl, int (*function)(void* item, void* private_data), void* private_data) {
    unsigned sum = 0;
    for (long i = 0; i < maxtbl(tbl); ++i) {
        void* item = tbl_item(tbl, i);
        if (item != nullptr) sum += static_cast<unsigned>(function(item, private_data));
    }
    return static_cast<int>(sum);
}

int cattbl(Tbl* to, Tbl* from) {
    if (!can_be_joined(to, from)) return 1;
    const int64_t added = from->count;
    if (added > 0) require_extendable(to);
    to->left_increment = std::max(to->left_increment, from->left_increment);
    to->right_increment = std::max(to->right_increment, from->right_increment);
    if (to->alloc_end - to->count < added) right_growtbl(to, added);
    if (added > 0) std::memcpy(tbl_slot(to, to->count), from->base, added * to->itemsize);
    publish_count(to, to->count + added);
    return 0;
}

int cmptbl(Tbl* a, Tbl* b) {
    if (a->count != b->count || a->itemsize != b->itemsize) return 1;
    return a->count > 0 ? std::memcmp(a->base, b->base, a->count * a->itemsize) : 0;
}

}  // extern "C"
