/* Rings: short histories of one measured quantity, in small files that outlive their writer.
 *
 *     char id[64] = "latency of AAK";
 *     Ring* ring = openring("latency.ring", id, 3600, 0);     // made when it is missing
 *     if (ring == NULL) elog_die(0, "no history of the latency");
 *     pushring(ring, std_now(), latency);
 *     int n;
 *     double mean, deviation;
 *     meanring(ring, &n, &mean, &deviation, 600.0);           // over the last ten minutes
 *     closering(ring);
 *
 * A ring holds the newest (time, value) pairs of a quantity; point 0 is the newest. One program
 * writes, any number of others read at the same time through mappings of the same file
 * (docs/formats/ring.md), and every change is in the file at once.
 *
 * Conventions of the family, beyond those of morva.h:
 *   1. Times are epoch seconds. A span is seconds back from the time t0 of the newest point; a
 *      point is in the span when time > t0 - span, unless a function says otherwise.
 *   2. A step in time of more than `gap` seconds is a break in the data, marked by points whose
 *      value is `null`. "Without breaks" means: points of the value `null` are left out, unless gap
 *      is 0, which switches breaks off.
 *   3. Pointers for results may be null. Indices outside the ring are no error and change nothing.
 *   4. A file is checked when it is opened. Whatever another process does to it afterwards, no
 *      function reads or writes outside of it. Of a file that is cut off, zeros remain: storing
 *      then gives -1, and the first to notice (closering at the latest) complains once.
 *   5. A writer that is killed at any instant leaves a file that opens, with every point but the
 *      one in the making; at most the oldest point of a full ring is lost. Readers see points as
 *      wholes, never a count beyond the data. Queries begin again, up to four times and in small
 *      rings more often, when a full ring's oldest points are overwritten meanwhile; getring and
 *      snapring never give a mixture.
 *   6. No locks: users of one handle take turns. Handles of one file may be used by different
 *      threads and processes at once, as long as one of them writes.
 *   7. The functions that store points report -1 (the ring was opened to be read, or its file was
 *      cut off) and -2 (the time is before the newest point's, or equal with an equal value)
 * without registering anything.
 */
#ifndef MORVA_RING_H
#define MORVA_RING_H

#include <stdint.h>

#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* The head of a ring file, as it is in the file. */
typedef struct Ring_header {
    char magic[8]; /* "newringb", without a terminator */
    char id[64];   /* what the ring is of, padded with zeros */
    int32_t index; /* slot of the newest point */
    int32_t count; /* number of points, at most size */
    int32_t size;  /* number of slots */
    int32_t flags; /* the flags it was made with, bit 0 cleared */
    double gap;    /* the largest step in time that is no break; 0: no breaks */
    double null;   /* the value that marks a break */
} Ring_header;

typedef struct Ring_point {
    double time; /* epoch seconds */
    double value;
} Ring_point;

typedef struct Ring {
    Ring_header* header; /* the mapped file */
    Ring_point* points;  /* its first slot */
    int64_t length;      /* bytes mapped */
    int32_t readonly;    /* not 0: opened to be read */
    char* path;          /* the file's name */
    int32_t size;        /* number of slots that the file was found to hold */
    void* guard;         /* this and the rest are the library's */
    uint64_t full;
    uint64_t last;
} Ring;

/* ---- Files ---- */

#define RING_ID_SIZE 64
#define RING_READONLY 1 /* in the flags of openring */

/* Makes a ring file of `size` slots (at least 1), all zero, with a gap of 60 seconds and the null
 * value -99999999. Of `id`, the text up to its end, 64 bytes at most, is stored. A missing file
 * appears complete; an existing one is emptied and written anew, under the eyes of those who have
 * it open. Its blocks are allocated, so that later pushes do not fail for want of space. The mode
 * is 0666 less the umask. Returns 0; or -1 after registering one of "Can't open new ring buffer
 * %s", "Can't write new ring buffer %s", "Can't write new ring buffer data %s" and "Can't close new
 * ring buffer %s". */
MORVA_API int newring(const char* path, const char* id, int size, int flags);

