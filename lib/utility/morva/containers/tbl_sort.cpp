// Sorting a list in place.
//
// The order in which a shell sort leaves equal items depends on every one of its steps, and callers
// rely on it. The order of all others does not depend on the way. So the comparison, which is the
// program's and slow, is asked as seldom as possible, by merging; and only if it finds items equal
// that can be told apart, the shell sort is done: on their ranks, which are numbers.
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

struct Comparison {
    Tbl_compare compare;
    void* private_data;
    // The only question that is ever asked: many comparisons are made of nothing but a `>`.
    bool operator()(void* a, void* b) const { return compare(a, b, private_data) > 0; }
};

// Items as the sort moves them: whole words where the size allows it.
template <class Word>
struct WordItems {
    Word* slots;
    Word* scratch;
    char* at(int64_t i) const { return reinterpret_cast<char*>(slots + i); }
    void save(int64_t i) const { *scratch = slots[i]; }
    void restore(int64_t i) const { slots[i] = *scratch; }
    void move(int64_t to, int64_t from) const { slots[to] = slots[from]; }
    char* saved() const { return reinterpret_cast<char*>(scratch); }
};

struct ByteItems {
    char* slots;
    char* scratch;
    std::size_t size;
    char* at(int64_t i) const { return slots + i * static_cast<int64_t>(size); }
    void save(int64_t i) const { std::memcpy(scratch, at(i), size); }
    void restore(int64_t i) const { std::memcpy(at(i), scratch, size); }
    void move(int64_t to, int64_t from) const { std::memcpy(at(to), at(from), size); }
    char* saved() const { return scratch; }
};

// Shell sort with the gaps 1, 4, 13, 40, ... of Knuth (The Art of Computer Programming 3, 5.2.1).
template <class Items, class Above>
void shell_sort(Items items, int64_t count, Above above) {
    int64_t gap = 1;
    while (gap < count) gap = 3 * gap + 1;
    while (gap > 1) {
        gap /= 3;
        for (int64_t i = gap; i < count; ++i) {
            items.save(i);
            int64_t j = i;
            for (; j >= gap && above(items.at(j - gap), items.saved()); j -= gap)
                items.move(j, j - gap);
            items.restore(j);
        }
    }
}

// ---- merging

// An item on its way through the merges, and where in the list it was: a copy of the item when it
// is a word, otherwise only its slot. The list itself is not touched until all is decided.
template <class Word>
struct Carried {
    Word item;
    Word place;
    static Carried of(const WordItems<Word>& items, int64_t i) {
        return {items.slots[i], static_cast<Word>(i)};
    }
    void* slot() { return &item; }
    uint64_t place_in(const WordItems<Word>&) const { return place; }
    bool same(const Carried& other, const WordItems<Word>&) const { return item == other.item; }
};

struct Referred {
    char* item;
    static Referred of(const ByteItems& items, int64_t i) { return {items.at(i)}; }
    void* slot() { return item; }
    uint64_t place_in(const ByteItems& items) const { return (item - items.slots) / items.size; }
    bool same(const Referred& other, const ByteItems& items) const {
        return std::memcmp(item, other.item, items.size) == 0;
    }
};

// A merge sort whose steps are done without branches on what the comparison says, which nobody can
// predict. A comparison that contradicts itself gives some order of the same items.
template <class Element>
class Merger {
  public:
    explicit Merger(Comparison above) : above_(above) {}

    // Sorts n elements into `items` or, if so told, into `spare`; the other one is left as rubbish.
    void sort(Element* items, Element* spare, int64_t n, bool into_spare) const {
        if (n <= 4) {
            sort_few(items, n);
            if (into_spare) std::memcpy(spare, items, n * sizeof(Element));
            return;
        }
        const int64_t half = n / 2;
        sort(items, spare, half, !into_spare);
        sort(items + half, spare + half, n - half, !into_spare);
        into_spare ? merge(items, half, n, spare) : merge(spare, half, n, items);
    }

  private:
    bool above(Element* a, Element* b) const { return above_(a->slot(), b->slot()); }

    void order(Element* a, Element* b) const {
        const int64_t swapped = -static_cast<int64_t>(above(a, b));
        const Element first = *a, second = *b;
        a[(b - a) & swapped] = first;
        b[(a - b) & swapped] = second;
    }

