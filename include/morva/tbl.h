/* Tbl: the growable list, the library's ordered collection of anything.
 *
 * A list is indexed from 0 and grows cheaply at both ends. Two kinds exist:
 *   - an indirect list (newtbl, strtbl) holds one pointer per item and never owns what it points
 * to;
 *   - a direct list (inittbl, filetbl) holds items of a fixed size by value. It can live in a file
 *     that is mapped into memory, so that its items outlast the process.
 *
 *     Tbl* names = strtbl("BHZ", "BHN", NULL);
 *     pushtbl(names, "BHE");
 *     for (long i = 0; i < maxtbl(names); i++) puts(gettbl(names, i));
 *     freetbl(names, NULL);
 *
 * Conventions of the family, beyond those of morva.h:
 *   - The null value is what inittbl was given, NULL for lists from newtbl: the list keeps a copy
 *     of its itemsize bytes and fills new slots with them. Reads outside the list give the null
 *     value pointer: the address of that copy in both kinds of list, or NULL where there is none.
 *     An item counts as the null value when its bytes equal the null value's, or are all zero where
 *     there is none. In an indirect list the null value pointer itself counts as well, so that an
 *     item read outside a list can be stored and is never freed.
 *   - An item handed over is a pointer: stored as it is in an indirect list, the address of
 * itemsize bytes to copy for a direct one (NULL there stands for the null value). It may lie in the
 * same list.
 *   - An item handed back is the stored pointer of an indirect list, and the address of the slot in
 *     a direct one: valid until the list next changes.
 *   - A NULL list reads as an empty one (maxtbl, gettbl, addrtbl, poptbl, shifttbl, deltbl,
 *     trunctbl, clrtbl, applytbl, the search and text routines), and freetbl ignores it. Storing
 *     into a NULL list is a fault of the program.
 *   - Running out of memory ends the process, and so does an index that no memory can hold.
 *   - A list opened for reading only can be read, popped, shifted and truncated in this process's
 *     view; storing or inserting an item ends the process with "*stack* Can't extend read-only
 *     list.\n", changing items in place with "*stack* Can't change read-only list.\n".
 *   - No locks: users of one list take turns. Different lists may be used at once.
 *
 * The record's fields are there for list files and for debuggers; programs use the functions. With
 * optimisation on, compilers see the short paths of the most used functions (end of this header);
 * define MORVA_NO_INLINE before including it to have every call made.
 */
#ifndef MORVA_TBL_H
#define MORVA_TBL_H

#include <stdint.h>
#include <stdio.h>

#include "morva/export.h"

MORVA_BEGIN

struct Arr;

/* The order of the fields is that of the record in list files. */
typedef struct Tbl {
    char* base;              /* slot of item 0; the block starts -first slots before it */
    char* mapaddr;           /* the mapped file, NULL for a list in memory */
    char* null_value;        /* copy of the null item, or NULL */
    char* deleted;           /* direct lists: the item that deltbl removed last, or NULL */
    int64_t first;           /* index of the first slot: 0 or negative */
    int64_t count;           /* number of items */
    int64_t alloc_end;       /* index one past the last slot */
    int32_t itemsize;        /* bytes of an item; 8 in an indirect list */
    int32_t direct;          /* 0: pointers; otherwise: items by value */
    int64_t maplen;          /* length of the mapping, 0 for a list in memory */
    int32_t fd;              /* descriptor of the file, -1 for a list in memory */
    int32_t mode;            /* 1: mapped read-only, 3: mapped writable, 0: in memory */
    int64_t left_increment;  /* slots to add on the next growth at the front */
    int64_t right_increment; /* slots to add on the next growth at the end */
} Tbl;

/* Compares two things: negative, zero or positive. What a and b are, each routine says. */
typedef int (*Tbl_compare)(void* a, void* b, void* private_data);

/* ---- Making and freeing lists */

/* An empty indirect list. `size` is the number of slots of the first growth (below 1: 10); nothing
 * is allocated for items before the first arrives. Free it with freetbl. */
MORVA_API Tbl* newtbl(long size);

/* An empty list of either kind, with the first increments at both ends (below 1: 10). Of a non-NULL
 * `null_value`, itemsize bytes are copied. Indirect lists always have items of pointer size.
 * NULL, with the reason registered, when a direct list is to have items of less than one byte. */
MORVA_API Tbl* inittbl(long left_increment, long right_increment, int direct,
                       const void* null_value, int itemsize);

