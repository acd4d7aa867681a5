/* Stbl: the sorted set of unique items. */
#ifndef MORVA_STBL_H
#define MORVA_STBL_H

#include <stdint.h>

#include "morva/export.h"
#include "morva/redblack.h"
#include "morva/tbl.h"

MORVA_BEGIN

typedef struct Stbl {
    Tbl* list;
    Rbtree* tree;
    int32_t dirty;
} Stbl;

MORVA_API Stbl* newstbl(Rb_compare compare);
MORVA_API void* addstbl(Stbl* stbl, void* item);
MORVA_API void* delstbl(Stbl* stbl, const void* item);
MORVA_API void* tststbl(Stbl* stbl, const void* item);
MORVA_API long maxstbl(Stbl* stbl);
MORVA_API void* getstbl(Stbl* stbl, long i);
MORVA_API Tbl* tblstbl(Stbl* stbl);
MORVA_API int applystbl(Stbl* stbl, int (*function)(void* item, void* private_data),
                        void* private_data);
MORVA_API void freestbl(Stbl* stbl, void (*free_function)(void*));

MORVA_END
#endif