/* Opens a ring file. Unless bit 0 of `flags` asks to read only, a missing file is first made by
 * newring(path, id, size, flags); an existing one keeps its size. `id`, a buffer of 64 bytes,
 * receives the file's id, which has no terminating zero when it fills them; null is left alone.
 *
 * Returns the handle, for closering or rmring; or null with the reason registered: "Can't open
 * ringbuffer %s.", "failed to mmap ringbuffer %s" (also for an empty file), "Bad magic number while
 * trying to read ring buffer.\n", "ring buffer %s can't be used: ..." for one whose size, count or
 * index do not fit it. While another process opens the same file for writing, or holds a lock on
 * it, opening for writing complains "Can't lock '%s' for exclusive use\n" (or that the file is on
 * an NFS file system) and gives null. The lock is let go before the function returns: it keeps two
 * programs from starting together, not from writing together. */
MORVA_API Ring* openring(const char* path, char* id, int size, int flags);

/* Unmaps the file and frees the handle; rmring removes the file, too. Return 0, or the results of
 * munmap and remove or-ed together. */
MORVA_API int closering(Ring* ring);
MORVA_API int rmring(Ring* ring);

/* The id inside the mapping: at most 64 characters ("%.64s"). */
MORVA_API char* idring(Ring* ring);

/* The name that the ring was opened by; the handle's. */
MORVA_API char* filenamering(Ring* ring);

/* Stores what makes a break and what marks it, in the file. Returns 0, or -1 when the ring was
 * opened to be read. */
MORVA_API int setring(Ring* ring, double gap, double null);

/* ---- Storing ---- */

/* Stores a point. When its time is more than `gap` after the newest point's, two points of the null
 * value, at the newest time and at `time`, go before it. Another value at the newest time is
 * stored. A NaN equals nothing and is neither early nor late. 0, -1 or -2. */
MORVA_API int pushring(Ring* ring, double time, double value);

/* As pushring, but thrifty: with the method "collapse", a run of equal values keeps its first and
 * its last point only, by moving the newest point to `time` when it and the one before it have the
 * value already. Behind a break the point is stored as it is, whatever the method. 0, -1, -2; or -3
 * after registering "unrecognized cramring method '%s'". */
MORVA_API int cramring(Ring* ring, const char* method, double time, double value);

/* Stores a point whatever its time, and marks no break. 0 or -1. */
MORVA_API int addring(Ring* ring, double time, double value);

/* ---- Queries ---- */

/* The number of points. */
MORVA_API long countring(Ring* ring);

/* Point i. 0, or -1 when there is none. */
MORVA_API int getring(Ring* ring, int i, double* time, double* value);

/* When there is something newer than *time: the newest point that is earlier than *time goes to
 * both arguments. 0, or -1 without either. */
MORVA_API int valring(Ring* ring, double* time, double* value);

/* The largest value around a time: of the points within *time plus or minus halfwidth, from the
 * newest to the first that is too early, the one with the largest value above -9e38 (the newest of
 * equals) goes to both arguments. 0; or -1, *value being -9e38 and *time as it was. Breaks are
 * points like others here. */
MORVA_API int nearbymaxring(Ring* ring, double* time, double* value, double halfwidth);

/* The index of the newest point in the span with that value, or -1. */
MORVA_API long findring(Ring* ring, double value, double span);

/* How far back the data are whole: the largest i such that the points 0 .. i are all in the span
 * and none marks a break; -1 when the newest is not so. */
MORVA_API long tallyring(Ring* ring, double span);

/* When the value changed last: the index of the newest point whose value differs from point 0's, be
 * it in the span or not (a NaN differs from everything); 0 when an equal point outside the span
 * comes first, or all are equal. */
MORVA_API long changedring(Ring* ring, double span);

/* The largest and the smallest value in the span, without breaks and NaNs, and the index of the
 * newest point that has it; -infinity or +infinity, and -1, when there is none. */
MORVA_API double maxring(Ring* ring, int* i, double span);
MORVA_API double minring(Ring* ring, int* i, double span);

