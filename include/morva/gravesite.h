/* The gravesite: a few variables of a program that survive its end.
 *
 *     static int caught;
 *     static double last;     // time of the last packet
 *     exhume("state/acquire", &caught, 10, 0);
 *     resurrect("last", &last, RELIC_TIME);
 *     while (!caught) { ... last = packet.time; }
 *     bury();
 *
 * exhume opens and locks the state file, resurrect gives each variable the value it had and
 * registers it, and bury writes the values of all registered variables. A program that ends by
 * elog_die buries first, and so does one that is sent SIGHUP, SIGINT, SIGQUIT or SIGTERM when
 * exhume was given a flag.
 *
 * The state file is a parameter file with an entry for each variable. It is replaced as a whole:
 * the new text is written to the same name with "+" behind it, and renamed when it is on the disk,
 * so that after a crash or a loss of power the file is the old or the new one. The lock on it is
 * held as long as the process lives, also through a burial.
 *
 * Signals: the handler itself does nothing but set flags. Burying takes place in a thread of the
 * library. With a wait of 0 the interrupted thread stands still meanwhile, for half a second at
 * most: then, or if it is burying itself, it runs on, since it may hold what the burial waits for.
 * Where the file's folder is on a network, the lock is best effort.
 *
 * Threads: all functions may be called from any thread. The values are read while other threads may
 * change them; what must fit together is stored by the program before it calls bury itself. */
#ifndef MORVA_GRAVESITE_H
#define MORVA_GRAVESITE_H

#include <stdint.h>
#include <stdio.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/pf.h"
#include "skerrows.h"

MORVA_BEGIN

/* The grave of the process, reached through `grave` under `grave_mutex` (skerrows.h). */
typedef struct Grave {
    char* path;           /* of the state file */
    char* alternate;      /* the same with "+" */
    FILE* file;           /* open and locked as long as the process lives */
    Arr* relics;          /* variables by name: Relic records */
    Pf* contents;         /* what was in the file; null when it was new */
    int32_t* signal_flag; /* takes the number of a signal, or null */
    int32_t wait;         /* seconds from a signal to the burial */
    Mortician mortician;  /* adds values before a burial, or null */
    int32_t pending;      /* 1 from a signal to the burial */
} Grave;

typedef struct Relic {
    void* address;
    int32_t type;
} Relic;

/* Types of variables: int, double, char*, and double as epoch time. */
enum { RELIC_INT, RELIC_DOUBLE, RELIC_STRING, RELIC_TIME };

/* Opens the state file, makes it and its folders when there are none, and locks it. Another process
 * that holds the lock is a complaint and ends this one with status 1. Returns 0 for a new file, 1
 * for one that was read, 2 for one that could not be read without errors (what could be is used),
 * -1 with the reason registered when it cannot be opened, and -2, changing nothing, when the
 * process has a grave already. Clears errno otherwise.
 *
 * With a flag, which becomes 0, the four signals are handled: the flag takes the signal's number. A
 * wait of 0 buries and ends the process with status 1 at once. With a positive one the program has
 * so many seconds to end, or bury, by itself; then it is buried and ended by elog_die. With a
 * negative one nothing else happens. Before every burial the mortician, unless it is null, is given
 * the new tree to add to; it must not call functions of this header. */
MORVA_API int exhume(const char* path, int* signal_flag, int wait, Mortician mortician);

/* Stores what the state file has under the name in the variable: 0; or leaves it alone when there
 * is none: 1. Registers the variable in both cases. A string that is stored belongs to the library.
 * -1 when there is no grave. */
MORVA_API int resurrect(const char* name, void* address, int type);

/* Writes the state file. Returns 0, or -1: with a complaint, or silently when there is no grave. A
 * null string is saved as an empty one; times are written in UTC. */
MORVA_API int bury(void);

/* Buries every `seconds` from a thread of its own. Returns the index of the task (periodic.h), or
 * -1. */
MORVA_API int bury_periodically(double seconds);

/* The path of the state file; before exhume what custom_gravesite was given, or null. It belongs to
 * the library. custom_gravesite returns 0. */
MORVA_API char* gravesite(void);
MORVA_API int custom_gravesite(const char* path);

MORVA_END
#endif
