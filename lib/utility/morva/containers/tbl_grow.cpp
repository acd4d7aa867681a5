// How lists get room: at the end (right), at the front (left), by enlarging the block or by sliding
// the items within it.
//
//      block                base
//      | spare ... spare    | item 0 ... item count-1 | spare ... spare |
//      first (<= 0)         0                         count             alloc_end
//
// Either growth slides instead of enlarging when the other end has plenty of spare slots, so that a
// queue runs in a block of constant size.
#include <algorithm>
#include <cerrno>

#include "base/diagnostics.hpp"
#include "containers/tbl_internal.hpp"
#include "containers/tbl_map.hpp"

namespace morva::list {
namespace {

// Bytes of a block of so many slots. A size that no block can have ends the process here, before
// anything wraps around.
std::size_t block_bytes(const Tbl* tbl, int64_t slots, int64_t more, const char* what, Site site) {
    int64_t bytes = 0;
    if (__builtin_add_overflow(slots, more, &slots) ||
        __builtin_mul_overflow(slots, static_cast<int64_t>(tbl->itemsize), &bytes)) {
        errno = ENOMEM;
        out_of_memory(SIZE_MAX, what, site);
    }
    return static_cast<std::size_t>(bytes);
}

void allocate_block(Tbl* tbl, int64_t slots, Site site) {
    const std::size_t bytes = block_bytes(tbl, slots, 0, "tbl->base.cp", site);
    tbl->base = static_cast<char*>(must_calloc(1, bytes, "tbl->base.cp", site));
}

// Adds n slots at the end of the block. alloc_end is left to the caller.
void enlarge_block(Tbl* tbl, int64_t n, Site site) {
    if (in_file(tbl)) return extend_file(tbl, n);
    const std::size_t bytes = block_bytes(tbl, slots_of(tbl), n, "prev", site);
    char* block = static_cast<char*>(must_realloc(block_of(tbl), bytes, "prev", site));
    tbl->base = block - tbl->first * tbl->itemsize;
}

void slide_to_front(Tbl* tbl) {
    char* block = block_of(tbl);
    const int64_t slots = slots_of(tbl);
    std::memmove(block, tbl->base, tbl->count * tbl->itemsize);
    tbl->base = block;
    publish_window(tbl, 0, tbl->count);
    tbl->alloc_end = slots;
}

void slide_to_end(Tbl* tbl) {
    const int64_t spare = tbl->alloc_end - tbl->count;
    char* base = tbl_slot(tbl, spare);
    std::memmove(base, tbl->base, tbl->count * tbl->itemsize);
    tbl->alloc_end = tbl->count;
    tbl->base = base;
    publish_window(tbl, -spare, tbl->count);
}

void enlarge_at_front(Tbl* tbl, int64_t n, Site site) {
    enlarge_block(tbl, n, site);
    // Of the slots in front, those that the items do not leave behind: list files hold them all.
    if (n > tbl->alloc_end)
        std::memset(tbl_slot(tbl, tbl->alloc_end), 0, (n - tbl->alloc_end) * tbl->itemsize);
    char* base = tbl_slot(tbl, n);
    std::memmove(base, tbl->base, tbl->alloc_end * tbl->itemsize);
    tbl->base = base;
    publish_window(tbl, -n, tbl->count);
}

}  // namespace

void left_grow(Tbl* tbl) {
    const int64_t n = std::max<int64_t>(tbl->left_increment, 1);
    if (tbl->base == nullptr) {
        allocate_block(tbl, n, MORVA_HERE);
        tbl->base = tbl_slot(tbl, n);
        tbl->first = -n;
    } else if (tbl->alloc_end - tbl->count <= n / 2) {
        enlarge_at_front(tbl, n, MORVA_HERE);
    } else {
        return slide_to_end(tbl);
    }
    tbl->left_increment = saturating_double(n);
}

}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" void right_growtbl(Tbl* tbl, long need) {
    require_extendable(tbl);
    const int64_t n = std::max<int64_t>({tbl->right_increment, need, 1});
    int64_t end = 0;
    if (tbl->base == nullptr) {
        allocate_block(tbl, n, MORVA_HERE);
        end = n;
        tbl->right_increment = saturating_double(n);
    } else if (n / 2 >= -tbl->first) {
        enlarge_block(tbl, n, MORVA_HERE);
        end = tbl->alloc_end + n;
        tbl->right_increment = saturating_double(n);
    } else {
        // The room in front can still be less than what is asked for; the rest is added.
        const int64_t missing = need > -tbl->first ? need + tbl->first : 0;
        tbl->right_increment = n;
        slide_to_front(tbl);
        if (missing > 0) enlarge_block(tbl, missing, MORVA_HERE);
        end = tbl->alloc_end + missing;
    }
    fill_null(tbl, tbl->count, end);
    barrier();
    tbl->alloc_end = end;
}