    void sort_few(Element* items, int64_t n) const {
        if (n == 4) {
            order(items, items + 1), order(items + 2, items + 3);
            order(items, items + 2), order(items + 1, items + 3);
            order(items + 1, items + 2);
        } else if (n > 1) {
            order(items, items + 1);
            if (n == 3) order(items + 1, items + 2), order(items, items + 1);
        }
    }

    // Merges the sorted runs from[0 .. half-1] and from[half .. n-1], the second of which is as
    // long as the first or longer by one.
    void merge(Element* from, int64_t half, int64_t n, Element* to) const {
        if (!above(from + half - 1, from + half)) {
            std::memcpy(to, from, n * sizeof(Element));
        } else if (!merge_from_both_ends(from, half, n, to)) {
            merge_carefully(from, half, n, to);
        }
    }

    // The smallest half and the largest half are found side by side, so that the processor has two
    // things to do while it waits. Neither can reach the end of a run before its last step. False
    // when they do not meet: the comparison has contradicted itself.
    bool merge_from_both_ends(Element* from, int64_t half, int64_t n, Element* to) const {
        Element* const mid = from + half;
        Element* const last = from + n - 1;
        Element* const to_last = to + n - 1;
        int64_t low = 0, high = 0;  // taken from the first run, at its start and at its end
        for (int64_t k = 0; k < half; ++k) {
            Element* left = from + low;
            Element* right = mid + (k - low);
            const int64_t later = above(left, right);
            to[k] = left[(right - left) & -later];
            low += 1 - later;
            left = mid - 1 - high;
            right = last - (k - high);
            const int64_t earlier = above(left, right);
            to_last[-k] = right[(left - right) & -earlier];
            high += earlier;
        }
        const int64_t left_over = half - low - high, right_over = (n - 2 * half) - left_over;
        if (left_over < 0 || right_over < 0) return false;
        if (left_over > 0) to[half] = from[low];
        if (right_over > 0) to[half] = mid[half - low];
        return true;
    }

    void merge_carefully(Element* from, int64_t half, int64_t n, Element* to) const {
        Element *left = from, *right = from + half;
        Element *const mid = right, *const end = from + n;
        while (left < mid && right < end) *to++ = above(left, right) ? *right++ : *left++;
        std::memcpy(to, left, (mid - left) * sizeof(Element));
        std::memcpy(to + (mid - left), right, (end - right) * sizeof(Element));
    }

    Comparison above_;
};

// ---- from the sorted elements back to the list

// Where the item for each slot is now, in the low half; in the high half its rank.
using Ranked = uint64_t;
constexpr int kRankShift = 32;
constexpr Ranked kPlace = (Ranked{1} << kRankShift) - 1;

// True when items that the comparison finds equal can be told apart.
template <class Element, class Items>
bool has_ties(const Items& items, Element* sorted, int64_t count, Comparison above) {
    for (int64_t i = 1; i < count; ++i)
        if (!above(sorted[i].slot(), sorted[i - 1].slot()) && !sorted[i].same(sorted[i - 1], items))
            return true;
    return false;
}

// Does the shell sort on the ranks of the items, which stand where the items were.
template <class Element, class Items>
void sort_ranks(const Items& items, Element* sorted, int64_t count, Comparison above,
                Ranked* ranked) {
    Ranked rank = 0;
    for (int64_t i = 0; i < count; ++i) {
        if (i > 0 && above(sorted[i].slot(), sorted[i - 1].slot())) ++rank;
        const uint64_t place = sorted[i].place_in(items);
        ranked[place] = rank << kRankShift | place;
    }
    Ranked scratch;
    shell_sort(WordItems<Ranked>{ranked, &scratch}, count, [](void* a, void* b) {
        return *static_cast<Ranked*>(a) >> kRankShift > *static_cast<Ranked*>(b) >> kRankShift;
    });
}

// Moves each item to its slot, along the cycles of the permutation.
void rearrange(const ByteItems& items, Ranked* ranked, int64_t count) {
    const auto place = [ranked](int64_t i) { return static_cast<int64_t>(ranked[i] & kPlace); };
    for (int64_t start = 0; start < count; ++start) {
        if (place(start) == start) continue;
        items.save(start);
        int64_t i = start;
        for (int64_t next = place(i); next != start; i = next, next = place(i)) {
            items.move(i, next);
            ranked[i] = i;
        }
        items.restore(i);
        ranked[i] = i;
    }
}

