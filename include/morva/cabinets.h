/* Cabinets: two-level containers. In an arr cabinet a key names an array, so that a value has two
 * keys; in a tbl cabinet a key names a list.
 *
 *     Arrcabinet* rates = new_arrcabinet(0, free);
 *     set_arrcabinet(rates, "AAK", "BHZ", strdup("40.0"));
 *     char* rate = getarr(get_arrcabinet(rates, "AAK"), "BHZ");
 *     free_arrcabinet(rates);
 *
 *     Tblcabinet* channels = new_tblcabinet(-1, NULL);   // keeps copies of strings
 *     push_tblcabinet(channels, "AAK", "BHZ");
 *     long n = maxtbl(get_tblcabinet(channels, "AAK"));
 *     free_tblcabinet(channels);
 *
 * The inner arrays and lists belong to the cabinet. Running out of memory ends the process.
 * Threads: users of one cabinet take turns; different cabinets are independent of each other.
 */
#ifndef MORVA_CABINETS_H
#define MORVA_CABINETS_H

#include <stdint.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

typedef struct Arrcabinet {
    Arr* arr; /* the inner arrays by their keys */
    void (*free_function)(void*);
    int32_t size;
} Arrcabinet;

typedef struct Tblcabinet {
    Arr* arr; /* the inner lists by their keys */
    void (*free_function)(void*);
    int32_t size;
} Tblcabinet;

/* A new empty arr cabinet; free it with free_arrcabinet. `free_function` frees one value and must
 * accept NULL; when it is NULL itself, values are left alone. With a negative `size`,
 * free_arrcabinet uses free instead of it. Making and freeing report their steps with
 * elog_debug. */
MORVA_API Arrcabinet* new_arrcabinet(int size, void (*free_function)(void*));

/* Stores `value` under `key2` in the array of `key1`, which is made when it is missing, and passes
 * the value that was there, or NULL, to the cabinet's free function. Returns 0. */
MORVA_API int set_arrcabinet(Arrcabinet* cabinet, const char* key1, const char* key2,
                             const void* value);

/* The array of `key1`, the cabinet's own; NULL when there is none. */
MORVA_API Arr* get_arrcabinet(Arrcabinet* cabinet, const char* key1);

/* A new list of the outer keys in ascending order, as keysarr gives it. */
MORVA_API Tbl* keys_arrcabinet(Arrcabinet* cabinet);

/* Frees the cabinet and its arrays; NULL is ignored. Every value goes to the cabinet's free
 * function, or to free when the cabinet's size is negative. */
MORVA_API void free_arrcabinet(Arrcabinet* cabinet);

/* A new empty tbl cabinet; free it with free_tblcabinet. `size` says what its lists hold: from 1
 * up, copies of items of that many bytes, by value; 0, the pointers as they are pushed; below 0,
 * copies of the items as strings. `free_function`, unless it is NULL, is called with each item (by
 * value: with its address) when the cabinet is freed; with a negative size free is used instead. */
MORVA_API Tblcabinet* new_tblcabinet(int size, void (*free_function)(void*));

/* Appends an item to the list of `key`, which is made when it is missing. Returns 0. */
MORVA_API int push_tblcabinet(Tblcabinet* cabinet, const char* key, const void* item);

/* The list of `key`, the cabinet's own; NULL when there is none. */
MORVA_API Tbl* get_tblcabinet(Tblcabinet* cabinet, const char* key);

/* A new list of the keys in ascending order, as keysarr gives it. */
MORVA_API Tbl* keys_tblcabinet(Tblcabinet* cabinet);

/* Frees the cabinet, its lists and their items; NULL is ignored. */
MORVA_API void free_tblcabinet(Tblcabinet* cabinet);

MORVA_END
#endif