/* An indirect list of the arguments up to a NULL. The first argument is always an item, even when
 * it is NULL. The strings are not copied. */
MORVA_API Tbl* strtbl(const char* first, ...) MORVA_NULL_TERMINATED;

/* Frees the list. A free function is first called on every item that does not count as the null
 * value (with the slot's address in a direct list). A list in a file is closed and unmapped: the
 * file keeps its items. */
MORVA_API void freetbl(Tbl* tbl, void (*free_function)(void*));

/* A new list in memory with the same kind, increments, null value and items. A dup function is
 * called on every item that does not count as the null value: in an indirect list its result
 * replaces the item; in a direct one it gets the address of the copied slot, to change in place.
 * NULL for a NULL list. */
MORVA_API Tbl* duptbl(Tbl* tbl, void* (*dup_function)(void*));

/* ---- Single items. Indices count from 0. */

/* The number of items. */
MORVA_API long maxtbl(Tbl* tbl);

/* Item i. Any i outside 0 .. maxtbl(tbl)-1 gives the null value pointer: no error. */
MORVA_API void* gettbl(Tbl* tbl, long i);

/* The address of slot i, in both kinds (in an indirect list: where the pointer is stored). NULL
 * when i is outside 0 .. maxtbl(tbl)-1. Valid until the list next changes. */
MORVA_API void* addrtbl(Tbl* tbl, long i);

/* Stores the item at i, or behind the last item when i is negative, and returns its index. Behind
 * the end the list grows; the slots in between are not rewritten: new ones hold the null value,
 * older ones what they held when they were popped. */
MORVA_API long settbl(Tbl* tbl, long i, const void* item);

/* Appends the item and returns its index. */
MORVA_API long pushtbl(Tbl* tbl, const void* item);

/* Removes and returns the last item, or the null value pointer when there is none. */
MORVA_API void* poptbl(Tbl* tbl);

/* Removes and returns item 0 without moving the others, or the null value pointer. */
MORVA_API void* shifttbl(Tbl* tbl);

/* Puts the item before item 0, in a slot that shifttbl freed if there is one. Returns 0. */
MORVA_API long unshifttbl(Tbl* tbl, const void* item);

/* Inserts the item at i, moving later items up, and returns its index: a negative i puts it in
 * front, an i beyond the end right behind the last item. */
MORVA_API long instbl(Tbl* tbl, long i, const void* item);

/* Removes item i, moving later items down. Returns the pointer, or for a direct list the address of
 * a private copy that the next deltbl overwrites; the null value pointer when i is outside. */
MORVA_API void* deltbl(Tbl* tbl, long i);

/* Drops the items from n on (n is clamped to 0 .. maxtbl). A free function is called on each that
 * does not count as the null value, and the slot of a direct list is then reset to the null value.
 * clrtbl drops all items. Slots stay allocated. */
MORVA_API void trunctbl(Tbl* tbl, long n, void (*free_function)(void*));
MORVA_API void clrtbl(Tbl* tbl, void (*free_function)(void*));

/* Makes room for `need` more slots at the end, at least right_increment of them: by enlarging the
 * block, which doubles the increment, or, when more than half an increment is free at the front, by
 * sliding the items there (and enlarging by what is then missing). Called by all that store items;
 * a program calls it to make room ahead. */
MORVA_API void right_growtbl(Tbl* tbl, long need);

/* ---- Whole lists */

/* Calls function(item, private_data) for each item that is not NULL, in order. Returns the sum of
 * the results, wrapped to 32 bits. */
MORVA_API int applytbl(Tbl* tbl, int (*function)(void* item, void* private_data),
                       void* private_data);

/* Appends the items of `from` to `to`; pointers are not duplicated. cattbl(tbl, tbl) doubles a
 * list. 0, or 1 with the reason registered and both lists unchanged when item sizes, kinds or null
 * values differ. */
MORVA_API int cattbl(Tbl* to, Tbl* from);

/* 1 when counts or item sizes differ, otherwise memcmp of the slots (of the pointers themselves in
 * indirect lists). */
MORVA_API int cmptbl(Tbl* a, Tbl* b);

/* Sorts in place; compare gets the addresses of two items, of which one or both may be copies. The
 * order is that of a shell sort with the gaps 1, 4, 13, 40 ... (Knuth, The Art of Computer
 * Programming 3, 5.2.1): not stable, but the same input always gives the same order. Lists of 4-
 * and 8-byte items, pointers among them, may take up to 256 MiB of memory while they are sorted. */
