// Fortran twins of the lists.
#include "morva/tbl.h"

#include <cstdlib>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/fortran.hpp"
#include "fortran/lists.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::must_strdup;
using namespace morva::fortran;

extern "C" {

// A hint never needs more than four bytes, and a default integer has no more.
Tbl* newtbl_(const long* size) {
    int32_t hint;
    std::memcpy(&hint, size, sizeof hint);
    return inittbl(0, hint, 1, nullptr, sizeof(void*));
}

Tbl* inittbl_(const long* left_increment, const long* right_increment, const int* direct,
              const void* null_value, const int* itemsize) {
    return inittbl(*left_increment, *right_increment, *direct, null_value, *itemsize);
}

Tbl* strtbl_(const char* strings, const long* count, size_t strings_length) {
    Tbl* tbl = newtbl_(count);
    for (long i = 0; i < *count; ++i) {
        strsettbl_(&tbl, &i, strings + static_cast<size_t>(i) * strings_length, strings_length);
    }
    return tbl;
}

void freetbl_(Tbl* const* tbl, Fortran_free free_function) {
    freetbl(*tbl, free_function);
}

void strfreetbl_(Tbl* const* tbl) {
    if (*tbl == nullptr) return;
    for (long i = 0; i < maxtbl(*tbl); ++i) std::free(pointer_at(*tbl, i));
    freetbl(*tbl, nullptr);
}

Tbl* duptbl_(Tbl* const* tbl, Fortran_dup dup_function) {
    return duptbl(*tbl, dup_function);
}

long maxtbl_(Tbl* const* tbl) {
    return maxtbl(*tbl);
}

void* gettbl_(Tbl* const* tbl, const long* i) {
    return gettbl(*tbl, *i);
}

void* addrtbl_(Tbl* const* tbl, const long* i) {
    return addrtbl(*tbl, *i);
}

int itemgettbl_(Tbl* const* tbl, const long* i, void* item) {
    const void* slot = addrtbl(*tbl, *i);
    const void* source = slot != nullptr ? slot : (*tbl)->null_value;
    const auto size = static_cast<size_t>((*tbl)->itemsize);
    source != nullptr ? std::memcpy(item, source, size) : std::memset(item, 0, size);
    return slot != nullptr ? 0 : -1;
}

long strgettbl_(Tbl* const* tbl, const long* i, char* text, size_t text_length) {
    const char* string = addrtbl(*tbl, *i) != nullptr ? pointer_at(*tbl, *i) : nullptr;
    return give(text, text_length, string);
}

long strsettbl_(Tbl* const* tbl, const long* i, const char* text, size_t text_length) {
    if ((*tbl)->direct != 0 && !holds_words(*tbl)) {
        elog_log(0, "tbl of %d-byte items can't hold strings.\n", (*tbl)->itemsize);
        return -1;
    }
    const char* copy = must_strdup(Text(text, text_length).c_str(), "new", MORVA_HERE);
    return settbl(*tbl, *i, item_of(*tbl, &copy));
}

long settbl_(Tbl* const* tbl, const long* i, const void* item) {
    return settbl(*tbl, *i, item_of(*tbl, item));
}

long pushtbl_(Tbl* const* tbl, const void* item) {
    return pushtbl(*tbl, item_of(*tbl, item));
}

void* poptbl_(Tbl* const* tbl) {
    return poptbl(*tbl);
}

void* shifttbl_(Tbl* const* tbl) {
    return shifttbl(*tbl);
}

long unshifttbl_(Tbl* const* tbl, const void* item) {
    return unshifttbl(*tbl, item_of(*tbl, item));
}

long instbl_(Tbl* const* tbl, const long* i, const void* item) {
    return instbl(*tbl, *i, item_of(*tbl, item));
}

void* deltbl_(Tbl* const* tbl, const long* i) {
    return deltbl(*tbl, *i);
}

void trunctbl_(Tbl* const* tbl, const long* n, Fortran_free free_function) {
    trunctbl(*tbl, *n, free_function);
}

void clrtbl_(Tbl* const* tbl, Fortran_free free_function) {
    clrtbl(*tbl, free_function);
}

void right_growtbl_(Tbl* const* tbl, const long* need) {
    right_growtbl(*tbl, *need);
}

int applytbl_(Tbl* const* tbl, Fortran_apply function, void* private_data) {
    return applytbl(*tbl, function, private_data);
}

int cattbl_(Tbl* const* to, Tbl* const* from) {
    return cattbl(*to, *from);
}

int cmptbl_(Tbl* const* a, Tbl* const* b) {
    return cmptbl(*a, *b);
}

void sorttbl_(Tbl* const* tbl, Tbl_compare compare, void* private_data) {
    sorttbl(*tbl, compare, private_data);
}

long searchtbl_(void* key, Tbl* const* tbl, Tbl_compare compare, void* private_data,
                long* first_index, long* last_index) {
    return searchtbl(key, *tbl, compare, private_data, first_index, last_index);
}

long jointbl_(Tbl* const* tbl, const char* separator, char* text, size_t separator_length,
              size_t text_length) {
    const malloced<char> joined(
        jointbl(Pointers(*tbl).list(), Text(separator, separator_length).c_str()));
    return give(text, text_length, joined.get());
}

Tbl* greptbl_(const char* pattern, Tbl* const* tbl, size_t pattern_length) {
    return greptbl(Text(pattern, pattern_length).c_str(), Pointers(*tbl).list());
}

Tbl* tblgrep_(Tbl* const* tbl, const char* string, size_t string_length) {
    return tblgrep(Pointers(*tbl).list(), Text(string, string_length).c_str());
}

int dumptbl_(const char* title, Tbl* const* tbl, Fortran_print print_function,
             size_t title_length) {
    const Text heading(title, title_length);
    if (print_function != nullptr) return dumptbl(heading.c_str(), *tbl, print_function);
    return dumptbl(heading.c_str(), Pointers(*tbl).list(), nullptr);
}

Arr* arrtbl_(Tbl* const* tbl) {
    return arrtbl(Pointers(*tbl).list());
}

Tbl* commtbl_(Tbl* const* a, Tbl* const* b, const int* type) {
    return commtbl(Pointers(*a).list(), Pointers(*b).list(), *type);
}

void difftbl_(Tbl* const* a, Tbl* const* b, Tbl_compare compare, void* private_data,
              Tbl* const* only_a, Tbl* const* only_b, Tbl* const* both) {
    Pointers results[] = {Pointers(*only_a), Pointers(*only_b), Pointers(*both)};
    difftbl(Pointers(*a).list(), Pointers(*b).list(), compare, private_data, results[0].list(),
            results[1].list(), results[2].list());
    for (Pointers& result : results) result.store();
}

int writetbl_(Tbl* const* tbl, FILE* const* stream, const char* label, size_t label_length) {
    return writetbl(*tbl, *stream, Text(label, label_length).or_null());
}

int savetbl_(Tbl* const* tbl, const char* path, const char* label, size_t path_length,
             size_t label_length) {
    return savetbl(*tbl, Text(path, path_length).c_str(), Text(label, label_length).or_null());
}

Tbl* readtbl_(const char* path, char* label, const int* writable, size_t path_length,
              size_t label_length) {
    char* found = nullptr;
    Tbl* tbl = readtbl(Text(path, path_length).c_str(), &found, *writable);
    give(label, label_length, tbl != nullptr ? found : nullptr);
    return tbl;
}

int filetbl_(const char* path, const char* label, const long* size, const void* null_value,
             const int* itemsize, Tbl** tbl, size_t path_length, size_t label_length) {
    return filetbl(Text(path, path_length).c_str(), Text(label, label_length).or_null(), *size,
                   null_value, *itemsize, tbl);
}

int verifytbl_(Tbl* const* tbl) {
    return verifytbl(*tbl);
}

}  // extern "C"
