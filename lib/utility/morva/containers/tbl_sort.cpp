// Sorting a list in place, and finding the run of equal items in a sorted one.
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

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
// The order in which equal items end up depends on every step, and callers rely on it.
template <class Items>
void shell_sort(Items items, int64_t count, Tbl_compare compare, void* private_data) {
    int64_t gap = 1;
    while (gap < count) gap = 3 * gap + 1;
    while (gap > 1) {
        gap /= 3;
        for (int64_t i = gap; i < count; ++i) {
            items.save(i);
            int64_t j = i;
            for (; j >= gap && compare(items.at(j - gap), items.saved(), private_data) > 0;
                 j -= gap)
                items.move(j, j - gap);
            items.restore(j);
        }
    }
}

// Items in ranges longer than this are not likely to be in the nearest cache.
constexpr int64_t kFarApart = 1024;

// Binary search in a list, in the manner of the three searches of searchtbl.
class Search {
  public:
    Search(void* key, const Tbl* tbl, Tbl_compare compare, void* private_data)
        : key_(key), tbl_(tbl), compare_(compare), private_(private_data) {}

    int compare(int64_t i) const { return compare_(key_, tbl_slot(tbl_, i), private_); }

    // Starts to load both items that may be compared next.
    void fetch_halves(int64_t lo, int64_t mid, int64_t hi) const {
        __builtin_prefetch(tbl_slot(tbl_, (lo + mid) / 2));
        __builtin_prefetch(tbl_slot(tbl_, (mid + hi) / 2));
    }

    // The first item of lo .. hi that equals the key; `hi` is known to. Mostly it is alone, so its
    // neighbour is asked first.
    int64_t first_equal(int64_t lo, int64_t hi) const {
        if (lo < hi && compare(hi - 1) != 0) return hi;
        while (lo < hi) {
            const int64_t mid = lo + (hi - lo) / 2;
            if (compare(mid) == 0) {
                hi = mid;
            } else {
                lo = mid + 1;
            }
        }
        return hi;
    }

    // The last item of lo .. hi that equals the key; `lo` is known to.
    int64_t last_equal(int64_t lo, int64_t hi) const {
        if (lo < hi && compare(lo + 1) != 0) return lo;
        while (lo < hi) {
            const int64_t mid = lo + (hi - lo + 1) / 2;
            if (compare(mid) == 0) {
                lo = mid;
            } else {
                hi = mid - 1;
            }
        }
        return lo;
    }

  private:
    void* key_;
    const Tbl* tbl_;
    Tbl_compare compare_;
    void* private_;
};

struct Run {
    int64_t first;
    int64_t last;
};

// Which half the key is in, nobody can predict. Where items are close the next bounds are computed
// without a branch; where they are far apart a guess is better, because it lets the load of the
// next item begin early.
Run find_run(const Search& search, int64_t count) {
    int64_t lo = 0, hi = count - 1;
    while (lo <= hi) {
        const int64_t mid = lo + (hi - lo) / 2;
        const bool far = hi - lo > kFarApart;
        if (far) search.fetch_halves(lo, mid, hi);
        const int order = search.compare(mid);
        if (order == 0) return {search.first_equal(lo, mid), search.last_equal(mid, hi)};
        if (far) {
            order > 0 ? lo = mid + 1 : hi = mid - 1;
        } else {
            const int64_t upper = -static_cast<int64_t>(order > 0);
            lo += (mid + 1 - lo) & upper;
            hi += (mid - 1 - hi) & ~upper;
        }
    }
    return {lo, lo - 1};
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

void sorttbl(Tbl* tbl, Tbl_compare compare, void* private_data) {
    if (maxtbl(tbl) < 2) return;
    require_changeable(tbl);
    const auto size = static_cast<std::size_t>(tbl->itemsize);
    const malloced<void> scratch(must_malloc(size, "s", MORVA_HERE));
    const bool aligned = reinterpret_cast<std::uintptr_t>(tbl->base) % size == 0;
    if (size == sizeof(uint64_t) && aligned) {
        const WordItems<uint64_t> items{reinterpret_cast<uint64_t*>(tbl->base),
                                        static_cast<uint64_t*>(scratch.get())};
        shell_sort(items, tbl->count, compare, private_data);
    } else if (size == sizeof(uint32_t) && aligned) {
        const WordItems<uint32_t> items{reinterpret_cast<uint32_t*>(tbl->base),
                                        static_cast<uint32_t*>(scratch.get())};
        shell_sort(items, tbl->count, compare, private_data);
    } else {
        const ByteItems items{tbl->base, static_cast<char*>(scratch.get()), size};
        shell_sort(items, tbl->count, compare, private_data);
    }
}

long searchtbl(void* key, Tbl* tbl, Tbl_compare compare, void* private_data, long* first_index,
               long* last_index) {
    const Run run = find_run(Search(key, tbl, compare, private_data), maxtbl(tbl));
    if (first_index != nullptr) *first_index = run.first;
    if (last_index != nullptr) *last_index = run.last;
    return run.last - run.first + 1;
}

}  // extern "C"
