/* Shared heaps: named pieces of bytes in a file that is mapped into memory. A program keeps small
 * facts there that outlast it and that other processes read in place.
 *
 *     Xheap* heap = openx("facts", "r+", 65536);               // made when it is missing
 *     if (heap == NULL) elog_die(0, "no heap of facts");
 *     putx(heap, "station", "AAK", 4);
 *     void* where;
 *     int n;
 *     if (getxaddr(heap, "station", &where, &n) == 0) puts(where);     // no copy is made
 *     closex(&heap);
 *
 * The file is full of entries, used and free ones (docs/formats/heap.md); every entry carries its
 * name and a CRC. Every change is in the file at once.
 *
 * Conventions of the family, beyond those of morva.h:
 *   1. Names are strings of any length, the empty one too; data are any bytes, none at all
 *      included. A file has less than 2 GiB.
 *   2. Addresses inside the mapping (getxaddr, the records) are valid until the next call that
 *      stores or manages space.
 *   3. A file is checked when it is opened, and damaged entries are dropped: complained of and made
 *      free, in the file too unless it is only read. Whatever bytes a file holds, nothing outside
 *      of it is read or written. Of a file that another process cuts off, zeros remain: storing and
 *      getting then give -1, and the first to notice (closex at the latest) complains once.
 *   4. A writer that is killed at any instant leaves a file that opens, and in which every entry
 *      but the one that was being stored, deleted or moved is whole. putx replaces a value where it
 *      is: killed meanwhile, it leaves none. putx_safe leaves the old or the new one.
 *   5. A disk that is too full makes storing fail with -1, never the program.
 *   6. No locks: one handle writes to a file at a time, and users of one handle take turns. Any
 *      number of processes may read; what they knew of the file is as old as their openx or
 *      refreshx, and while the writer stores, only readx never gives a mixture.
 */
#ifndef MORVA_XHEAP_H
#define MORVA_XHEAP_H

#include <stdint.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* A heap that is open. Free records are in the order of their addresses. */
typedef struct Xheap {
    char* path;       /* the name it was opened by */
    int32_t readonly; /* not 0: opened to be read */
    char* address;    /* the mapped file */
    int32_t length;   /* bytes mapped */
    Tbl* free_list;   /* of Xheap_entry*: the free entries */
    Arr* names;       /* from name to Xheap_entry*: the others */
    void* guard;      /* the library's */
    void* index;      /* the library's */
    uint64_t device;  /* the file's, as stat gives them */
    uint64_t inode;
} Xheap;

/* What is known of an entry. Of a free one, name and data are null and data_length is 0. */
typedef struct Xheap_entry {
    char* address; /* of its header in the mapping */
    int32_t size;  /* bytes, header included */
    char* name;
    char* data;
    int32_t data_length; /* bytes */
    uint32_t name_crc;   /* the library's */
} Xheap_entry;

/* The head of an entry. In the file the four words are in machine-independent byte order. */
typedef struct Xheap_header {
    int32_t size;        /* bytes, header included */
    int32_t name_length; /* bytes, the terminating zero included; 0: the entry is free */
    int32_t data_length; /* bytes */
    uint32_t crc;        /* vk_crc32, begun with 0, of name (and its zero) and data */
} Xheap_header;

/* ---- Opening ---- */

/* Opens a heap: mapx, then assimilatex. The handle, for closex; NULL as mapx. */
MORVA_API Xheap* openx(const char* path, const char* mode, int size);

/* Maps a heap without looking at its entries; the next call that needs them does. With the mode "r"
 * the file is only read. Any other mode opens it for update; when it is missing or empty it is
 * first made by mkfile: one free entry of `size` bytes (16 or more). NULL after registering
 * "Couldn't open %s\n" or "Can't map file %s\n". */
MORVA_API Xheap* mapx(const char* path, const char* mode, int size);

/* A handle without a file, as a start for debuggers and tests; free it with closex. */
MORVA_API Xheap* newx(void);

/* Unmaps the file, frees the handle and all records, and clears the caller's pointer. The result of
 * munmap; 0 for a null handle. */
MORVA_API int closex(Xheap** heap);

/* ---- Entries ---- */

/* Stores `n` bytes under a name. What is there already is overwritten in place when its entry is
 * large enough, and otherwise deleted first. `data` and `name` may lie in the heap themselves.
 * Returns 0; or -1, with the reason registered, when the heap is read-only, was cut off, `n` is
 * negative, or no space could be had (a former value that was too small is gone then). */
MORVA_API int putx(Xheap* heap, const char* name, const void* data, int n);

/* As putx, but a writer that is killed at any instant leaves the old or the new value, and a
 * failure the old one: the new value gets an entry of its own before the old one is freed. The file
 * grows where putx would compact it. */
MORVA_API int putx_safe(Xheap* heap, const char* name, const void* data, int n);

/* Copies the data to the caller's buffer *buffer, which came from malloc and has *size bytes, or is
 * NULL. When it is too small, it is replaced by a zeroed one of *n bytes and *size updated. *n is
 * the length of the data. 0; or -1 without changing anything for an unknown name. */
MORVA_API int getx(Xheap* heap, const char* name, void** buffer, int* n, int* size);

/* Where the data are in the mapping, and how many bytes; `address` and `n` may be NULL. 0; or -1
 * for an unknown name. */
