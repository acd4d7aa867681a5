// Fortran twins of the shared heaps: character variables hold the data.
#include "morva/xheap.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/fortran.hpp"
#include "base/memory.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::Text;

namespace {

struct Field {
    char* bytes;
    size_t length;
};

bool has_bytes(const char* name, int n, size_t length) {
    if (n < 0 || static_cast<size_t>(n) <= length) return true;
    elog_log(0, "Can't store %d bytes of '%s': the variable has %lu\n", n, name,
             static_cast<unsigned long>(length));
    return false;
}

void give_bytes(const Field& field, const void* data, int n) {
    const size_t part = std::min(static_cast<size_t>(n), field.length);
    if (part > 0) std::memcpy(field.bytes, data, part);
    if (part < field.length) std::memset(field.bytes + part, ' ', field.length - part);
}

}  // namespace

extern "C" {

Xheap* openx_(const char* path, const char* mode, const int* size, size_t path_length,
              size_t mode_length) {
    return openx(Text(path, path_length).c_str(), Text(mode, mode_length).c_str(), *size);
}

int closex_(Xheap** heap) {
    return closex(heap);
}

int putx_(Xheap* const* heap, const char* name, const char* data, const int* n, size_t name_length,
          size_t data_length) {
    const Text key(name, name_length);
    return has_bytes(key.c_str(), *n, data_length) ? putx(*heap, key.c_str(), data, *n) : -1;
}

int putx_safe_(Xheap* const* heap, const char* name, const char* data, const int* n,
               size_t name_length, size_t data_length) {
    const Text key(name, name_length);
    return has_bytes(key.c_str(), *n, data_length) ? putx_safe(*heap, key.c_str(), data, *n) : -1;
}

int getx_(Xheap* const* heap, const char* name, char* data, int* n, size_t name_length,
          size_t data_length) {
    void* where = nullptr;
    const int status = getxaddr(*heap, Text(name, name_length).c_str(), &where, n);
    if (status == 0) give_bytes({data, data_length}, where, *n);
    return status;
}

int readx_(Xheap* const* heap, const char* name, char* data, int* n, size_t name_length,
           size_t data_length) {
    void* buffer = nullptr;
    int size = 0;
    const int status = readx(*heap, Text(name, name_length).c_str(), &buffer, n, &size);
    const malloced<char> owned(static_cast<char*>(buffer));
    if (status == 0) give_bytes({data, data_length}, buffer, *n);
    return status;
}

int refreshx_(Xheap* const* heap) {
    return refreshx(*heap);
}

int delx_(Xheap* const* heap, const char* name, size_t name_length) {
    return delx(*heap, Text(name, name_length).c_str());
}

Tbl* namesx_(Xheap* const* heap) {
    return namesx(*heap);
}

int collapsex_(Xheap* const* heap) {
    return collapsex(*heap);
}

int verifyx_(Xheap* const* heap) {
    return verifyx(*heap);
}

int showx_(Xheap* const* heap) {
    return showx(*heap);
}

}  // extern "C"
