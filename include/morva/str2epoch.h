/* Time strings: from what people type to epoch times.
 *
 *     double start = str2epoch("2014-06-24 12:30:15.5");     // also "6/24/2014 12:30:15.5",
 *                                                             // "2014175:12:30:15.5", ...
 *     double there;
 *     if (zstr2epoch("June 24 2014 12:00 US/Mountain", &there) != 0) elog_complain(0, "what
 * time?");
 *
 * A text is any number of tokens, in any order, in capitals or not: dates (2014-06-24, 6/24/2014,
 * 2014-175, 2014175, June 24, 24, 2014), clock times (12:30, 12:30:15.5, :30, 1:30 pm), both
 * (2014175:12:30:15, 2014:175:12:30:15, 2014:Jun:24:12:30:15), epoch times (1403568000.5), the
 * present and its neighbourhood (now, -1:30 an hour and a half ago, +:10 in ten minutes, -3days),
 * days of the week (which do not count) and at most one zone of the zone database, "LOCAL" being
 * the process's own. docs/times.md lists them all. Without a date, a clock time is one of
 * 1970-01-01, up to 168 hours; a year below 69 is in this century, below 100 in the last.
 *
 * Which of month and day comes first in 6/4/2014 is a matter of the house formats (is_month_first,
 * morva/epoch.h). A number alone is an epoch time; of two, the larger is the year and the smaller
 * the day.
 *
 * A text of nothing but blanks, and one that sets nothing ("0", "00:00"), is an error; the time is
 * 0. A text may have several errors; each counts, and there is a time nevertheless. A null text is
 * an empty one.
 *
 * Threads: every function may be called by any thread at any time. TZ is not touched.
 */
#ifndef MORVA_STR2EPOCH_H
#define MORVA_STR2EPOCH_H

#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* The time, however many errors the text has. Registers nothing. */
MORVA_API double str2epoch(const char* text);

/* Stores the time in any case. Returns 0, or minus the number of errors, the first of which is
 * registered ("str2epoch: Bad date format:'2014-6-24'"). */
MORVA_API int zstr2epoch(const char* text, double* epoch);

/* Stores the time in any case. Returns 1 when the text has no error, else 0. Registers nothing. */
MORVA_API int is_epoch_string(const char* text, double* epoch);

/* As str2epoch. Returns 1. */
MORVA_API int time_string2epoch(const char* text, double* epoch);

/* As zstr2epoch, but stores a time only if there is no error, and takes a date with slashes in
 * which month and day may be either way round (6/4/2014) for one: -1, with the reason registered.
 */
MORVA_API int str2epoch_strict(const char* text, double* epoch);

/* One step of reading a text. */
typedef struct Epoch_step {
    int rule;   /* the row in the table of docs/times.md; 0 for a conclusion from all tokens */
    long first; /* columns of the token in bytes, from 1; 0 for a conclusion */
    long last;
    char* said; /* what it was taken for, what it set, what is wrong with it */
} Epoch_step;

/* How a text is read: a new list of Epoch_step*, to be freed with freetbl(list, free_epoch_step).
 * Tokens come in their order, then the conclusions, and what a date with slashes means when day and
 * month change places. Stores the time and the number of errors where the pointers are not null.
 * Registers nothing. */
MORVA_API Tbl* str2epoch_explain(const char* text, double* epoch, int* errors);
MORVA_API void free_epoch_step(void* step);

MORVA_END
#endif
