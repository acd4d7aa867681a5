// Sorting a list in place.
//
// The documented order is that of a shell sort, which decides among equal items by every one of its
// steps. Where no two items are equal there is but one order, and merging finds it with half as
// many questions to the program's comparison, which is what costs. So lists of words are merged
// first, in memory of their own; if then any two different items turn out equal, the result is
// thrown away and the shell sort is done.
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

// A merge sort whose steps are done without branches on what the comparison says, which nobody can
// predict. A comparison that contradicts itself gives some order of the same items.
template <class Word>
class Merger {
  public:
    explicit Merger(Comparison above) : above_(above) {}

    // Sorts n words into `items` or, if so told, into `spare`; the other one is left as rubbish.
    void sort(Word* items, Word* spare, int64_t n, bool into_spare) const {
        if (n <= 4) {
            sort_few(items, n);
            if (into_spare) std::memcpy(spare, items, n * sizeof(Word));
            return;
        }
        const int64_t half = n / 2;
        sort(items, spare, half, !into_spare);
        sort(items + half, spare + half, n - half, !into_spare);
        into_spare ? merge(items, half, n, spare) : merge(spare, half, n, items);
    }

  private:
    bool above(Word* a, Word* b) const { return above_(a, b); }

    void order(Word* a, Word* b) const {
        const int64_t swapped = -static_cast<int64_t>(above(a, b));
        const Word first = *a, second = *b;
        a[(b - a) & swapped] = first;
        b[(a - b) & swapped] = second;
    }

    void sort_few(Word* items, int64_t n) const {
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
    void merge(Word* from, int64_t half, int64_t n, Word* to) const {
        if (!above(from + half - 1, from + half)) {
            std::memcpy(to, from, n * sizeof(Word));
        } else if (!merge_from_both_ends(from, half, n, to)) {
            merge_carefully(from, half, n, to);
        }
    }

    // The smallest half and the largest half are found side by side, so that the processor has two
    // things to do while it waits. Neither can reach the end of a run before its last step. False
    // when they do not meet: the comparison has contradicted itself.
    bool merge_from_both_ends(Word* from, int64_t half, int64_t n, Word* to) const {
        Word* const mid = from + half;
        Word* const last = from + n - 1;
        Word* const to_last = to + n - 1;
        int64_t low = 0, high = 0;  // taken from the first run, at its start and at its end
        for (int64_t k = 0; k < half; ++k) {
            Word* left = from + low;
            Word* right = mid + (k - low);
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

    void merge_carefully(Word* from, int64_t half, int64_t n, Word* to) const {
        Word *left = from, *right = from + half;
        Word *const mid = right, *const end = from + n;
        while (left < mid && right < end) *to++ = above(left, right) ? *right++ : *left++;
        std::memcpy(to, left, (mid - left) * sizeof(Word));
        std::memcpy(to + (mid - left), right, (end - right) * sizeof(Word));
    }

    Comparison above_;
};

// True when items that the comparison finds equal can be told apart.
template <class Word>
bool has_ties(Word* sorted, int64_t count, Comparison above) {
    for (int64_t i = 1; i < count; ++i)
        if (sorted[i] != sorted[i - 1] && !above(sorted + i, sorted + i - 1)) return true;
    return false;
}

// Shorter lists gain nothing by merging.
constexpr int64_t kFew = 12;
// What the merges may take in memory, in bytes. Longer lists are sorted where they are.
constexpr std::size_t kMostWorkspace = std::size_t{1} << 28;

// False, with the list as it was, when that takes too much memory or there are ties.
template <class Word>
bool sort_by_merging(Word* slots, int64_t count, Comparison above) {
    if (count <= kFew) return false;
    const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(Word);
    if (bytes > kMostWorkspace / 2) return false;
    const malloced<Word> workspace(static_cast<Word*>(try_malloc(2 * bytes)));
    if (workspace == nullptr) return false;
    Word* const words = workspace.get();
    std::memcpy(words, slots, bytes);
    Merger<Word>(above).sort(words, words + count, count, false);
    if (has_ties(words, count, above)) return false;
    std::memcpy(slots, words, bytes);
    return true;
}

template <class Word>
void sort_words(Tbl* tbl, void* scratch, Comparison above) {
    auto* const slots = reinterpret_cast<Word*>(tbl->base);
    if (!sort_by_merging(slots, tbl->count, above))
        shell_sort(WordItems<Word>{slots, static_cast<Word*>(scratch)}, tbl->count, above);
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
        shell_sort(ByteItems{tbl->base, static_cast<char*>(scratch.get()), size}, tbl->count,
                   above);
    }
}
