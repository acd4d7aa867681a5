// Fortran twins of the readers of times.
#include "morva/str2epoch.h"

#include "base/fortran.hpp"
#include "morva/fortran.h"
#include "morva/iso.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

double str2epoch_(const char* text, size_t text_length) {
    return str2epoch(Text(text, text_length).c_str());
}

int zstr2epoch_(const char* text, double* epoch, size_t text_length) {
    return zstr2epoch(Text(text, text_length).c_str(), epoch);
}

int is_epoch_string_(const char* text, double* epoch, size_t text_length) {
    return is_epoch_string(Text(text, text_length).c_str(), epoch);
}

int time_string2epoch_(const char* text, double* epoch, size_t text_length) {
    return time_string2epoch(Text(text, text_length).c_str(), epoch);
}

int str2epoch_strict_(const char* text, double* epoch, size_t text_length) {
    return str2epoch_strict(Text(text, text_length).c_str(), epoch);
}

int iso2epoch_(const char* text, double* epoch, int64_t* nanoseconds, size_t text_length) {
    return iso2epoch(Text(text, text_length).c_str(), epoch, nanoseconds);
}

long epoch2iso_(const int64_t* nanoseconds, const int* digits, char* text, size_t text_length) {
    const malloced<char> owned(epoch2iso(*nanoseconds, *digits));
    return give(text, text_length, owned.get());
}

}  // extern "C"
