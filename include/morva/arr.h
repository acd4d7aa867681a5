/* Arr: the string-keyed associative array. It maps string keys to untyped pointers and lists them
 * in the order of the keys: by unsigned bytes, or as the array's own comparison says.
 *
 *     Arr* arr = newarr(NULL);
 *     free(setarr(arr, "rate", strdup("40.0")));    // setarr returns the value it replaced
 *     char* rate = getarr(arr, "rate");
 *     Tbl* keys = keysarr(arr);                     // the array's own strings
 *     freetbl(keys, NULL);
 *     freearr(arr, free);
 *
 * Keys are copied, values are not: a value is freed only by a function that the caller passes. An
 * Arr is a red-black tree (morva/redblack.h), and an Arr* may be read as an Rbtree*.
 *
 * The key strings that functions of this family hand out are the array's own: they stay valid until
 * the key is deleted or replaced, and must not be changed.
 *
 * The memory of deleted keys of up to 63 characters serves the same array again, and goes back when
 * the array is empty or freed.
 *
 * Running out of memory ends the process. Threads: users of one array take turns; readers alone
 * need not. Different arrays are independent of each other.
 */
#ifndef MORVA_ARR_H
#define MORVA_ARR_H

#include "morva/export.h"
#include "morva/redblack.h"
#include "morva/tbl.h"

MORVA_BEGIN

typedef struct Arr Arr;

/* Negative, zero or positive as key_a sorts before, with or behind key_b. */
typedef int (*Arr_compare)(const char* key_a, const char* key_b);

/* A new empty array; free it with freearr. NULL for `compare` means strcmp. */
MORVA_API Arr* newarr(Arr_compare compare);

/* Stores `value` under a copy of `key`. NULL when the key is new; otherwise the value that was
 * replaced, which is the caller's to free. Where keys of different bytes compare equal, the array
 * holds the new one afterwards. `key` may be one of the array's own strings. */
MORVA_API void* setarr(Arr* arr, const char* key, const void* value);

/* The value stored under `key`; NULL when there is none (a stored NULL looks the same) or when
 * `arr` is NULL. */
MORVA_API void* getarr(Arr* arr, const char* key);

/* Removes `key`, which may be the array's own string, and frees the array's copy of it. The removed
 * value, the caller's to free; NULL when the key is absent or `arr` is NULL. */
MORVA_API void* delarr(Arr* arr, const char* key);

/* The number of keys, 0 for NULL. Takes the same time for any size. */
MORVA_API long cntarr(Arr* arr);

/* A new list of the keys in ascending order; free it with freetbl(list, NULL). NULL gives an empty
 * list. */
MORVA_API Tbl* keysarr(Arr* arr);

/* As keysarr, but the values, in the order of their keys. */
MORVA_API Tbl* valsarr(Arr* arr);

/* Calls function(key, value, private_data) for every key in ascending order; its result is ignored.
 * Returns 0. The function may set keys (whether it is called for new ones depends on where they
 * sort), or delete the key it is called for, but no other; after setting or deleting its own `key`
 * it must not use that string again. */
MORVA_API int applyarr(Arr* arr, int (*function)(char* key, void* value, void* private_data),
                       void* private_data);

/* A new array with the same comparison, copies of all keys, and dup_function(value) as the value of
 * each. Neither argument may be NULL. */
MORVA_API Arr* duparr(Arr* arr, void* (*dup_function)(void*));

/* Frees the array and its keys; NULL is ignored. Unless it is NULL, `free_function` is called with
 * every value first, stored NULLs too. Returns 0. */
MORVA_API int freearr(Arr* arr, void (*free_function)(void*));

/* A new list of the keys, in order, that the POSIX extended regular expression `pattern` matches
 * from their first character to their last; free it with freetbl(list, NULL). A pattern that does
 * not compile gives an empty list; nothing is registered. */
MORVA_API Tbl* greparr(const char* pattern, Arr* arr);

/* The converse: the keys are patterns. A new list of those, in order, that match the whole of
 * `string`; keys that do not compile are skipped. */
MORVA_API Tbl* arrgrep(Arr* arr, const char* string);

/* Compares two arrays. Three lists made by newtbl are first cleared, their items freed with free,
 * and then receive copies (from malloc) of the keys that are only in `a`, only in `b`, and in both
 * but with values that differ. key_compare(key_a, key_b, private_data) must agree with the order of
 * both arrays; NULL means strcmp. value_compare(value_a, value_b, private_data) gives 0 for equal
 * values; NULL compares values as strings, a NULL value being equal to NULL only. A NULL array is
 * empty. */
MORVA_API void diffarr(Arr* a, Arr* b, Tbl_compare key_compare, Tbl_compare value_compare,
                       void* private_data, Tbl* only_a, Tbl* only_b, Tbl* changed);

MORVA_END
#endif