MORVA_API void sorttbl(Tbl* tbl, Tbl_compare compare, void* private_data);

/* Finds the items equal to `key` in a list sorted by `compare`, which gets the key and the address
 * of a slot. Returns their number, and the index of the first and the last; when there is none, the
 * first is where the key would have to be inserted and the last is one less. Either result pointer
 * may be NULL. */
MORVA_API long searchtbl(void* key, Tbl* tbl, Tbl_compare compare, void* private_data,
                         long* first_index, long* last_index);

/* ---- Lists of strings. In a direct list an item ends with its slot at the latest. */

/* The items joined with the separator between them: a new string, the caller's to free. "" for an
 * empty list. NULL items count as empty strings, a NULL separator as none. */
MORVA_API char* jointbl(Tbl* tbl, const char* separator);

/* A new indirect list of the indices (as pointer values) of the items that the POSIX extended
 * regular expression matches from first to last character. Empty, without a message, when the
 * pattern does not compile. */
MORVA_API Tbl* greptbl(const char* pattern, Tbl* tbl);

/* The converse: the indices of the items that, taken as patterns, match the whole string. Items
 * that do not compile are skipped. */
MORVA_API Tbl* tblgrep(Tbl* tbl, const char* string);

/* Prints the title, if any, with puts, then each item: its index with printf as "%3ld : ", the item
 * by the print function (NULL: puts). An empty list is one call of the print function with
 * "  ** no entries in list **\n". Returns the print function's last result. */
MORVA_API int dumptbl(const char* title, Tbl* tbl, int (*print_function)(void*));

/* A new Arr whose keys are the items (NULL items left out); every value is the all-ones pointer.
 * The array copies the keys. Free it with freearr(arr, NULL). */
MORVA_API struct Arr* arrtbl(Tbl* tbl);

/* A new indirect list of items compared as strings; the pointers are those of the source list, in
 * its order. type 1: the items of a that are not in b; 2: those of b not in a; 3: those of a that
 * are in b too. Any other type complains and gives an empty list. NULL items are left out. */
MORVA_API Tbl* commtbl(Tbl* a, Tbl* b, int type);

/* Splits two sorted lists of strings into what only a has, what only b has, and what both have.
 * compare gets two strings (NULL: strcmp) and must be the order both are sorted by. The three
 * result lists, any of which may be NULL, are first cleared, their items freed with free; they
 * receive copies from strdup. NULL items are left out. */
MORVA_API void difftbl(Tbl* a, Tbl* b, Tbl_compare compare, void* private_data, Tbl* only_a,
                       Tbl* only_b, Tbl* both);

/* ---- List files (docs/formats/list-file.md). Only direct lists can live in files.
 *
 * What is stored in a writable list is in the file at once: after the process is killed, the file
 * opens and holds what was stored before, the item being pushed or shifted at that moment in or out
 * as a whole. Operations that move many items (instbl, deltbl, sorttbl, growth that slides) are not
 * undone when the process is killed within them: the file opens, but items may be doubled.
 *
 * Several processes may have a file open for writing; nothing coordinates them, they have to take
 * turns, and one of them must not use items that another one's growth has added. Within one
 * process, open a file for writing once at a time. */

/* Writes the list to an open stream, with a label unless that is NULL: every slot, spare ones as
 * they are. 0, or -1 on a short write or (registered) for an indirect list. */
MORVA_API int writetbl(Tbl* tbl, FILE* stream, const char* label);

/* Writes the list to a file, creating it and the folders of its path. 0, or -1 with the reason
 * registered. The file that the list itself lives in is refused. */
MORVA_API int savetbl(Tbl* tbl, const char* path, const char* label);

/* Opens a list file: its items are read from the mapping, and with `writable` every change goes to
 * the file. *label, unless NULL, becomes the file's label (valid while the list is open) or NULL.
 * NULL, with the reason registered, when the file cannot be opened or mapped, or is no list file of
 * this kind of machine whose contents fit into it. Close it with freetbl. */
MORVA_API Tbl* readtbl(const char* path, char** label, int writable);

/* Opens a list file for writing, with room for at least `size` items, and stores the list in *tbl.
 * A file that is missing is created; one that is no usable list file is replaced and kept as
 * PATH.damaged. One with less room is rebuilt with all its items under the given label; the old
 * file stays until the new one (PATH.new) is complete, and a rebuild that fails ends the process.
 *  0  success
 * -1  failure, reason registered, *tbl NULL; a file whose items have another size (an itemsize
 *     below 1 accepts any), or that would have to be rebuilt with another null value, keeps them
 * -2  the file's label is not `label` (a file without one differs too; a NULL label accepts any):
 *     the file is not touched, *tbl is NULL */
