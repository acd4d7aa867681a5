// Fortran twins of the arrays and cabinets.
#include "morva/arr.h"

#include "base/diagnostics.hpp"
#include "base/fortran.hpp"
#include "fortran/lists.hpp"
#include "morva/cabinets.h"
#include "morva/fortran.h"

using morva::fortran::Pointers;
using morva::fortran::Text;

namespace {

intptr_t word(const void* value) {
    return reinterpret_cast<intptr_t>(value);
}

const void* value_of(const intptr_t* variable) {
    return reinterpret_cast<const void*>(*variable);
}

void* same(void* value) {
    return value;
}

int compare_words(void* a, void* b, void*) {
    return (word(a) > word(b)) - (word(a) < word(b));
}

}  // namespace

extern "C" {

Arr* newarr_(Arr_compare compare) {
    return newarr(compare);
}

intptr_t setarr_(Arr* const* arr, const char* key, const intptr_t* value, size_t key_length) {
    return word(setarr(*arr, Text(key, key_length).c_str(), value_of(value)));
}

intptr_t getarr_(Arr* const* arr, const char* key, size_t key_length) {
    return word(getarr(*arr, Text(key, key_length).c_str()));
}

intptr_t delarr_(Arr* const* arr, const char* key, size_t key_length) {
    return word(delarr(*arr, Text(key, key_length).c_str()));
}

long cntarr_(Arr* const* arr) {
    return cntarr(*arr);
}

Tbl* keysarr_(Arr* const* arr) {
    return keysarr(*arr);
}

Tbl* valsarr_(Arr* const* arr) {
    return valsarr(*arr);
}

int applyarr_(Arr* const* arr, Fortran_apply_arr function, void* private_data) {
    return applyarr(*arr, function, private_data);
}

Arr* duparr_(Arr* const* arr, Fortran_dup dup_function) {
    return duparr(*arr, dup_function != nullptr ? dup_function : same);
}

int freearr_(Arr* const* arr, Fortran_free free_function) {
    return freearr(*arr, free_function);
}

Tbl* greparr_(const char* pattern, Arr* const* arr, size_t pattern_length) {
    return greparr(Text(pattern, pattern_length).c_str(), *arr);
}

Tbl* arrgrep_(Arr* const* arr, const char* string, size_t string_length) {
    return arrgrep(*arr, Text(string, string_length).c_str());
}

void diffarr_(Arr* const* a, Arr* const* b, Tbl_compare key_compare, Tbl_compare value_compare,
              void* private_data, Tbl* const* only_a, Tbl* const* only_b, Tbl* const* changed) {
    Pointers results[] = {Pointers(*only_a), Pointers(*only_b), Pointers(*changed)};
    diffarr(*a, *b, key_compare, value_compare != nullptr ? value_compare : compare_words,
            private_data, results[0].list(), results[1].list(), results[2].list());
    for (Pointers& result : results) result.store();
}

Arrcabinet* new_arrcabinet_(const int* size, Fortran_free free_function) {
    return new_arrcabinet(*size, free_function);
}

int set_arrcabinet_(Arrcabinet* const* cabinet, const char* key1, const char* key2,
                    const intptr_t* value, size_t key1_length, size_t key2_length) {
    return set_arrcabinet(*cabinet, Text(key1, key1_length).c_str(),
                          Text(key2, key2_length).c_str(), value_of(value));
}

Arr* get_arrcabinet_(Arrcabinet* const* cabinet, const char* key1, size_t key1_length) {
    return get_arrcabinet(*cabinet, Text(key1, key1_length).c_str());
}

Tbl* keys_arrcabinet_(Arrcabinet* const* cabinet) {
    return keys_arrcabinet(*cabinet);
}

void free_arrcabinet_(Arrcabinet* const* cabinet) {
    free_arrcabinet(*cabinet);
}

Tblcabinet* new_tblcabinet_(const int* size, Fortran_free free_function) {
    return new_tblcabinet(*size, free_function);
}

int push_tblcabinet_(Tblcabinet* const* cabinet, const char* key, const void* item,
                     size_t key_length) {
    const bool by_value = (*cabinet)->size > 0;
    return push_tblcabinet(*cabinet, Text(key, key_length).c_str(),
                           by_value ? item : *static_cast<void* const*>(item));
}

int strpush_tblcabinet_(Tblcabinet* const* cabinet, const char* key, const char* text,
                        size_t key_length, size_t text_length) {
    if ((*cabinet)->size >= 0) {
        elog_log(0, "tblcabinet of size %d doesn't copy strings.\n", (*cabinet)->size);
        return -1;
    }
    return push_tblcabinet(*cabinet, Text(key, key_length).c_str(),
                           Text(text, text_length).c_str());
}

Tbl* get_tblcabinet_(Tblcabinet* const* cabinet, const char* key, size_t key_length) {
    return get_tblcabinet(*cabinet, Text(key, key_length).c_str());
}

Tbl* keys_tblcabinet_(Tblcabinet* const* cabinet) {
    return keys_tblcabinet(*cabinet);
}

void free_tblcabinet_(Tblcabinet* const* cabinet) {
    free_tblcabinet(*cabinet);
}

}  // extern "C"
