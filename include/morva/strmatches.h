/* Regular-expression matching, selection lists, and the hooks that keep compiled patterns.
 *
 *     static Hook* hook = 0;                        // one for each call site
 *     if (strmatches(channel, "BH[ZNE]", &hook) == 1) ...
 *     if (match_stachans("AAK,BBB:BH.", station, channel) > 0) ...
 *
 * Patterns are POSIX extended regular expressions in the C library's dialect, and the answers are
 * those of its regexec: the leftmost match, and of those the longest. In the C locale small
 * patterns are matched by a table, with the same answers.
 *
 * Patterns that would take the process's memory or minutes are refused like those that do not
 * compile. Once repetitions are written out ({9}{9} is 81 copies) a pattern may hold 8,192
 * characters, some 1,500 alternatives, and on the way through one of these some 700 optional or
 * repeated parts; its text may have 16,384 bytes, its groups nest 100 deep, its repetitions 10
 * deep. Repetitions of what may be empty, as (a*)*, and anchors inside of groups or among
 * repetitions are held shorter, an anchor may not itself be repeated, and back-references (\1) may
 * stand only beside a few alternatives and without unbounded repetition. Small patterns that fit a
 * table are free of these limits.
 *
 * Threads: all functions may be called from several threads, also with one hook, whose first use
 * may happen in several at once. A hook must not be freed while another thread uses it. */
#ifndef MORVA_STRMATCHES_H
#define MORVA_STRMATCHES_H

#include <pthread.h>
#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* What a call site keeps between calls. */
typedef struct Hook {
    uint32_t check; /* 0x308E0BC3 */
    void (*free_function)(void*);
    int32_t spare;        /* 0 */
    void* pvt;            /* null until the first use */
    pthread_mutex_t lock; /* for users of the hook; strmatches and strcontains do not take it */
} Hook;

/* A new hook. The function frees what pvt will hold; null for none. */
MORVA_API Hook* new_hook(void (*free_function)(void*));

/* Frees a hook and what it keeps, and sets the variable to null. A null variable or hook is
 * ignored; a record that is no hook ends the process. */
MORVA_API void free_hook(Hook** hook);

/* 1 when the pattern matches the whole string, else 0. The hook variable starts out null: the first
 * call makes the hook and compiles the pattern, later calls with this hook use that and ignore
 * their pattern argument. hook may be null; the pattern is then compiled for this call. A pattern
 * that does not compile is -2 with the reason registered, and -1, silently, in later calls with the
 * hook. */
MORVA_API int strmatches(const char* string, const char* pattern, Hook** hook);

/* As strmatches, but 1 when the pattern matches anywhere; start and length, either of which may be
 * null, become the place of the first match in bytes, and 0 when there is none. A hook may be used
 * with both functions. */
MORVA_API int strcontains(const char* string, const char* pattern, Hook** hook, int* start,
                          int* length);

/* 1 when the pattern matches, with "^" put before it and "$" behind it where it does not begin or
 * end with these, else 0. (They bind closer than "|": "a|b" matches what begins with a or ends with
 * b.)
 * "*" matches everything; a null or empty pattern nothing. One that does not compile is reported
 * with elog_complain and gives 0. Patterns of any length are taken, up to the limits above. Each
 * thread keeps its last pattern compiled. */
MORVA_API int match_string(const char* pattern, const char* string);

/* Whether a selection list selects a station and channel: the position, from 1, of the first entry
 * that does, and 0 when none does or the list is null or empty. Entries stand between commas, empty
 * ones count but select nothing; white space is dropped. An entry is STATION, for any channel, or
 * STATION:CHANNEL, divided at the first colon; both are patterns for match_string, and the channel
 * is tried first. Patterns that do not compile are complained of each time they are tried. -1 when
 * memory runs out. Each thread keeps its last list compiled, if it has at most 500 entries: call
 * with one list after another rather than with several in turn. */
MORVA_API int match_stachans(const char* spec, const char* station, const char* channel);

MORVA_END
#endif
