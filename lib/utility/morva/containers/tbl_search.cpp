// Finding the run of equal items in a sorted list.
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

// How far apart the slots are: known to the compiler for the common sizes, whose search is a chain
// of computations each of which waits for the one before.
template <int kSize>
struct Stride {
    explicit Stride(int) {}
    static constexpr int64_t bytes() { return kSize; }
};
template <>
struct Stride<0> {
    explicit Stride(int size) : size_(size) {}
    int64_t bytes() const { return size_; }

  private:
    int64_t size_;
};

struct Run {
    int64_t first;
    int64_t last;
};

// Lists up to this size, in bytes, are likely to be in the nearest cache.
constexpr int64_t kNear = 32768;

// Goes on in the upper or the lower half, without a branch.
inline void narrow(int order, int64_t mid, int64_t& lo, int64_t& hi) {
#ifdef __x86_64__
    __asm__("test %2, %2\n\tcmovg %3, %0\n\tcmovle %4, %1"
            : "+&r"(lo), "+&r"(hi)
            : "r"(order), "r"(mid + 1), "r"(mid - 1)
            : "cc");
#else
    const int64_t upper = -static_cast<int64_t>(order > 0);
    lo += (mid + 1 - lo) & upper;
    hi += (mid - 1 - hi) & ~upper;
#endif
}

// Binary search in a list, in the manner of the three searches of searchtbl.
template <class Slots>
class Search {
  public:
    Search(void* key, const Tbl* tbl, Tbl_compare compare, void* private_data)
        : key_(key),
          base_(tbl->base),
          stride_(tbl->itemsize),
          compare_(compare),
          private_(private_data) {}

    // Which half the key is in, nobody can predict. In a short list the next bounds are computed
    // without a branch. In a long one guessing is better, because it lets the load of the next
    // item begin early.
    Run find_run(int64_t count) const {
        int64_t lo = 0, hi = count - 1;
        const bool far = count > kNear / stride_.bytes();
        while (lo <= hi) {
            const int64_t mid = (lo + hi) >> 1;
            const int order = compare(mid);
            if (order == 0) [[unlikely]]
                return {first_equal(lo, mid), last_equal(mid, hi)};
            if (!far) {
                narrow(order, mid, lo, hi);
            } else if (order > 0) {
                lo = mid + 1;
                __asm__("" : "+r"(lo));  // keeps this a branch
            } else {
                hi = mid - 1;
            }
        }
        return {lo, lo - 1};
    }

  private:
    char* slot(int64_t i) const { return base_ + i * stride_.bytes(); }
    int compare(int64_t i) const { return compare_(key_, slot(i), private_); }

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

    void* key_;
    char* base_;
    [[no_unique_address]] Slots stride_;
    Tbl_compare compare_;
    void* private_;
};

Run find_run(void* key, const Tbl* tbl, Tbl_compare compare, void* private_data) {
    if (tbl == nullptr) return {0, -1};
    const auto find = [&](auto search) { return search.find_run(tbl->count); };
    if (tbl->itemsize == 8) return find(Search<Stride<8>>(key, tbl, compare, private_data));
    if (tbl->itemsize == 4) return find(Search<Stride<4>>(key, tbl, compare, private_data));
    return find(Search<Stride<0>>(key, tbl, compare, private_data));
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

long searchtbl(void* key, Tbl* tbl, Tbl_compare compare, void* private_data, long* first_index,
               long* last_index) {
    const Run run = find_run(key, tbl, compare, private_data);
    if (first_index != nullptr) *first_index = run.first;
    if (last_index != nullptr) *last_index = run.last;
    return run.last - run.first + 1;
}

}  // extern "C"
