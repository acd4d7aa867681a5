// Fortran twins of renaming and announcements.
#include "morva/morph.h"

#include "base/fortran.hpp"
#include "fortran/lists.hpp"
#include "morva/banner.h"
#include "morva/fortran.h"

using morva::fortran::give;
using morva::fortran::Pointers;
using morva::fortran::Text;

extern "C" {

long newmorphtbl_(Tbl* const* rule_lines, Tbl** table) {
    return newmorphtbl(*rule_lines != nullptr ? Pointers(*rule_lines).list() : nullptr, table);
}

long morphtbl_(const char* string, Tbl* const* table, const int* flags, char* result,
               size_t string_length, size_t result_length) {
    Tbl* applied;
    const morva::malloced<char> renamed(
        morphtbl_str(Text(string, string_length).c_str(), *table, *flags, &applied));
    const long count = maxtbl(applied);
    freetbl(applied, nullptr);
    give(result, result_length, renamed.get());
    return count;
}

void freemorphtbl_(Tbl* const* table) {
    freemorphtbl(*table);
}

void announce_(const char* program, const char* version, size_t program_length,
               size_t version_length) {
    announce(Text(program, program_length).or_null(), Text(version, version_length).c_str());
}

void banner_(const char* program, const char* version, size_t program_length,
             size_t version_length) {
    banner(Text(program, program_length).or_null(), Text(version, version_length).c_str());
}

void deprecate_(const char* replacement, size_t replacement_length) {
    deprecate(Text(replacement, replacement_length).or_null());
}

}  // extern "C"