/* Number, mean and standard deviation (with n - 1 below; 0 when n < 2) of the values at times >= t0
 * - span, without breaks. Exact also where the deviation is tiny beside the mean. 0; or -1 without
 * a point, mean and deviation being 0. avgring returns the mean. */
MORVA_API int meanring(Ring* ring, int* n, double* mean, double* deviation, double span);
MORVA_API double avgring(Ring* ring, double span);

/* The straight line of least squares through the points at times >= t0 - span, without breaks:
 * value = intercept + slope * time, and the correlation r (NaN when all values are equal). When all
 * times are equal, slope and intercept are +infinity and r is 0. 0; or -1 with fewer than two
 * points, all three being 0. */
MORVA_API int linearfitring(Ring* ring, int* n, double* slope, double* intercept, double* r,
                            double span);

/* Quantiles of the values in the span, without breaks and NaNs: values[k] becomes the value below
 * which the fraction fractions[k] (0 .. 1) of them lies, interpolated linearly between neighbours:
 * definition 7 of Hyndman and Fan, The American Statistician 50 (1996). Returns the number of
 * values used; when that is 0, or for a fraction outside 0 .. 1, NaN is stored. */
MORVA_API long quantilesring(Ring* ring, const double* fractions, double* values, int n,
                             double span);

/* Copies the newest points, `max` at most, newest first: the points of one instant, however fast
 * the writer is. When it overtakes every attempt, the oldest points are left out. Returns their
 * number. */
MORVA_API long snapring(Ring* ring, Ring_point* points, long max);

/* ---- Points for plotting ----
 *
 * Lists of items by value (inittbl) with room for 100 at first and the null value Vknullpt. A null
 * list is made; a list that exists is added to. The caller frees it with freetbl(list, NULL). */

typedef struct Vkpoint {
    double x;
    double y;
} Vkpoint;

typedef struct Vkipoint {
    int32_t x;
    int32_t y;
} Vkipoint;

/* A vertical run in column x. */
typedef struct Vklpt {
    int32_t x;
    int32_t low;
    int32_t high;
} Vklpt;

/* What reading outside of such a list gives: -9.9e-34 twice, in the lists of integers its first
 * bytes. */
extern MORVA_API const Vkpoint Vknullpt;

/* Puts the ring's points with end - span < time <= end in front of the list, oldest first; the walk
 * back from the newest stops at the first that is too early. An `end` of 0 is now. Points that mark
 * breaks are among them. Returns the number added. */
MORVA_API long ptsring(Ring* ring, Tbl** points, double end, double span);

/* Smallest and largest time, smallest and largest value of a list of Vkpoint, into range[0] ..
 * range[3]; NaNs are left out. 0; or -1, all four being -9.9e-34, for an empty list. */
MORVA_API int ptsrange(Tbl* points, double* range);

/* Appends (a x + b, c y + d) for each point (x, y), where scale is a, b, c, d. iscalepts appends
 * integers: 0.5 is added, then the fraction cut; what no int can hold becomes the nearest, a NaN 0.
 * Return 0. */
MORVA_API int scalepts(Tbl* points, Tbl** out, const double* scale);
MORVA_API int iscalepts(Tbl* points, Tbl** out, const double* scale);

/* Reduces a list of Vkipoint, sorted by x, to one vertical run (Vklpt) for each column that has
 * points: its lowest and highest y, both clamped to -1 .. height + 1. Points at negative x are left
 * out, and so is everything from the first x greater than `width` on. Between columns with empty
 * ones between them a run is put half way (rounded down), from the last y of the one to the first y
 * of the other. Returns 0. */
MORVA_API int decimatepts(Tbl* points, int width, int height, Tbl** out);

/* Print a list of Vkpoint, Vkipoint or Vklpt to standard output, a line each: index and numbers.
 * debug_some_points prints the first and the last n points of a list of Vkpoint. Return 0. */
MORVA_API int debug_vkpoint_tbl(Tbl* points);
MORVA_API int debug_vkipoint_tbl(Tbl* points);
MORVA_API int debug_vklpt_tbl(Tbl* points);
MORVA_API int debug_some_points(Tbl* points, int n);

MORVA_END
#endif
