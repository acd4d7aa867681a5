/* Xlat: small tables that translate between numbers and names.
 *
 *     static const Xlat modes[] = {{"read", 1}, {"write", 2}};
 *     xlatname("write", modes, 2);                         // 2
 *     char text[32];
 *     xlatnum_str(7, text, sizeof text, modes, 2);         // "* unknown: #7"
 *
 * A table is an array and the number of its entries; it is only read, so any number of threads may
 * use it. The first entry that fits counts. Entries without a name (NULL) have an unknown one. */
#ifndef MORVA_XLAT_H
#define MORVA_XLAT_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

typedef struct Xlat {
    const char* name;
    int32_t num;
} Xlat;

/* The name of a number, which is the table's, or NULL when it has none. */
MORVA_API char* xlatnum(int value, const Xlat* table, int count);

/* Writes the name of a number, or "* unknown: #" and the number when it has none, cut to `size`
 * bytes with its terminator; a size below 1 writes nothing. Returns the buffer. */
MORVA_API char* xlatnum_str(int value, char* buffer, int size, const Xlat* table, int count);

/* The number of a name, which must be the same character by character; -1 when there is none. */
MORVA_API int xlatname(const char* name, const Xlat* table, int count);

MORVA_END
#endif
