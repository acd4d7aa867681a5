// The space of a heap: entries taken from the free list, given back to it, and moved together.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "shared/xheap.hpp"

namespace {

using namespace morva::heap;

// ---- the free list

// The first place in the list whose address is not below.
long place_of(const Tbl* list, const char* address) {
    const auto entries = morva::tbl_pointers<Entry>(list);
    const auto found = std::lower_bound(
        entries.begin(), entries.end(), address,
        [](const Entry* entry, const char* sought) { return entry->address < sought; });
    return found - entries.begin();
}

bool are_neighbours(const Entry* first, const Entry* second) {
    return first->address + first->size == second->address;
}

// Two free neighbours become one; the second record goes.
void join(Entry* first, Entry* second) {
    first->size += second->size;
    store_free(first->address, first->size);
    zero(second->address, std::min(kHeaderSize, second->size));
    std::free(second);
}

Entry* free_entry(Tbl* list, long i) {
    return i >= 0 && i < morva::tbl_count(list) ? morva::tbl_pointers<Entry>(list)[i] : nullptr;
}

// The front of a free entry becomes one of its own, the rest keeps its place in the list.
Entry* split(Entry* entry, int32_t need) {
    const int32_t rest = entry->size - need;
    Entry* front = new_entry(entry->address, need);
    entry->address += need;
    entry->size = rest;
    store_free(entry->address, rest);
    entry->address[kHeaderSize] = '\0';
    store_word(front->address, need);
    return front;
}

// ---- moving together

void place_record(Entry* entry, char* to) {
    entry->name = to + (entry->name - entry->address);
    entry->data = to + (entry->data - entry->address);
    entry->address = to;
}

// A copy of an entry in a free one further on, for as long as the entry itself is in pieces: of two
// entries with one name the later counts.
class Refuge {
  public:
    Refuge(const Entry* free, const Entry* entry) {
        if (free == nullptr || free->address < entry->address) return;
        const int32_t rest = free->size - entry->size;
        if (rest != 0 && rest < kHeaderSize) return;
        free_ = free;
        std::memcpy(free->address + kHeaderSize, entry->address + kHeaderSize,
                    static_cast<std::size_t>(entry->size - kHeaderSize));
        if (rest > 0) store_free(free->address + entry->size, rest);
        store_header(free->address, load_header(entry->address));
    }
    ~Refuge() {
        if (free_ != nullptr) store_free(free_->address, free_->size);
    }
    Refuge(const Refuge&) = delete;
    Refuge& operator=(const Refuge&) = delete;

  private:
    const Entry* free_ = nullptr;
};

// Moves an entry down by `gap` bytes, all of which are free. At every instant the entry, a copy, or
// a free one in its stead is in the chain.
void slide(Entry* entry, int64_t gap, const Entry* refuge) {
    char* from = entry->address;
    char* to = from - gap;
    const Header header = load_header(from);
    const auto body = static_cast<std::size_t>(entry->size - kHeaderSize);
    const int64_t rest = gap - entry->size;
    if (rest == 0 || rest >= kHeaderSize) {
        // Both copies are in the chain for a while.
        store_free(to, gap);
        std::memcpy(to + kHeaderSize, from + kHeaderSize, body);
        if (rest > 0) store_free(to + entry->size, rest);
        store_header(to, header);
        store_free(to + entry->size, gap);
    } else {
        const Refuge copy(refuge, entry);
        store_free(to, gap + entry->size);
        std::memmove(to + kHeaderSize, from + kHeaderSize, body);
        store_free(to + entry->size, gap);
        store_header(to, header);
    }
    place_record(entry, to);
}

Entry* largest_free(const Xheap* heap) {
    const auto entries = morva::tbl_pointers<Entry>(heap->free_list);
    const auto largest =
        std::max_element(entries.begin(), entries.end(),
                         [](const Entry* a, const Entry* b) { return a->size < b->size; });
    return largest == entries.end() ? nullptr : *largest;
}

// Packs the named entries; returns where they end.
char* pack(Xheap* heap) {
    char* end = heap->address;
    const Entry* refuge = largest_free(heap);
    for (Entry* entry : by_address(heap)) {
        if (entry->address > end) slide(entry, entry->address - end, refuge);
        end += entry->size;
    }
    return end;
}

}  // namespace

namespace morva::heap {

void give_back(Xheap* heap, Entry* entry) {
    xdrop(heap, nullptr, entry);
    Tbl* list = heap->free_list;
    long i = place_of(list, entry->address);
    Entry* before = free_entry(list, i - 1);
    if (before != nullptr && are_neighbours(before, entry)) {
        join(before, entry);
        entry = before;
        --i;
    } else {
        instbl(list, i, entry);
    }
    Entry* behind = free_entry(list, i + 1);
    if (behind == nullptr || !are_neighbours(entry, behind)) return;
    deltbl(list, i + 1);
    join(entry, behind);
}

}  // namespace morva::heap

extern "C" {

Xheap_entry* unusedx(Xheap* heap, int need, int* total) {
    if (heap == nullptr) return nullptr;
    settle(heap);
    need = std::max(need, kHeaderSize);
    int64_t sum = 0;
    Entry* found = nullptr;
    const auto entries = morva::tbl_pointers<Entry>(heap->free_list);
    long i = 0;
    for (; i < morva::tbl_count(heap->free_list) && found == nullptr; ++i) {
        Entry* entry = entries[static_cast<std::size_t>(i)];
        sum += entry->size;
        if (entry->size >= need) found = entry;
    }
    if (total != nullptr) *total = static_cast<int>(sum);
    if (found == nullptr || !may_store(heap)) return nullptr;
    if (found->size > int64_t{need} + kHeaderSize) return split(found, need);
    deltbl(heap->free_list, i - 1);
    return found;
}

Xheap_entry* spacex(Xheap* heap, int need) {
    int total = 0;
    Entry* entry = unusedx(heap, need, &total);
    if (entry != nullptr) return entry;
    const int made = total <= 10 * int64_t{need} ? expandx(heap, need) : collapsex(heap);
    return made == 0 ? unusedx(heap, need, &total) : nullptr;
}

int collapsex(Xheap* heap) {
    if (!may_store(heap)) return -1;
    settle(heap);
    char* end = pack(heap);
    static_cast<Index*>(heap->index)->locate(heap->address);
    const auto rest = static_cast<int32_t>(heap->address + heap->length - end);
    clrtbl(heap->free_list, std::free);
    if (rest == 0) return 0;
    store_free(end, rest);
    zero(end + kHeaderSize, rest - kHeaderSize);
    pushtbl(heap->free_list, new_entry(end, rest));
    return 0;
}

}  // extern "C"
