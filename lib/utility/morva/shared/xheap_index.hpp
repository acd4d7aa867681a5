// Where the entries of a heap are by their names: a hash table beside the sorted array of names,
// which a random name is found in at a fifth of the cost.
//
// Open addressing with steps of one; a removed entry leaves no mark, those behind it move up. Names
// are compared where they are in the mapping, which another process may write to: what is replaced
// or removed is therefore known by its record, not by its name. The hash is seeded by an address,
// so that no file can be made whose names all meet in one slot.
//
// A slot also tells where its entry lies, or lay: its bytes and its record are then fetched from
// memory at the same time. Nothing but time depends on it.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "containers/text_key.hpp"
#include "morva/xheap.h"

namespace morva::heap {

class Index {
  public:
    // The entry of that name in the file that is mapped at `file`.
    Xheap_entry* find(std::string_view name, const char* file) const {
        const uint32_t hash = hash_of(name);
        for (std::size_t i = hash & mask_;; i = (i + 1) & mask_) {
            const Slot& slot = slots_[i];
            if (slot.entry == nullptr) return nullptr;
            if (slot.hash != hash) continue;
            __builtin_prefetch(file + slot.offset);
            __builtin_prefetch(file + slot.offset + kLine);
            __builtin_prefetch(file + slot.offset + 2 * kLine);
            if (has_name(slot.entry, name)) return slot.entry;
        }
    }

    // Enters an entry, in the place of an older one of that name if there is one.
    void put(std::string_view name, const Xheap_entry* older, Xheap_entry* entry, int32_t offset);

    void remove(std::string_view name, const Xheap_entry* entry);

    // All entries have been moved.
    void locate(const char* file);

  private:
    struct Slot {
        uint32_t hash;
        int32_t offset;
        Xheap_entry* entry;  // null: the slot is empty
    };

    static bool has_name(const Xheap_entry* entry, std::string_view name) {
        return static_cast<std::size_t>(entry->data - entry->name) > name.size() &&
               entry->name[name.size()] == '\0' &&
               std::memcmp(entry->name, name.data(), name.size()) == 0;
    }

    static uint64_t folded(uint64_t a, uint64_t b) {
        __extension__ using Product = unsigned __int128;
        const Product product = Product{a} * b;
        return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
    }

    uint32_t hash_of(std::string_view name) const {
        constexpr uint64_t kOdd = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
        const char* at = name.data();
        std::size_t left = name.size();
        uint64_t hash = seed_ ^ left;
        for (; left >= kWordBytes; at += kWordBytes, left -= kWordBytes)
            hash = folded(hash ^ load_big_endian<uint64_t>(at), kOdd);
        const uint64_t rest = left > 0 ? load_partial_word(at, left) : 0;
        return static_cast<uint32_t>(folded(hash ^ rest, kOdd));
    }

    std::size_t place_of(uint32_t hash, const Xheap_entry* entry) const;
    void grow();

    static constexpr std::size_t kFirst = 16;
    static constexpr std::size_t kLine = 64;
    Vector<Slot> slots_ = Vector<Slot>(kFirst);
    std::size_t mask_ = kFirst - 1;
    std::size_t count_ = 0;
    uint64_t seed_ = reinterpret_cast<uintptr_t>(slots_.data()) * 0xd1342543de82ef95;
};

}  // namespace morva::heap
