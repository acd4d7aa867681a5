// Finding the run of equal items in a sorted list.
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

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

long searchtbl(void* key, Tbl* tbl, Tbl_compare compare, void* private_data, long* first_index,
               long* last_index) {
    const Run run = find_run(Search(key, tbl, compare, private_data), maxtbl(tbl));
    if (first_index != nullptr) *first_index = run.first;
    if (last_index != nullptr) *last_index = run.last;
    return run.last - run.first + 1;
}

}  // extern "C"
