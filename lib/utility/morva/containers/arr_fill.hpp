// Filling a new array with many entries at once: they are gathered in any order, sorted, and become
// a balanced tree without a descent for each.
#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/memory.hpp"
#include "containers/text_key.hpp"
#include "morva/arr.h"

namespace morva {

struct Tree;

// An entry to be. Its key may stand inside a longer text and holds no zero byte; `number` counts
// the entries in the order in which they were gathered.
struct ArrayEntry {
    std::uint64_t head, tail;  // the first bytes of the key, as TextKey has them
    const char* text;
    std::uint32_t length;
    std::uint32_t number;
    void* value;

    ArrayEntry(const TextKey& key, std::size_t number, void* value)
        : head(key.head),
          tail(key.tail),
          text(key.text),
          length(static_cast<std::uint32_t>(key.length)),
          number(static_cast<std::uint32_t>(number)),
          value(value) {}
    std::string_view key() const { return {text, length}; }
};

// The order of two keys: negative, zero or positive, as strcmp has it.
inline int compare_keys(const ArrayEntry& a, const ArrayEntry& b) {
    if (a.head != b.head) return a.head < b.head ? -1 : 1;
    if (a.tail != b.tail) return a.tail < b.tail ? -1 : 1;
    if (a.length <= kKeyPrefix && b.length <= kKeyPrefix) return 0;
    return a.key().compare(b.key());
}

// Entries by key, equal keys by number. What is returned is `entries` or lies in `room`.
std::span<ArrayEntry> sort_entries(std::span<ArrayEntry> entries, malloced<ArrayEntry>& room);

// Makes the entries those of an array that is empty and has the order of strcmp. Their keys ascend,
// none is there twice.
void fill_array(Arr* arr, std::span<const ArrayEntry> entries);

// A new array of such entries in memory of somebody else, and what it takes.
std::size_t filled_array_bytes(std::span<const ArrayEntry> entries);
Arr* place_filled_array(std::span<const ArrayEntry> entries, void* memory, std::size_t bytes,
                        void (*give_back)(Tree*));

}  // namespace morva
