// Fortran twins of the conversion of units.
#include "morva/units.h"

#include "base/fortran.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

int units_init_(void) {
    return units_init();
}

int units_convert_(const double* value, const char* from, double* result, const char* to,
                   char* difference, size_t from_length, size_t to_length,
                   size_t difference_length) {
    char* text = nullptr;
    const int status = units_convert(*value, Text(from, from_length).c_str(), result,
                                     Text(to, to_length).c_str(), &text);
    const malloced<char> owned(text);
    give(difference, difference_length, text);
    return status;
}

int units_convert_affine_(const double* value, const char* from, double* result, const char* to,
                          char* difference, size_t from_length, size_t to_length,
                          size_t difference_length) {
    char* text = nullptr;
    const int status = units_convert_affine(*value, Text(from, from_length).c_str(), result,
                                            Text(to, to_length).c_str(), &text);
    const malloced<char> owned(text);
    give(difference, difference_length, text);
    return status;
}

Tbl* units_match_(const char* units, size_t units_length) {
    return units_match(Text(units, units_length).c_str());
}

void show_all_units_(void) {
    show_all_units();
}

}  // extern "C"
