/* Tbl: the growable list. */
#ifndef MORVA_TBL_H
#define MORVA_TBL_H

#include <stdint.h>
#include <stdio.h>

#include "morva/export.h"

MORVA_BEGIN

struct Arr;

typedef struct Tbl {
    char* base;
    char* mapaddr;
    char* null_value;
    char* deleted;
    int64_t first;
    int64_t count;
    int64_t alloc_end;
    int32_t itemsize;
    int32_t direct;
    int64_t maplen;
    int32_t fd;
    int32_t mode;
    int64_t left_increment;
    int64_t right_increment;
} Tbl;

typedef int (*Tbl_compare)(void* a, void* b, void* private_data);

MORVA_API Tbl* newtbl(long size);
MORVA_API Tbl* inittbl(long left_increment, long right_increment, int direct,
                       const void* null_value, int itemsize);
MORVA_API Tbl* strtbl(char* first, ...) MORVA_NULL_TERMINATED;
MORVA_API void freetbl(Tbl* tbl, void (*free_function)(void*));
MORVA_API Tbl* duptbl(Tbl* tbl, void* (*dup_function)(void*));

MORVA_API long maxtbl(Tbl* tbl);
MORVA_API void* gettbl(Tbl* tbl, long i);
MORVA_API void* addrtbl(Tbl* tbl, long i);
MORVA_API long settbl(Tbl* tbl, long i, const void* item);
MORVA_API long pushtbl(Tbl* tbl, const void* item);
MORVA_API void* poptbl(Tbl* tbl);
MORVA_API void* shifttbl(Tbl* tbl);
MORVA_API long unshifttbl(Tbl* tbl, const void* item);
MORVA_API long instbl(Tbl* tbl, long i, const void* item);
MORVA_API void* deltbl(Tbl* tbl, long i);
MORVA_API void trunctbl(Tbl* tbl, long n, void (*free_function)(void*));
MORVA_API void clrtbl(Tbl* tbl, void (*free_function)(void*));
MORVA_API void right_growtbl(Tbl* tbl, long need);

MORVA_API int applytbl(Tbl* tbl, int (*function)(void* item, void* private_data),
                       void* private_data);
MORVA_API int cattbl(Tbl* to, Tbl* from);
MORVA_API int cmptbl(Tbl* a, Tbl* b);
MORVA_API void sorttbl(Tbl* tbl, Tbl_compare compare, void* private_data);
MORVA_API long searchtbl(void* key, Tbl* tbl, Tbl_compare compare, void* private_data,
                         long* first_index, long* last_index);
MORVA_API char* jointbl(Tbl* tbl, const char* separator);
MORVA_API Tbl* greptbl(const char* pattern, Tbl* tbl);
MORVA_API Tbl* tblgrep(Tbl* tbl, const char* string);
MORVA_API int dumptbl(const char* title, Tbl* tbl, int (*print_function)(void*));
MORVA_API struct Arr* arrtbl(Tbl* tbl);
MORVA_API Tbl* commtbl(Tbl* a, Tbl* b, int type);
MORVA_API void difftbl(Tbl* a, Tbl* b, Tbl_compare compare, void* private_data, Tbl* only_a,
                       Tbl* only_b, Tbl* both);

MORVA_API int writetbl(Tbl* tbl, FILE* stream, const char* label);
MORVA_API int savetbl(Tbl* tbl, const char* path, const char* label);
MORVA_API Tbl* readtbl(const char* path, char** label, int writable);
MORVA_API int filetbl(const char* path, const char* label, long size, const void* null_value,
                      int itemsize, Tbl** tbl);

MORVA_API int verifytbl(Tbl* tbl);

MORVA_END
#endif
