#include "morva/tbl.h"

#include <cstring>

#include "base/memory.hpp"

extern "C" {

Tbl* newtbl(long size) {
    return inittbl(10, size, 0, nullptr, 8);
}

Tbl* inittbl(long left_increment, long right_increment, int direct, const void* null_value,
             int itemsize) {
    Tbl* tbl = morva::must_alloc<Tbl>(1, "tbl", MORVA_HERE);
    tbl->fd = -1;
    tbl->direct = direct;
    tbl->itemsize = itemsize;
    tbl->left_increment = left_increment < 1 ? 10 : left_increment;
    tbl->right_increment = right_increment < 1 ? 10 : right_increment;
    if (null_value != nullptr) {
        tbl->null_value =
            static_cast<char*>(morva::must_malloc(itemsize, "null_value", MORVA_HERE));
        std::memcpy(tbl->null_value, null_value, itemsize);
    }
    return tbl;
}

long maxtbl(Tbl* tbl) {
    return tbl->count;
}

void* gettbl(Tbl* tbl, long i) {
    if (i < 0 || i >= tbl->count) return tbl->null_value;
    char* slot = tbl->base + i * tbl->itemsize;
    return tbl->direct ? slot : *reinterpret_cast<void**>(slot);
}

long pushtbl(Tbl* tbl, const void* item) {
    if (tbl->count == tbl->alloc_end) {
        tbl->base = static_cast<char*>(
            morva::must_realloc(tbl->base, (tbl->alloc_end + tbl->right_increment) * tbl->itemsize,
                                "prev", MORVA_HERE));
        tbl->alloc_end += tbl->right_increment;
        tbl->right_increment *= 2;
    }
    std::memcpy(tbl->base + tbl->count * tbl->itemsize, tbl->direct ? item : &item, tbl->itemsize);
    return tbl->count++;
}

void freetbl(Tbl* tbl, void (*free_function)(void*)) {
    if (tbl == nullptr) return;
    if (free_function != nullptr)
        for (long i = 0; i < tbl->count; ++i) free_function(gettbl(tbl, i));
    free(tbl->base);
    free(tbl->null_value);
    free(tbl);
}

}  // extern "C"