// Brings the items into the order of `sorted`.
template <class Word>
void put_back(const WordItems<Word>& items, const Carried<Word>* sorted, int64_t count, Ranked*) {
    for (int64_t i = 0; i < count; ++i) items.slots[i] = sorted[i].item;
}

void put_back(const ByteItems& items, const Referred* sorted, int64_t count, Ranked* ranked) {
    for (int64_t i = 0; i < count; ++i) ranked[i] = sorted[i].place_in(items);
    rearrange(items, ranked, count);
}

// Brings the items into the order of `ranked`; what is in `sorted` is not needed any more.
template <class Word>
void put_back_ranked(const WordItems<Word>& items, Carried<Word>* sorted, int64_t count,
                     const Ranked* ranked) {
    auto* copy = reinterpret_cast<Word*>(sorted);
    std::memcpy(copy, items.slots, count * sizeof(Word));
    for (int64_t i = 0; i < count; ++i) items.slots[i] = copy[ranked[i] & kPlace];
}

void put_back_ranked(const ByteItems& items, Referred*, int64_t count, Ranked* ranked) {
    rearrange(items, ranked, count);
}

// Shorter lists gain nothing by merging.
constexpr int64_t kFew = 12;
// What the merges may take in memory, in bytes. Longer lists are sorted where they are.
constexpr std::size_t kMostWorkspace = std::size_t{1} << 28;

// False, with nothing done, when there is no memory for it.
template <class Element, class Items>
bool sort_by_merging(const Items& items, int64_t count, Comparison above) {
    static_assert(sizeof(Element) >= sizeof(Ranked));
    if (static_cast<uint64_t>(count) > kMostWorkspace / (2 * sizeof(Element))) return false;
    const malloced<void> workspace(try_malloc(2 * count * sizeof(Element)));
    if (workspace == nullptr) return false;
    auto* elements = static_cast<Element*>(workspace.get());
    for (int64_t i = 0; i < count; ++i) elements[i] = Element::of(items, i);
    Merger<Element>(above).sort(elements, elements + count, count, false);
    auto* ranked = reinterpret_cast<Ranked*>(elements + count);
    if (has_ties(items, elements, count, above)) {
        sort_ranks(items, elements, count, above, ranked);
        put_back_ranked(items, elements, count, ranked);
    } else {
        put_back(items, elements, count, ranked);
    }
    return true;
}

template <class Items>
bool is_sorted(const Items& items, int64_t count, Comparison above) {
    int64_t i = 1;
    while (i < count && !above(items.at(i - 1), items.at(i))) ++i;
    return i >= count;
}

template <class Element, class Items>
void sort_items(const Items& items, int64_t count, Comparison above) {
    if (is_sorted(items, count, above)) return;
    if (count <= kFew || !sort_by_merging<Element>(items, count, above))
        shell_sort(items, count, above);
}

template <class Word>
void sort_words(Tbl* tbl, void* scratch, Comparison above) {
    const WordItems<Word> items{reinterpret_cast<Word*>(tbl->base), static_cast<Word*>(scratch)};
    sort_items<Carried<Word>>(items, tbl->count, above);
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" void sorttbl(Tbl* tbl, Tbl_compare compare, void* private_data) {
    if (maxtbl(tbl) < 2) return;
    require_changeable(tbl);
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    const malloced<void> scratch(must_malloc(size, "s", MORVA_HERE));
    const bool aligned = reinterpret_cast<std::uintptr_t>(tbl->base) % size == 0;
    const Comparison above{compare, private_data};
    if (size == sizeof(uint64_t) && aligned) {
        sort_words<uint64_t>(tbl, scratch.get(), above);
    } else if (size == sizeof(uint32_t) && aligned) {
        sort_words<uint32_t>(tbl, scratch.get(), above);
    } else {
        const ByteItems items{tbl->base, static_cast<char*>(scratch.get()), size};
        sort_items<Referred>(items, tbl->count, above);
    }
}
