/* Stbl: the sorted set. It holds any pointers, each once by the caller's comparison, and gives them
 * by their place in the order.
 *
 *     Stbl* names = newstbl(NULL);                  // strings in strcmp order
 *     char* name = addstbl(names, word);            // the word, or the equal one that was there
 *     for (long i = 0; i < maxstbl(names); ++i) puts(getstbl(names, i));
 *     freestbl(names, NULL);
 *
 * Items are neither copied nor freed by the set, and must keep their order while they are in it.
 *
 * Running out of memory ends the process. Threads: users of one set take turns, readers too,
 * because asking for items by place rebuilds the list of them. Different sets are independent of
 * each other.
 */
#ifndef MORVA_STBL_H
#define MORVA_STBL_H

#include <stdint.h>

#include "morva/export.h"
#include "morva/redblack.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* For reading; the set keeps more behind it, so it is made by newstbl only. */
typedef struct Stbl {
    Tbl* list;     /* the items in order, or NULL; the set's own */
    Rbtree* tree;  /* every item as both key and value; `replace` is clear */
    int32_t dirty; /* 1 when items were added or deleted since `list` was brought up to date */
} Stbl;

/* A new empty set; free it with freestbl. NULL for `compare` means strcmp. */
MORVA_API Stbl* newstbl(Rb_compare compare);

/* Adds an item unless an equal one is there. The item that is in the set now: `item`, or the equal
 * one that came first. */
MORVA_API void* addstbl(Stbl* stbl, void* item);

/* Removes the item equal to `item` and returns it; NULL when there is none. */
MORVA_API void* delstbl(Stbl* stbl, const void* item);

/* The item equal to `item`, or NULL. */
MORVA_API void* tststbl(Stbl* stbl, const void* item);

/* The number of items. Like the three functions below, brings the list up to date when the set is
 * dirty, which takes time in proportion to the number of items. */
MORVA_API long maxstbl(Stbl* stbl);

/* Item i in ascending order; NULL outside 0 .. maxstbl(stbl)-1. */
MORVA_API void* getstbl(Stbl* stbl, long i);

/* The list of all items in ascending order. It is the set's own, not to be changed or freed, and
 * valid until an item is added or deleted. */
MORVA_API Tbl* tblstbl(Stbl* stbl);

/* Calls function(item, private_data) for the items in ascending order and returns the sum of the
 * results, wrapped to 32 bits. Items that the function adds or deletes do not change which items it
 * is called for, unless it also asks the set for its list. */
MORVA_API int applystbl(Stbl* stbl, int (*function)(void* item, void* private_data),
                        void* private_data);

/* Frees the set; NULL is ignored. Unless it is NULL, `free_function` is called with every item
 * first. */
MORVA_API void freestbl(Stbl* stbl, void (*free_function)(void*));

MORVA_END
#endif
