// Entries found again behind a wrong size word.
//
// Along the chain every size leads to the header of the next entry. Where one does not, the bytes
// behind it are searched for an entry with a name and the right CRC, which is what makes an entry
// known by itself, and the chain is led there.
#include <algorithm>

#include "shared/xheap.hpp"

namespace {

using namespace morva::heap;

class Salvage {
  public:
    explicit Salvage(Xheap* heap) : heap_(heap), patience_(kPatience * heap->length) {}

    // The number of entries that were found from the first break of the chain on.
    long run() {
        for (int64_t offset = 0; offset < heap_->length;) {
            const Seen seen = look(heap_, offset);
            if (holds(seen)) {
                if (broken_ && is_whole(offset)) ++found_;
                last_ = offset;
                offset += seen.header.size;
            } else {
                broken_ = true;
                offset = mend(offset);
            }
        }
        return found_;
    }

  private:
    // So many times its length is looked through at most: bytes that were made up for it would take
    // for ever.
    static constexpr int64_t kPatience = 64;

    // The bytes of an entry with a name and the right CRC that is there, whatever its size says; 0
    // if there is none.
    int64_t whole_at(int64_t offset) {
        const int64_t left = heap_->length - offset;
        if (left <= kHeaderSize) return 0;
        Seen seen{heap_->address + offset, load_header(heap_->address + offset), false};
        seen.header.size = static_cast<int32_t>(left);
        if (seen.header.name_length < 2 || !seen.fits()) return 0;
        const auto length = static_cast<std::size_t>(seen.header.name_length);
        if (*seen.name() == '\0' || !seen.name_ends()) return 0;
        patience_ -= seen.need();
        if (patience_ < 0 || ::strnlen(seen.name(), length) != length - 1) return 0;
        return seen.is_right() ? seen.need() : 0;
    }

    bool is_whole(int64_t offset) { return whole_at(offset) > 0; }

    // Whether an entry can begin there.
    bool may_begin(int64_t offset) {
        if (offset == heap_->length) return true;
        const Seen seen = look(heap_, offset);
        if (!seen.broken && (!seen.is_named() || seen.fits())) return true;
        return is_whole(offset);
    }

    // Whether the size is right: it leads to an entry, and past none.
    bool holds(const Seen& seen) {
        if (seen.broken) return false;
        const int64_t offset = seen.at - heap_->address, end = offset + seen.header.size;
        const int64_t contents = seen.is_right() ? seen.need() : kHeaderSize;
        return may_begin(end) && next_whole(offset + contents, end) == end;
    }

    // The offset of the next whole entry before `end`, or that.
    int64_t next_whole(int64_t offset, int64_t end) {
        while (offset < end && patience_ >= 0 && !is_whole(offset)) ++offset;
        return patience_ >= 0 ? std::min(offset, end) : end;
    }

    // Makes the bytes a free entry, or part of the one before when they are too few.
    void cover(int64_t from, int64_t to) {
        if (to - from >= kHeaderSize || last_ < 0) {
            store_free(heap_->address + from, to - from);
            zero(heap_->address + from + kHeaderSize, to - from - kHeaderSize);
            if (to > from) last_ = from;
        } else if (to > from) {
            store_word(heap_->address + last_, static_cast<int32_t>(to - last_));
        }
    }

    // Leads the chain from an entry whose size is wrong to the next one, whose offset it returns.
    int64_t mend(int64_t offset) {
        const int64_t end = offset + whole_at(offset);
        if (end > offset) {
            store_word(heap_->address + offset, static_cast<int32_t>(end - offset));
            last_ = offset;
            ++found_;
        }
        const int64_t least = last_ < 0 ? kHeaderSize : offset + 1;
        const int64_t next = next_whole(std::max(end, least), heap_->length);
        cover(end, next);
        return next;
    }

    Xheap* heap_;
    int64_t patience_;
    int64_t last_ = -1;  // offset of the last entry of the chain
    long found_ = 0;
    bool broken_ = false;
};

}  // namespace

extern "C" {

long salvagex(Xheap* heap) {
    if (!may_store(heap)) return -1;
    const long found = Salvage(heap).run();
    assimilatex(heap);
    return found;
}

}  // extern "C"
