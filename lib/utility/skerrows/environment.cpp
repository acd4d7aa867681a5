// Environment variables, as far as they may be believed.
#include <cstdlib>
#if !defined(__linux__)
#include <unistd.h>
#endif

#include "skerrows.h"

extern "C" const char* std_getenv(const char* name) {
#if defined(__linux__)
    return ::secure_getenv(name);
#else
    return ::issetugid() ? nullptr : std::getenv(name);
#endif
}
