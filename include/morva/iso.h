/* ISO 8601: the times of other programs' files and messages, to the nanosecond.
 *
 *     int64_t ns;
 *     if (iso2epoch("2014-06-24T12:30:15.123456789+02:00", NULL, &ns) != 0) elog_complain(0, "no
 * time"); char* text = epoch2iso(ns, 3);                      // "2014-06-24T10:30:15.123Z"
 *
 * Unlike str2epoch, which takes what people type, this reads one notation strictly, and refuses all
 * that is not of it. Nanoseconds are counted since 1970-01-01 00:00:00 UTC in 64 bits, which reach
 * from 1677-09-21 to 2262-04-11.
 *
 * Threads: both functions may be called by any thread at any time.
 */
#ifndef MORVA_ISO_H
#define MORVA_ISO_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Reads a time: a date 2014-06-24, 2014-175, 20140624 or 2014175, by itself (its first instant in
 * UTC) or with T and a clock time 12, 12:30, 12:30:15 or, with a date without dashes, 1230 or
 * 123015; the last of its parts may have a fraction behind a point or comma (of which nine digits
 * count). Behind it Z or an offset from UTC, +02, +02:00, +0200; without one the time is UTC.
 * 24:00:00 is the end of the day, second 60 the first of the next minute. T and Z are capitals.
 *
 * Stores the time where the pointers are not null, `epoch` rounded to what a double holds. Returns
 * 0; or -1, with the reason registered and nothing stored, for any other text, for a day or a time
 * that does not exist, and for a time beyond the range where `nanoseconds` is asked for. */
MORVA_API int iso2epoch(const char* text, double* epoch, int64_t* nanoseconds);

/* Writes a time in UTC, with so many digits of the second's fraction (0 .. 9; cut, not rounded):
 * "2014-06-24T10:30:15.123Z". A new string, the caller's to free. */
MORVA_API char* epoch2iso(int64_t nanoseconds, int digits);

MORVA_END
#endif
