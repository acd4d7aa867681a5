// Fortran twins of the sorted sets.
#include "morva/stbl.h"

#include <cstdlib>

#include "base/fortran.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::must_strdup;
using morva::fortran::give;
using morva::fortran::Text;

namespace {

intptr_t word(const void* value) {
    return reinterpret_cast<intptr_t>(value);
}

void* item_of(const intptr_t* variable) {
    return reinterpret_cast<void*>(*variable);
}

}  // namespace

extern "C" {

Stbl* newstbl_(Rb_compare compare) {
    return newstbl(compare);
}

intptr_t addstbl_(Stbl* const* stbl, const intptr_t* item) {
    return word(addstbl(*stbl, item_of(item)));
}

intptr_t delstbl_(Stbl* const* stbl, const intptr_t* item) {
    return word(delstbl(*stbl, item_of(item)));
}

intptr_t tststbl_(Stbl* const* stbl, const intptr_t* item) {
    return word(tststbl(*stbl, item_of(item)));
}

long maxstbl_(Stbl* const* stbl) {
    return maxstbl(*stbl);
}

intptr_t getstbl_(Stbl* const* stbl, const long* i) {
    return word(getstbl(*stbl, *i));
}

Tbl* tblstbl_(Stbl* const* stbl) {
    return tblstbl(*stbl);
}

int applystbl_(Stbl* const* stbl, Fortran_apply function, void* private_data) {
    return applystbl(*stbl, function, private_data);
}

void freestbl_(Stbl* const* stbl, Fortran_free free_function) {
    freestbl(*stbl, free_function);
}

int straddstbl_(Stbl* const* stbl, const char* text, size_t text_length) {
    malloced<char> copy(must_strdup(Text(text, text_length).c_str(), "new", MORVA_HERE));
    if (addstbl(*stbl, copy.get()) != copy.get()) return 0;
    static_cast<void>(copy.release());
    return 1;
}

int strtststbl_(Stbl* const* stbl, const char* text, size_t text_length) {
    return tststbl(*stbl, Text(text, text_length).c_str()) != nullptr ? 1 : 0;
}

long strgetstbl_(Stbl* const* stbl, const long* i, char* text, size_t text_length) {
    return give(text, text_length, static_cast<const char*>(getstbl(*stbl, *i)));
}

void strfreestbl_(Stbl* const* stbl) {
    freestbl(*stbl, std::free);
}

}  // extern "C"
