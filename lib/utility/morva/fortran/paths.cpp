// Fortran twins of the data search.
#include "morva/paths.h"

#include "base/fortran.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

long datafile_(const char* envname, const char* name, char* path, size_t envname_length,
               size_t name_length, size_t path_length) {
    const Text variable(envname, envname_length), file(name, name_length);
    const malloced<char> found(datafile(variable.c_str(), file.c_str()));
    return give(path, path_length, found.get());
}

long datapath_(const char* envname, const char* subdir, const char* name, const char* suffix,
               char* path, size_t envname_length, size_t subdir_length, size_t name_length,
               size_t suffix_length, size_t path_length) {
    const Text variable(envname, envname_length), folder(subdir, subdir_length);
    const Text file(name, name_length), ending(suffix, suffix_length);
    const malloced<char> found(
        datapath(variable.c_str(), folder.c_str(), file.c_str(), ending.c_str()));
    return give(path, path_length, found.get());
}

long newdata_(const char* envname, const char* subdir, const char* name, const char* suffix,
              char* path, size_t envname_length, size_t subdir_length, size_t name_length,
              size_t suffix_length, size_t path_length) {
    const Text variable(envname, envname_length), folder(subdir, subdir_length);
    const Text file(name, name_length), ending(suffix, suffix_length);
    const malloced<char> found(
        newdata(variable.c_str(), folder.c_str(), file.c_str(), ending.c_str()));
    return give(path, path_length, found.get());
}

}  // extern "C"