MORVA_API int filetbl(const char* path, const char* label, long size, const void* null_value,
                      int itemsize, Tbl** tbl);

/* ---- Checking */

/* Whether the list's record obeys its rules: counts in order, slots inside the block or file, the
 * file as long as its mapping. 0, or -1 with the broken rule registered. For tests, and for
 * programs that share files. */
MORVA_API int verifytbl(Tbl* tbl);

/* ---- Short paths for compilers
 *
 * What these functions do to pointers in slots that exist, which is most of what they do;
 * everything else goes to the library. Function pointers and other languages get the library's
 * functions. */
#if defined(__OPTIMIZE__) && defined(__GNUC__) && !defined(MORVA_NO_INLINE)
#define MORVA_SHORT_PATH extern __inline__ __attribute__((__gnu_inline__))
/* Holds a value in a register: so that stores to neighbouring fields are not joined to a wide one,
 * for which the next load of a field would have to wait. */
#define MORVA_HELD(value) __asm__("" : "+r"(value))
#define MORVA_TEXT_OF(name) #name
#define MORVA_SYMBOL(prefix, name) MORVA_TEXT_OF(prefix) name

/* A slot, to load from and to store in, which callers may also reach as whatever pointer type they
 * stored there. */
typedef void* __attribute__((__may_alias__)) Morva_slot;
typedef const void* __attribute__((__may_alias__)) Morva_new_slot;
MORVA_API void* morva_called_shifttbl(Tbl* tbl) __asm__(MORVA_SYMBOL(__USER_LABEL_PREFIX__,
                                                                     "shifttbl"));

MORVA_SHORT_PATH long maxtbl(Tbl* tbl) {
    return tbl ? tbl->count : 0;
}

MORVA_SHORT_PATH void* gettbl(Tbl* tbl, long i) {
    if (!tbl) return 0;
    if (i < 0 || i >= tbl->count) return tbl->null_value;
    return tbl->direct ? (void*)(tbl->base + i * tbl->itemsize)
                       : ((Morva_slot*)(void*)tbl->base)[i];
}

MORVA_SHORT_PATH long pushtbl(Tbl* tbl, const void* item) {
    const int64_t i = tbl->count;
    if (tbl->direct || i >= tbl->alloc_end) return settbl(tbl, i, item);
    ((Morva_new_slot*)(void*)tbl->base)[i] = item;
    tbl->count = i + 1;
    return i;
}

MORVA_SHORT_PATH void* poptbl(Tbl* tbl) {
    if (!tbl) return 0;
    if (tbl->count == 0) return tbl->null_value;
    tbl->count -= 1;
    return tbl->direct ? (void*)(tbl->base + tbl->count * tbl->itemsize)
                       : ((Morva_slot*)(void*)tbl->base)[tbl->count];
}

MORVA_SHORT_PATH void* shifttbl(Tbl* tbl) {
    char* slot;
    void* item;
    int64_t first, count, end;
    if (!tbl) return 0;
    if (tbl->count == 0) return tbl->null_value;
    if (tbl->direct) return morva_called_shifttbl(tbl);
    slot = tbl->base;
    item = *(Morva_slot*)(void*)slot;
    first = tbl->first - 1, count = tbl->count - 1, end = tbl->alloc_end - 1;
    MORVA_HELD(first);
    MORVA_HELD(count);
    MORVA_HELD(end);
    tbl->base = slot + sizeof(void*);
    tbl->first = first, tbl->count = count, tbl->alloc_end = end;
    return item;
}

MORVA_SHORT_PATH long unshifttbl(Tbl* tbl, const void* item) {
    Morva_new_slot* slot = (Morva_new_slot*)(void*)tbl->base;
    int64_t first, count, end;
    if (tbl->direct || tbl->first == 0) return instbl(tbl, -1, item);
    first = tbl->first + 1, count = tbl->count + 1, end = tbl->alloc_end + 1;
    MORVA_HELD(first);
    MORVA_HELD(count);
    MORVA_HELD(end);
    slot[-1] = item;
    tbl->base = (char*)(slot - 1);
    tbl->first = first, tbl->count = count, tbl->alloc_end = end;
    return 0;
}
#endif

MORVA_END
#endif
