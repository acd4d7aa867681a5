/* Ringlets: the newest records of any fixed-size kind, in a file that outlives its writer.
 *
 *     struct Seen { double time; int port; } seen = {std_now(), 6510}, *last;
 *     Ringlet* ringlet = openringlet("state/seen", 100, sizeof seen);   // made when it is missing
 *     if (ringlet == NULL) elog_die(0, "no history");
 *     pushringlet(ringlet, &seen);
 *     void* record;
 *     if (getringlet(ringlet, 0, &record) == 0) last = record;          // the newest
 *     closeringlet(ringlet);
 *
 * The store is a ring's (morva/ring.h) without times: record 0 is the newest. What is said there
 * about files, killed writers, other processes and threads holds here, too, but for two things:
 * records are read in place, and a reader in another process may see one of a full ringlet's oldest
 * records while it is overwritten; a killed writer may lose the oldest record also of a ringlet
 * that is not full. docs/formats/ring.md has the layout.
 */
#ifndef MORVA_RINGLET_H
#define MORVA_RINGLET_H

#include <stddef.h>
#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* The head of a ringlet file, as it is in the file. */
typedef struct Ringlet_header {
    char magic[8];  /* "ringlet" and a zero */
    int64_t index;  /* slot of the newest record */
    int64_t count;  /* number of records, at most nslots */
    int64_t nslots; /* number of slots */
    int64_t size;   /* bytes of a record */
} Ringlet_header;

typedef struct Ringlet {
    Ringlet_header* header; /* the mapped file */
    char* records;          /* its first slot */
    int64_t length;         /* bytes mapped */
    int32_t readonly;       /* not 0: another process held the lock when it was opened */
    int64_t nslots;         /* slots and bytes of a record that the file was found to hold */
    int64_t size;
    void* guard;   /* this and the rest are the library's */
    int64_t given; /* bytes of a record that its user has */
    size_t quick;
    size_t last;
} Ringlet;

/* Makes a ringlet file of `nslots` records of `size` bytes (both at least 1), all zero, as newring
 * makes a ring's, with the same messages. 0, or -1 with the reason registered. */
MORVA_API int newringlet(const char* path, long nslots, long size);

/* Opens a ringlet for writing. Missing folders of the path and a missing file are made first; an
 * existing file keeps its own nslots and size, which the handle tells. That its records are not of
 * `size` bytes is registered, unless size is below 1. When another process holds a lock on the
 * file, that is registered ("Can't lock '%s' for exclusive use\n") and the handle is read-only,
 * unlike with rings; on an NFS file system the lack of a lock is complained of and the handle can
 * write. Returns the handle, for closeringlet; or null with the reason registered: "ringlet buffer
 * file '%s' does not exist", "Can't open ringlet %s.", "failed to mmap ringlet %s", "Bad magic
 * number while trying to read ringlet.\n", "ringlet %s can't be used: ...". */
MORVA_API Ringlet* openringlet(const char* path, long nslots, long size);

/* Unmaps the file and frees the handle. 0, or -1 when munmap fails. */
MORVA_API int closeringlet(Ringlet* ringlet);

/* Stores a copy of a record: as many bytes as openringlet was told, or all of ringlet->size when it
 * was told less than 1. What the file's records have beyond that becomes zeros. 0, or -1 when the
 * handle is read-only. */
MORVA_API int pushringlet(Ringlet* ringlet, const void* record);

/* The number of records. */
MORVA_API long countringlet(Ringlet* ringlet);

/* Record i: its address inside the mapping, valid until the ringlet is closed or the slot is used
 * again, `nslots - i` pushes later. 0, or -1 when there is none. */
MORVA_API int getringlet(Ringlet* ringlet, long i, void** record);

MORVA_END
#endif
