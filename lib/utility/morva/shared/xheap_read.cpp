// The lists of a heap built from its file, which is repaired on the way.
#include <algorithm>
#include <cstdio>

#include "base/diagnostics.hpp"
#include "morva/files.h"
#include "shared/xheap.hpp"

namespace {

using namespace morva::heap;

constexpr int kShownName = 1024;  // of a name that may have no end
constexpr int kShownData = 64;
constexpr int32_t kFar = 4096;

// What of the name and the data lies inside the entry, or not far behind it inside the file,
// whatever their lengths say. Not far: their CRC must not take long when every entry lies.
struct Inside {
    int32_t name;
    const char* data;
    int32_t data_length;
};

Inside inside(const Xheap* heap, const Seen& seen) {
    const int64_t left = heap->address + heap->length - seen.name();
    const int64_t reach = std::min(left, int64_t{seen.header.size} - kHeaderSize + kFar);
    const auto room = static_cast<int32_t>(std::max<int64_t>(reach, 0));
    const int32_t name = std::clamp(seen.header.name_length, 0, room);
    return {name, seen.name() + name, std::clamp(seen.header.data_length, 0, room - name)};
}

// Shows the header as it is in the file, and the first data.
void dump(const Xheap* heap, const Seen& seen) {
    const Inside part = inside(heap, seen);
    hexdump(stderr, seen.at, kHeaderSize);
    hexdump(stderr, part.data, std::min(part.data_length, kShownData));
}

bool has_right_crc(const Xheap* heap, const Seen& seen) {
    const Inside part = inside(heap, seen);
    const uint32_t crc = crc_of(seen.name(), part.name + part.data_length);
    if (crc == seen.header.crc) return true;
    const auto shown = static_cast<int>(
        ::strnlen(seen.name(), static_cast<std::size_t>(std::min<int32_t>(part.name, kShownName))));
    elog_complain(0, "crc failed: '%.*s' %d bytes %x != %x\n", shown, seen.name(),
                  seen.header.data_length, crc, seen.header.crc);
    dump(heap, seen);
    return false;
}

// Whether a named entry can be used; otherwise that has been complained of.
bool is_sound(const Xheap* heap, const Seen& seen) {
    const bool sound = has_right_crc(heap, seen);
    if (!seen.fits()) {
        elog_complain(0, "corrupt block at %p: entry too small for data\n",
                      static_cast<void*>(seen.at));
    } else if (sound && !seen.name_ends()) {
        elog_complain(0, "corrupt block at %p: its name has no end\n", static_cast<void*>(seen.at));
    } else {
        return sound;
    }
    dump(heap, seen);
    return false;
}

// Readers may meet an entry that is being stored just now, and look at it again. That entries are
// damaged for good shall not take long to find out: large ones get fewer attempts, and so does one
// among many.
constexpr int kPatience = 1000;

bool is_settled(const Xheap* heap, Seen& seen, int& patience) {
    constexpr int kAttempts = 100;
    constexpr int32_t kBytes = 1 << 22;
    if (seen.is_right()) return true;
    int attempts = heap->readonly ? std::clamp(kBytes / seen.header.size, 2, kAttempts) : 0;
    for (; attempts > 0 && patience > 0; --attempts, --patience) {
        const Seen now = look(heap, seen.at - heap->address);
        if (now.broken || !now.is_named() || now.header.size != seen.header.size) break;
        seen = now;
        if (seen.is_right()) return true;
    }
    return is_sound(heap, seen);
}

// The rest of the file is one free entry.
void mend_size(Xheap* heap, const Seen& seen) {
    elog_log(0, "The entry at %ld of the heap '%s' has no size that fits: dropped up to the end\n",
             static_cast<long>(seen.at - heap->address), heap->path);
    if (heap->readonly) return;
    if (seen.header.size < kHeaderSize)
        store_free(seen.at, seen.header.size);
    else
        store_word(seen.at, seen.header.size);
}

bool has_traces(const Seen& seen) {
    return seen.header.data_length != 0 || seen.header.crc != 0 ||
           (seen.header.size > kHeaderSize && *seen.name() != '\0');
}

void take_free(Xheap* heap, Entry* entry) {
    pushtbl(heap->free_list, entry);
}

// A later entry of that name replaces an earlier one.
void take_named(Xheap* heap, Entry* entry, const Seen& seen) {
    Entry* earlier = set_name(heap, morva::String(seen.name_text()), entry);
    if (earlier == nullptr) return;
    xdrop(heap, nullptr, earlier);
    take_free(heap, earlier);
}

void take(Xheap* heap, Seen seen, int& patience) {
    Entry* entry = new_entry(seen.at, seen.header.size);
    const bool sound = !seen.broken && seen.is_named() && is_settled(heap, seen, patience);
    if (sound) {
        entry->name = seen.name();
        entry->data = seen.data();
        entry->data_length = seen.header.data_length;
        return take_named(heap, entry, seen);
    }
    if (seen.broken) mend_size(heap, seen);
    if (seen.broken || seen.is_named() || has_traces(seen)) xdrop(heap, nullptr, entry);
    take_free(heap, entry);
}

// Entries that were dropped late are behind others.
void sort_free(Xheap* heap) {
    const auto entries = morva::tbl_pointers<Entry>(heap->free_list);
    std::sort(entries.begin(), entries.end(),
              [](const Entry* a, const Entry* b) { return a->address < b->address; });
}

}  // namespace

extern "C" {

void xdrop(Xheap* heap, Xheap_header* header, Xheap_entry* record) {
    if (heap == nullptr || record == nullptr) return;
    char* at = record->address;
    if (!heap->readonly) {
        if (record->size >= 2 * kNameLength) store_word(at + kNameLength, 0);
        zero(at + kNameLength, record->size - kNameLength);
    }
    if (header != nullptr && reinterpret_cast<char*>(header) != at)
        header->name_length = header->data_length = 0, header->crc = 0;
    record->name = record->data = nullptr;
    record->data_length = 0;
}

int assimilatex(Xheap* heap) {
    if (heap == nullptr) elog_die(0, "heap pointer is null");
    free_lists(heap);
    make_lists(heap);
    int patience = kPatience;
    for_each_seen(heap, [&](const Seen& seen) { take(heap, seen, patience); });
    sort_free(heap);
    is_cut(heap);
    return 0;
}

void hdr2host(const void* bytes, Xheap_header* header) {
    *header = load_header(static_cast<const char*>(bytes));
}

void host2hdr(const Xheap_header* header, void* bytes) {
    store_header(static_cast<char*>(bytes), *header);
}

}  // extern "C"
