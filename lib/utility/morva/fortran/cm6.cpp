// Fortran twins of CM6: the caller's variables take the text and the samples.
#include "morva/cm6.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/fortran.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::give;

extern "C" {

int cm6_(const int32_t* samples, const int* nsamp, char* text, int* nbytes, size_t text_length) {
    char* encoded = nullptr;
    int size = 0;
    if (cm6(samples, *nsamp, &encoded, nbytes, &size) != 0) return -1;
    const malloced<char> owned(encoded);
    const auto length = static_cast<size_t>(*nbytes);
    if (length > text_length) {
        elog_log(0, "CM6 text of %lu bytes doesn't fit into %lu characters.\n",
                 static_cast<unsigned long>(length), static_cast<unsigned long>(text_length));
        return -1;
    }
    give(text, text_length, encoded);
    return 0;
}

int um6_(const char* text, const int* nbytes, int32_t* samples, int* nsamp, const int* buffer_size,
         size_t text_length) {
    const auto given = static_cast<size_t>(std::max(*nbytes, 0));
    int32_t* decoded = nullptr;
    int size = 0;
    const int count =
        um6(text, static_cast<int>(std::min(given, text_length)), &decoded, nsamp, &size);
    const malloced<int32_t> owned(decoded);
    if (count > *buffer_size) {
        elog_log(0, "%d CM6 samples don't fit into an array of %d.\n", count, *buffer_size);
        return -1;
    }
    if (count > 0) std::memcpy(samples, decoded, static_cast<size_t>(count) * sizeof *samples);
    return count;
}

void initdecode_(void) {
    initDecode();
}

int gse_checksum_(const int32_t* samples, const int* nsamp, int32_t* checksum) {
    return gse_checksum(samples, *nsamp, checksum);
}

}  // extern "C"
