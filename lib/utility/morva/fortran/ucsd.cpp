// Fortran twins of UCSD compression: character variables hold the bytes.
#include "morva/ucsd.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/fortran.h"

using morva::malloced;

namespace {

int give_bytes(const char* from, int nbytes, char* bytes, size_t room) {
    if (static_cast<size_t>(nbytes) > room) {
        elog_log(0, "%d UCSD bytes don't fit into %lu.\n", nbytes,
                 static_cast<unsigned long>(room));
        return -1;
    }
    std::memcpy(bytes, from, static_cast<size_t>(nbytes));
    return 0;
}

}  // namespace

extern "C" {

int cucsd_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
           size_t bytes_length) {
    char* buffer = nullptr;
    int size = 0;
    const int status = cucsd(samples, *nsamp, &buffer, nbytes, &size);
    const malloced<char> owned(buffer);
    if (buffer == nullptr || give_bytes(buffer, *nbytes, bytes, bytes_length) != 0) return -1;
    return status;
}

int cucsd_try_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
               size_t bytes_length) {
    char* buffer = nullptr;
    int size = 0;
    const int status = cucsd_try(samples, *nsamp, &buffer, nbytes, &size);
    const malloced<char> owned(buffer);
    return status == 0 ? give_bytes(buffer, *nbytes, bytes, bytes_length) : -1;
}

int uucsd_(int32_t* samples, const char* bytes, const int* nbytes, const int* nsamp,
           size_t bytes_length) {
    const auto given = std::min(static_cast<size_t>(std::max(*nbytes, 0)), bytes_length);
    char* cursor = const_cast<char*>(bytes);
    return uucsd(samples, &cursor, static_cast<int>(given), *nsamp);
}

}  // extern "C"
