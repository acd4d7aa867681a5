#include <cstdlib>

#include "base/diagnostics.hpp"
#include "containers/redblack.hpp"
#include "morva/cabinets.h"

namespace {

void free_inner_array(const Arrcabinet* cabinet, char* key, Arr* arr) {
    void* const address = arr;
    elog_debug(0, "freeing arr %p for key %s", address, key);
    if (cabinet->size > 0) {
        elog_debug(0, "freeing arr %p using myfreearrentry", address);
    } else if (cabinet->size == 0) {
        elog_debug(0, "freeing arr %p using myfreearrentry #2", address);
    } else {
        elog_debug(0, "freeing arr %p using free", address);
    }
    freearr(arr, cabinet->size < 0 ? std::free : cabinet->free_function);
}

}  // namespace

extern "C" {

Arrcabinet* new_arrcabinet(int size, void (*free_function)(void*)) {
    auto* cabinet = morva::must_alloc<Arrcabinet>(1, "arrcabinet", MORVA_HERE);
    cabinet->arr = newarr(nullptr);
    cabinet->free_function = free_function;
    cabinet->size = size;
    elog_debug(0, "alist->size = %d", cabinet->size);
    return cabinet;
}

int set_arrcabinet(Arrcabinet* cabinet, const char* key1, const char* key2, const void* value) {
    Arr* inner = get_arrcabinet(cabinet, key1);
    if (inner == nullptr) {
        inner = newarr(nullptr);
        setarr(cabinet->arr, key1, inner);
    }
    void* previous = setarr(inner, key2, value);
    if (cabinet->free_function != nullptr) cabinet->free_function(previous);
    return 0;
}

Arr* get_arrcabinet(Arrcabinet* cabinet, const char* key1) {
    return static_cast<Arr*>(getarr(cabinet->arr, key1));
}

Tbl* keys_arrcabinet(Arrcabinet* cabinet) {
    return keysarr(cabinet->arr);
}

void free_arrcabinet(Arrcabinet* cabinet) {
    if (cabinet == nullptr) return;
    morva::for_each_pair(morva::tree_of(cabinet->arr), [&](void* key, void* arr) {
        free_inner_array(cabinet, static_cast<char*>(key), static_cast<Arr*>(arr));
    });
    elog_debug(0, "freeing alist->arr = %p", static_cast<void*>(cabinet->arr));
    freearr(cabinet->arr, nullptr);
    elog_debug(0, "freeing alist = %p", static_cast<void*>(cabinet));
    std::free(cabinet);
}

}  // extern "C"
