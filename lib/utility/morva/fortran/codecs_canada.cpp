// Fortran twins of Canadian compression and gencompress: character variables hold the bytes.
#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/ccanada.h"
#include "morva/fortran.h"
#include "morva/gencompress.h"

using morva::malloced;

namespace {

int give_bytes(const unsigned char* from, int nbytes, char* bytes, size_t room) {
    if (static_cast<size_t>(nbytes) > room) {
        elog_log(0, "%d compressed bytes don't fit into %lu.\n", nbytes,
                 static_cast<unsigned long>(room));
        return -1;
    }
    std::memcpy(bytes, from, static_cast<size_t>(nbytes));
    return 0;
}

int give_samples(const int32_t* from, int count, int32_t* samples, int room) {
    if (count > room) {
        elog_log(0, "%d decompressed samples don't fit into an array of %d.\n", count, room);
        return -1;
    }
    std::memcpy(samples, from, static_cast<size_t>(count) * sizeof *samples);
    return 0;
}

int given(int nbytes, size_t length) {
    return static_cast<int>(std::min(static_cast<size_t>(std::max(nbytes, 0)), length));
}

const unsigned char* unsigned_bytes(const char* bytes) {
    return reinterpret_cast<const unsigned char*>(bytes);
}

}  // namespace

extern "C" {

int ccanada_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
             size_t bytes_length) {
    unsigned char* buffer = nullptr;
    int size = 0;
    const int status = ccanada(samples, *nsamp, &buffer, nbytes, &size);
    const malloced<unsigned char> owned(buffer);
    return status == 0 ? give_bytes(buffer, *nbytes, bytes, bytes_length) : -1;
}

int ucanada_(const char* bytes, const int* nbytes, int32_t* samples, int* nsamp,
             const int* buffer_size, size_t bytes_length) {
    int32_t* buffer = nullptr;
    int size = 0;
    const int status =
        ucanada(unsigned_bytes(bytes), given(*nbytes, bytes_length), &buffer, nsamp, &size);
    const malloced<int32_t> owned(buffer);
    if (status != 0 || *nsamp == 0) return status;
    return give_samples(buffer, *nsamp + 1, samples, *buffer_size);
}

void cc_bitpack_(char* buffer, int* byte_index, int* bit_position, const int* nbits,
                 const int* value, size_t /* buffer_length */) {
    cc_bitpack(reinterpret_cast<unsigned char*>(buffer), byte_index, bit_position, *nbits, *value);
}

int gencompress_(char* bytes, int* nbytes, const int32_t* samples, const int* nsamp,
                 const int* block, size_t bytes_length) {
    unsigned char* buffer = nullptr;
    int size = 0;
    const int status = gencompress(&buffer, nbytes, &size, samples, *nsamp, *block);
    const malloced<unsigned char> owned(buffer);
    return status == 0 ? give_bytes(buffer, *nbytes, bytes, bytes_length) : -1;
}

int genuncompress_(int32_t* samples, int* nsamp, const int* buffer_size, const char* bytes,
                   const int* nbytes, size_t bytes_length) {
    int32_t* buffer = nullptr;
    int size = 0;
    const int status =
        genuncompress(&buffer, nsamp, &size, unsigned_bytes(bytes), given(*nbytes, bytes_length));
    const malloced<int32_t> owned(buffer);
    return status == 0 ? give_samples(buffer, *nsamp, samples, *buffer_size) : -1;
}

}  // extern "C"
