// Environment variables, as far as they may be believed.
#include <cstdlib>
#if defined(__linux__)
#include <sys/auxv.h>
#else
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

extern "C" int std_is_secure(void) {
#if defined(__linux__)
    return ::getauxval(AT_SECURE) != 0;
#else
    return ::issetugid() != 0;
#endif
}
