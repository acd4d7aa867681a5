/* Arr: the string-keyed associative array. */
#ifndef MORVA_ARR_H
#define MORVA_ARR_H

#include "morva/export.h"
#include "morva/redblack.h"
#include "morva/tbl.h"

MORVA_BEGIN

typedef struct Arr Arr;
typedef int (*Arr_compare)(const char* key_a, const char* key_b);

MORVA_API Arr* newarr(Arr_compare compare);
MORVA_API void* setarr(Arr* arr, const char* key, const void* value);
MORVA_API void* getarr(Arr* arr, const char* key);
MORVA_API void* delarr(Arr* arr, const char* key);
MORVA_API long cntarr(Arr* arr);
MORVA_API Tbl* keysarr(Arr* arr);
MORVA_API Tbl* valsarr(Arr* arr);
MORVA_API int applyarr(Arr* arr, int (*function)(char* key, void* value, void* private_data),
                       void* private_data);
MORVA_API Arr* duparr(Arr* arr, void* (*dup_function)(void*));
MORVA_API int freearr(Arr* arr, void (*free_function)(void*));
MORVA_API Tbl* greparr(const char* pattern, Arr* arr);
MORVA_API Tbl* arrgrep(Arr* arr, const char* string);
MORVA_API void diffarr(Arr* a, Arr* b, Tbl_compare key_compare, Tbl_compare value_compare,
                       void* private_data, Tbl* only_a, Tbl* only_b, Tbl* changed);

MORVA_END
#endif
