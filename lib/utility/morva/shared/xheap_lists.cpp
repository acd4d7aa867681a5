// What is known of the entries of a heap: records, the sorted names, and the index beside them.
#include <algorithm>
#include <new>

#include "shared/xheap.hpp"

namespace morva::heap {

Entry* new_entry(char* at, int32_t size) {
    Entry* entry = must_alloc<Entry>(1, "entry", MORVA_HERE);
    entry->address = at;
    entry->size = size;
    return entry;
}

void make_lists(Xheap* heap) {
    heap->names = newarr(nullptr);
    heap->free_list = newtbl(0);
    heap->index = new (must_malloc(sizeof(Index), "x", MORVA_HERE)) Index;
}

void free_lists(Xheap* heap) {
    if (heap->names == nullptr) return;
    freetbl(heap->free_list, std::free);
    freearr(heap->names, std::free);
    auto* index = static_cast<Index*>(heap->index);
    index->~Index();
    std::free(index);
    heap->free_list = nullptr;
    heap->names = nullptr;
    heap->index = nullptr;
}

Entry* set_name(Xheap* heap, const String& name, Entry* entry) {
    auto* older = static_cast<Entry*>(setarr(heap->names, name.c_str(), entry));
    static_cast<Index*>(heap->index)
        ->put(name, older, entry, static_cast<int32_t>(entry->address - heap->address));
    return older;
}

Entry* take_name(Xheap* heap, const String& name) {
    auto* entry = static_cast<Entry*>(getarr(heap->names, name.c_str()));
    if (entry == nullptr) return nullptr;
    static_cast<Index*>(heap->index)->remove(name, entry);
    delarr(heap->names, name.c_str());
    return entry;
}

Vector<Entry*> by_address(const Xheap* heap) {
    Vector<Entry*> entries;
    entries.reserve(static_cast<std::size_t>(cntarr(heap->names)));
    applyarr(
        heap->names,
        [](char*, void* entry, void* to) {
            static_cast<Vector<Entry*>*>(to)->push_back(static_cast<Entry*>(entry));
            return 0;
        },
        &entries);
    std::sort(entries.begin(), entries.end(),
              [](const Entry* a, const Entry* b) { return a->address < b->address; });
    return entries;
}

}  // namespace morva::heap
