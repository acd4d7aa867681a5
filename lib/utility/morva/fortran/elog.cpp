// Fortran twins of the message register.
#include "morva/elog.h"

#include <skerrows.h>

#include "base/fortran.hpp"
#include "morva/fortran.h"
#include "morva/strings.h"
#include "morva/tbl.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

void register_error_(const int* flag, const char* text, size_t text_length) {
    elog_log(*flag, "%s\n", Text(text, text_length).c_str());
}

void complain_(const int* flag, const char* text, size_t text_length) {
    elog_complain(*flag, "%s\n", Text(text, text_length).c_str());
}

void die_(const int* flag, const char* text, size_t text_length) {
    elog_die(*flag, "%s\n", Text(text, text_length).c_str());
}

int clear_register_(const int* print) {
    return elog_clear_register(*print);
}

int elog_init_(const char* command, size_t command_length) {
    const Text words(command, command_length);
    Tbl* arguments = splitws(words.c_str());
    if (maxtbl(arguments) == 0) pushtbl(arguments, getexecname());
    const int count = static_cast<int>(maxtbl(arguments));
    pushtbl(arguments, nullptr);
    const int result = elog_init(count, static_cast<char**>(addrtbl(arguments, 0)));
    freetbl(arguments, nullptr);
    return result;
}

int eloginit_(const char* command, size_t command_length) {
    return elog_init_(command, command_length);
}

int elog_mark_(void) {
    return elog_mark();
}

int elog_flush_(const int* print, const int* mark) {
    return elog_flush(*print, *mark);
}

long elog_string_(const int* start, char* text, size_t text_length) {
    return give(text, text_length, malloced<char>(elog_string(*start)).get());
}

// Some compilers add a second underscore to a name that holds one.
#define MORVA_SAME(twin, original) decltype(original) twin __attribute__((alias(#original)))
MORVA_SAME(register_error__, register_error_);
MORVA_SAME(complain__, complain_);
MORVA_SAME(die__, die_);
MORVA_SAME(clear_register__, clear_register_);
MORVA_SAME(elog_init__, elog_init_);
MORVA_SAME(eloginit__, eloginit_);

}  // extern "C"
