// The entries of a heap file as all of the family sees them. The file may come from anywhere:
// lengths are 64 bits wide, and what is read is made to lie inside the mapping before it is used.
//
// A writer may be killed between any two stores. Headers are stored by one instruction where the
// processor has one of 16 bytes, and a store that changes what the chain of entries means comes
// behind those that prepare it.
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/fault_guard.hpp"
#include "base/memory.hpp"
#include "containers/arr.hpp"
#include "containers/tbl.hpp"
#include "morva/checksums.h"
#include "morva/xheap.h"
#include "shared/xheap_index.hpp"

namespace morva::heap {

using Entry = Xheap_entry;
using Header = Xheap_header;

constexpr int32_t kHeaderSize = 16;
static_assert(sizeof(Header) == kHeaderSize);
constexpr int kNameLength = 4;  // offset of that word in the header

// ---- words of the file

using Word [[gnu::aligned(1), gnu::may_alias]] = uint32_t;
using Words [[gnu::vector_size(16), gnu::aligned(1), gnu::may_alias]] = uint32_t;

constexpr uint32_t in_file_order(uint32_t word) {
    return std::endian::native == std::endian::big ? word : __builtin_bswap32(word);
}

inline Header load_header(const char* at) {
    Header header;
    std::memcpy(&header, at, sizeof header);
    header.size = static_cast<int32_t>(in_file_order(static_cast<uint32_t>(header.size)));
    header.name_length =
        static_cast<int32_t>(in_file_order(static_cast<uint32_t>(header.name_length)));
    header.data_length =
        static_cast<int32_t>(in_file_order(static_cast<uint32_t>(header.data_length)));
    header.crc = in_file_order(header.crc);
    return header;
}

// Everything stored before is in the file before this.
inline void store_header(char* at, const Header& header) {
    const Words words = {in_file_order(static_cast<uint32_t>(header.size)),
                         in_file_order(static_cast<uint32_t>(header.name_length)),
                         in_file_order(static_cast<uint32_t>(header.data_length)),
                         in_file_order(header.crc)};
    std::atomic_thread_fence(std::memory_order_release);
    *reinterpret_cast<volatile Words*>(at) = words;
    std::atomic_thread_fence(std::memory_order_release);
}

inline void store_word(char* at, int32_t word) {
    std::atomic_thread_fence(std::memory_order_release);
    *reinterpret_cast<volatile Word*>(at) = in_file_order(static_cast<uint32_t>(word));
    std::atomic_thread_fence(std::memory_order_release);
}

inline void zero(char* from, int64_t n) {
    if (n > 0) std::memset(from, 0, static_cast<std::size_t>(n));
}

// The header of a free entry; of one shorter than a header, what fits of it.
inline void store_free(char* at, int64_t size) {
    const auto word = static_cast<int32_t>(size);
    if (size >= kHeaderSize) return store_header(at, {word, 0, 0, 0});
    if (size >= 4) store_word(at, word);
    zero(size >= 4 ? at + 4 : at, size >= 4 ? size - 4 : size);
}

// ---- what the file says at a place

struct Seen {
    char* at;
    Header header;  // its size lies inside the file
    bool broken;    // the file stated another size

    bool is_named() const { return header.name_length != 0; }
    int64_t need() const {
        return int64_t{kHeaderSize} + header.name_length + int64_t{header.data_length};
    }
    // Whether name and data lie inside the entry.
    bool fits() const {
        return header.name_length > 0 && header.data_length >= 0 && need() <= header.size;
    }
    char* name() const { return at + kHeaderSize; }
    char* data() const { return name() + header.name_length; }
    // The name, of an entry that fits.
    std::string_view name_text() const {
        return {name(), ::strnlen(name(), static_cast<std::size_t>(header.name_length - 1))};
    }
    // Whether the name ends where it is said to, or before.
    bool name_ends() const { return data()[-1] == '\0'; }
    bool is_right() const;
};

// Of the name and the data, which stand one behind the other.
inline uint32_t crc_of(const char* bytes, int32_t n) {
    uint32_t crc = 0;
    return vk_crc32(&crc, bytes, n);
}

inline bool Seen::is_right() const {
    return fits() && name_ends() &&
           crc_of(name(), header.name_length + header.data_length) == header.crc;
}

// The last bytes of a file, too few for a header: its size word at most, or zeros.
inline bool is_tail(const char* at, int32_t left) {
    char tail[kHeaderSize] = {};
    const uint32_t word = in_file_order(static_cast<uint32_t>(left));
    if (left >= 4) std::memcpy(tail, &word, sizeof word);
    return std::memcmp(at, tail, static_cast<std::size_t>(left)) == 0;
}

// What stands at an offset, which lies inside the file.
inline Seen look(const Xheap* heap, int64_t offset) {
    char* at = heap->address + offset;
    const auto left = static_cast<int32_t>(heap->length - offset);
    if (left < kHeaderSize) return {at, {left, 0, 0, 0}, !is_tail(at, left)};
    Seen seen{at, load_header(at), false};
    seen.broken = seen.header.size < kHeaderSize || seen.header.size > left;
    if (seen.broken) seen.header.size = left;
    return seen;
}

template <class Take>
void for_each_seen(const Xheap* heap, Take take) {
    for (int64_t offset = 0; offset < heap->length;) {
        const Seen seen = look(heap, offset);
        take(seen);
        offset += seen.header.size;
    }
}

// ---- records and lists
//
// Another process may change the bytes of a name at any time. The lists keep names of their own,
// and get each from one copy: were they given different ones, a record could stay in one list when
// it leaves the other.

Entry* new_entry(char* at, int32_t size);

inline Entry* find(const Xheap* heap, std::string_view name) {
    return static_cast<const Index*>(heap->index)->find(name, heap->address);
}

// The entry of that name is this one from now on; returns the one it was before, or null.
Entry* set_name(Xheap* heap, const String& name, Entry* entry);

// Takes the name out of the lists; returns its entry, or null.
Entry* take_name(Xheap* heap, const String& name);

void make_lists(Xheap* heap);
void free_lists(Xheap* heap);

// Builds the lists unless that has been done.
inline void settle(Xheap* heap) {
    if (heap->names == nullptr) [[unlikely]]
        assimilatex(heap);
}

// The named entries in the order of their addresses.
Vector<Entry*> by_address(const Xheap* heap);

// Makes an entry that no name leads to any more a free one, joined with those beside it. The record
// belongs to the list afterwards.
void give_back(Xheap* heap, Entry* entry);

// Complains, once, of a file that was cut off.
void tell_of_cut(Xheap* heap);

inline bool is_cut(Xheap* heap) {
    auto* range = static_cast<GuardedRange*>(heap->guard);
    if (range == nullptr || !range->damaged()) [[likely]]
        return false;
    tell_of_cut(heap);
    return true;
}

// Whether something may be stored; otherwise the reason is registered.
bool may_store(Xheap* heap);

}  // namespace morva::heap