MORVA_API int getxaddr(Xheap* heap, const char* name, void** address, int* n);

/* As getx, but for readers of a heap that another process writes: looks at the entry anew, and
 * gives its data only when its CRC is right. When the entry is no longer where it was, the file is
 * looked through again (refreshx). -1 also when the writer interfered with every attempt. */
MORVA_API int readx(Xheap* heap, const char* name, void** buffer, int* n, int* size);

/* Maps the file as it is now, with what has been added to it since, and builds the lists anew. 0;
 * or -1, as mapx, the heap being as before. */
MORVA_API int refreshx(Xheap* heap);

/* Frees the entry of that name and joins it with the free ones beside it; nothing happens for an
 * unknown name. Returns 0, or -1 with the reason registered when the heap is read-only. */
MORVA_API int delx(Xheap* heap, const char* name);

/* A new list of the names, in the order of strcmp, to be freed by freetbl(list, NULL). The strings
 * are the heap's; each is valid until its entry is deleted or the lists are built anew. */
MORVA_API Tbl* namesx(Xheap* heap);

/* ---- Space ---- */

/* The bytes that an entry needs: strlen(name) + 17 + n. */
MORVA_API long reqx(const char* name, int n);

/* Takes an entry of at least `need` bytes (16 or more) out of the free list. When no free entry is
 * that large, the file grows (expandx) if all of them together have at most 10 * need bytes, and
 * otherwise is compacted (collapsex). The record, for the caller to free, of an entry that is still
 * a free one in the file; or NULL with the reason registered. */
MORVA_API Xheap_entry* spacex(Xheap* heap, int need);

/* Takes the first free entry of at least `need` bytes; what it has in excess of that stays free if
 * it is more than 16 bytes. NULL when there is none. *total becomes the number of free bytes up to
 * and with the entry, or of all. */
MORVA_API Xheap_entry* unusedx(Xheap* heap, int need, int* total);

/* Makes the file longer: to the larger of twice its length and its length + 2 * need, 2 GiB - 1 at
 * most. The disk blocks are allocated. 0; or -1, the heap being as before, after registering one of
 * "Can't create new file '%s'\n", "Failed to seek to end of new file '%s'\n", "Failed to write byte
 * at end of new file '%s'\n" and "Can't map file %s\n". */
MORVA_API int expandx(Xheap* heap, int need);

/* Moves all entries to the front, in order, so that the free space is one entry behind them. 0; or
 * -1 with the reason registered when the heap is read-only. */
MORVA_API int collapsex(Xheap* heap);

/* ---- Checks and repair ---- */

/* Builds the lists from the file. A size below 16 or that runs past the end becomes the rest of
 * the file, which is dropped (registered); an entry whose CRC is wrong is dropped with the
 * complaint "crc failed: '%s' %d bytes %x != %x\n" and a dump on standard error, one whose name and
 * data do not fit in it with "corrupt block at %p: entry too small for data\n". Of entries with the
 * same name the last counts, and the others are dropped. Returns 0. A NULL heap ends the program:
 * "heap pointer is null". */
MORVA_API int assimilatex(Xheap* heap);

/* Turns an entry into a free one: unless the heap is read-only, the entry is zeroed from its second
 * word to its end. The lengths and the CRC of `header`, which may be NULL, become 0, and so do the
 * record's name, data and data_length. The lists are left alone. */
MORVA_API void xdrop(Xheap* heap, Xheap_header* header, Xheap_entry* record);

/* Finds entries again that a wrong size word hides: those behind it, which openx would drop, and
 * the one that has it. For a handle from mapx: once the lists are built it is too late. Where the
 * chain of entries is broken, the bytes are searched for the next entry with a name and the right
 * CRC, sizes are set so that the chain holds, and then the lists are built. The number of entries
 * that were found in this way; -1 with the reason registered when the heap is read-only. */
MORVA_API long salvagex(Xheap* heap);

/* Complains of all that is inconsistent: between the entries of the file, and between file and
 * lists. 0, or -1 when there was anything.
 *   "no name for entry at %p"                        its name has no end, or the lists lack it
 *   "free entry at %p has name"                      traces of a name are left in it
 *   "too much data (%ld bytes) for size (%d bytes)"  they do not fit in the entry
 *   "crc failed for entry at %p"
 *   "unreferenced space before %p"                   the lists lack a free entry
 *   "sum of entry bytes (%d) != file size (%d)"
 *   "%d used + %d free != %d file size!!!"           according to the lists */
MORVA_API int verifyx(Xheap* heap);

/* As verifyx, but gives the findings as a new list of strings; free it with freetbl(list, free). */
MORVA_API Tbl* faultsx(Xheap* heap);

/* Print all entries of the file to standard output, in the order of their addresses: a heading,
 * then offset, size, data length and name of each, "**free**" for free ones; below that "No entries
 * with data" and "No free entries" where it is so, and the total. showx adds " => " and the data as
 * printable_string shows them, up to 64 characters; xheapshowlist prints no data. Return 0. */
MORVA_API int showx(Xheap* heap);
MORVA_API int xheapshowlist(Xheap* heap);

/* A header from the 16 bytes of a file to the host's order, and back. */
MORVA_API void hdr2host(const void* bytes, Xheap_header* header);
MORVA_API void host2hdr(const Xheap_header* header, void* bytes);

MORVA_END
#endif
