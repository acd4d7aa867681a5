/* Xlat: an entry of a translation table between names and numbers. */
#ifndef MORVA_XLAT_H
#define MORVA_XLAT_H

#include <stdint.h>

typedef struct Xlat {
    const char* name;
    int32_t num;
} Xlat;

#endif
