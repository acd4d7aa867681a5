// Inline access to lists for the other families of the library: what maxtbl and gettbl do, without
// a call and without the range check. The fields are those of the public record; nothing here
// changes a list.
#pragma once

#include <span>

#include "morva/tbl.h"

namespace morva {

inline long tbl_count(const Tbl* tbl) {
    return tbl->count;
}

// The address of slot i. Any slot of the block may be asked for, spare ones too.
inline char* tbl_slot(const Tbl* tbl, long i) {
    return tbl->base + i * tbl->itemsize;
}

// Item i as gettbl gives it, for 0 <= i < tbl_count(tbl).
inline void* tbl_item(const Tbl* tbl, long i) {
    return tbl->direct ? tbl_slot(tbl, i) : reinterpret_cast<void**>(tbl->base)[i];
}

// The items of an indirect list. Valid until the list next changes.
template <class T = void>
std::span<T*> tbl_pointers(const Tbl* tbl) {
    return {reinterpret_cast<T**>(tbl->base), static_cast<std::size_t>(tbl->count)};
}

}  // namespace morva
