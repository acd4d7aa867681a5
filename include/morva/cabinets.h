/* Cabinets: two-level containers, a key naming an inner Arr or an inner Tbl. */
#ifndef MORVA_CABINETS_H
#define MORVA_CABINETS_H

#include <stdint.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

typedef struct Arrcabinet {
    Arr* arr;
    void (*free_function)(void*);
    int32_t size;
} Arrcabinet;

typedef struct Tblcabinet {
    Arr* arr;
    void (*free_function)(void*);
    int32_t size;
} Tblcabinet;

MORVA_API Arrcabinet* new_arrcabinet(int size, void (*free_function)(void*));
MORVA_API int set_arrcabinet(Arrcabinet* cabinet, const char* key1, const char* key2,
                             const void* value);
MORVA_API Arr* get_arrcabinet(Arrcabinet* cabinet, const char* key1);
MORVA_API Tbl* keys_arrcabinet(Arrcabinet* cabinet);
MORVA_API void free_arrcabinet(Arrcabinet* cabinet);

MORVA_API Tblcabinet* new_tblcabinet(int size, void (*free_function)(void*));
MORVA_API int push_tblcabinet(Tblcabinet* cabinet, const char* key, const void* item);
MORVA_API Tbl* get_tblcabinet(Tblcabinet* cabinet, const char* key);
MORVA_API Tbl* keys_tblcabinet(Tblcabinet* cabinet);
MORVA_API void free_tblcabinet(Tblcabinet* cabinet);

MORVA_END
#endif
