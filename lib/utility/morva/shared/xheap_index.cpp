#include "shared/xheap_index.hpp"

namespace morva::heap {

// The slot of an entry with that hash, or the empty one where it belongs.
std::size_t Index::place_of(uint32_t hash, const Xheap_entry* entry) const {
    std::size_t i = hash & mask_;
    while (slots_[i].entry != nullptr && slots_[i].entry != entry) i = (i + 1) & mask_;
    return i;
}

// A third of the slots stays empty.
void Index::grow() {
    Vector<Slot> old(2 * slots_.size());
    old.swap(slots_);
    mask_ = slots_.size() - 1;
    for (const Slot& slot : old) {
        if (slot.entry == nullptr) continue;
        std::size_t i = slot.hash & mask_;
        while (slots_[i].entry != nullptr) i = (i + 1) & mask_;
        slots_[i] = slot;
    }
}

void Index::put(std::string_view name, const Xheap_entry* older, Xheap_entry* entry,
                int32_t offset) {
    if (3 * (count_ + 1) > 2 * slots_.size()) grow();
    const uint32_t hash = hash_of(name);
    Slot& slot = slots_[place_of(hash, older)];
    if (slot.entry == nullptr) ++count_;
    slot = {hash, offset, entry};
}

void Index::remove(std::string_view name, const Xheap_entry* entry) {
    std::size_t hole = place_of(hash_of(name), entry);
    if (slots_[hole].entry == nullptr) return;
    --count_;
    for (std::size_t i = (hole + 1) & mask_; slots_[i].entry != nullptr; i = (i + 1) & mask_) {
        // What is at home between the hole and here stays.
        const std::size_t home = slots_[i].hash & mask_;
        if (((i - home) & mask_) < ((i - hole) & mask_)) continue;
        slots_[hole] = slots_[i];
        hole = i;
    }
    slots_[hole].entry = nullptr;
}

void Index::locate(const char* file) {
    for (Slot& slot : slots_)
        if (slot.entry != nullptr) slot.offset = static_cast<int32_t>(slot.entry->address - file);
}

}  // namespace morva::heap
