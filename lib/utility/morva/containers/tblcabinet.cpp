#include <cstdlib>

#include "containers/redblack.hpp"
#include "morva/cabinets.h"

namespace {

// Lists of items by value when they have a size, else of pointers.
Tbl* new_inner_list(const Tblcabinet* cabinet) {
    return cabinet->size > 0 ? inittbl(0, 0, 1, nullptr, cabinet->size) : newtbl(0);
}

}  // namespace

extern "C" {

Tblcabinet* new_tblcabinet(int size, void (*free_function)(void*)) {
    auto* cabinet = morva::must_alloc<Tblcabinet>(1, "tblcabinet", MORVA_HERE);
    cabinet->arr = newarr(nullptr);
    cabinet->free_function = free_function;
    cabinet->size = size;
    return cabinet;
}

int push_tblcabinet(Tblcabinet* cabinet, const char* key, const void* item) {
    Tbl* inner = get_tblcabinet(cabinet, key);
    if (inner == nullptr) {
        inner = new_inner_list(cabinet);
        setarr(cabinet->arr, key, inner);
    }
    if (cabinet->size < 0)
        item = morva::must_strdup(static_cast<const char*>(item), "item", MORVA_HERE);
    pushtbl(inner, item);
    return 0;
}

Tbl* get_tblcabinet(Tblcabinet* cabinet, const char* key) {
    return static_cast<Tbl*>(getarr(cabinet->arr, key));
}

Tbl* keys_tblcabinet(Tblcabinet* cabinet) {
    return keysarr(cabinet->arr);
}

void free_tblcabinet(Tblcabinet* cabinet) {
    if (cabinet == nullptr) return;
    morva::for_each_pair(morva::tree_of(cabinet->arr), [&](void*, void* list) {
        freetbl(static_cast<Tbl*>(list), cabinet->size < 0 ? std::free : cabinet->free_function);
    });
    freearr(cabinet->arr, nullptr);
    std::free(cabinet);
}

}  // extern "C"
