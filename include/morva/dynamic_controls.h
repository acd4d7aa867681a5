/* Dynamic controls: small named variables of a running program that other processes may change at
 * any moment, to switch on tracing or to move a threshold without a restart.
 *
 *     int verbose = dcsetupbyt("verbose", 0);
 *     int threshold = dcsetupflt("threshold", 3.5);
 *     for (;;) {
 *         if (dcgetb(verbose)) elog_notify(0, "threshold is %g\n", dcgetf(threshold));
 *         ...
 *     }
 *
 * The controls live in the file ".dynamic_controls" of the current folder, which is mapped into
 * every process that uses them; dccreate makes it. It holds sets of controls: a program takes the
 * set that carries its name, and set 0, "#common", belongs to all. Without such a file (or with the
 * environment variable NO_DYNAMIC_CONTROLS) the controls work in the memory of the process alone,
 * so that a program never needs to care whether anybody listens.
 *
 * Each set has 64 byte controls, and 16 each of integer, float and string controls, known by index.
 * Named controls take the indexes from the top; low ones are free for fixed use.
 *
 * Every function opens the file when that has not happened yet (dcopen), for the whole life of the
 * process. The file may be removed and made anew meanwhile: the process stays with the one it
 * mapped. A file that was cut off by another process is complained of once; what was in the part
 * that is gone reads as zeros.
 *
 * Threads: any thread may read and change controls at any time; a value is changed as a whole (a
 * string is one, too, unless two change it at once), and set up named ones. Selecting sets and
 * removing them is for one thread at a time. Between processes each number is read and written as a
 * whole; a string may be seen half changed. The change counter is raised after the value is stored:
 * who sees the new count sees the new value.
 *
 * Out of memory is fatal. In a process with more rights than its user the file is used only when it
 * belongs to the effective user and nobody else may write it. */
#ifndef MORVA_DYNAMIC_CONTROLS_H
#define MORVA_DYNAMIC_CONTROLS_H

#include <stddef.h>
#include <stdint.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/hot.h"
#include "morva/tbl.h"

MORVA_BEGIN

enum {
    DC_BYTES = 64,    /* byte controls of a set */
    DC_INTEGERS = 16, /* and so many of each other type */
    DC_FLOATS = 16,
    DC_STRINGS = 16,
    DC_STRING_SIZE = 32, /* bytes of a string control, the terminator included */
    DC_NAME_SIZE = 32,   /* bytes of a program's name, the terminator included */
    DC_NAMES_SIZE = 896  /* bytes for the names of controls */
};

/* A set of controls, as it lies in the file: 1832 bytes in the order of the machine. The name area
 * holds one byte with type and index (type number * 64 | index; 0 byte, 1 integer, 2 float,
 * 3 string) and the name with its terminator for each control; an empty name ends it. */
typedef struct Dcset {
    char program[DC_NAME_SIZE]; /* empty: the set is free */
    char reserved[32];
    uint8_t bytes[DC_BYTES];
    int64_t integers[DC_INTEGERS];
    double floats[DC_FLOATS];
    char strings[DC_STRINGS][DC_STRING_SIZE];
    double timestamp; /* epoch seconds of the last change; -1.0: none yet */
    int32_t pid;      /* -1: none */
    int32_t waited;   /* 0 unless somebody waits for a change */
    int64_t changes;  /* counts changes */
    int32_t used;     /* bytes of the name area in use */
    int32_t size;     /* and in all */
    uint8_t next[4];  /* the next named control of a type takes the index below this one */
    char names[DC_NAMES_SIZE];
    char padding[4];
} Dcset;

/* Named controls: each returns the index of the control `name` of this type in the selected set,
 * made with the default value if there was no control of this name; an existing one keeps its
 * value. -1 when a control of another type has the name, or no index of the type is left. Each
 * call counts as one change. A name area that is full is fatal, and so is a name for an index that
 * has another name already. */
MORVA_API int dcsetupbyt(const char* name, int default_value);
MORVA_API int dcsetupint(const char* name, long default_value);
MORVA_API int dcsetupflt(const char* name, double default_value);
MORVA_API int dcsetupstr(const char* name, const char* default_value);

/* Change a control of the selected set. An index out of range is fatal. A byte control takes the
 * low 8 bits, but 255 when these are zero and the value is not, so that true stays true. A string
 * control takes 31 bytes, and nothing of a null text. Each call counts as one change and sets the
 * time of the last one. They return 0. */
MORVA_API int dcsetb(int index, int value);
MORVA_API int dcseti(int index, long value);
MORVA_API int dcsetf(int index, double value);
MORVA_API int dcsets(int index, const char* text);

/* The value of a control of the selected set. An index out of range is fatal. The text of dcgets is
 * a new copy, which the caller frees. */
MORVA_HOT int dcgetb(int index);
MORVA_HOT long dcgeti(int index);
MORVA_HOT double dcgetf(int index);
MORVA_API char* dcgets(int index);

/* Stores the value of the named control of the selected set through `out` and returns its type: 'b'
 * (one byte is stored), 'i' (a long), 'f' (a double) or 's' (a char*, a new copy that the caller
 * frees). 0 for an unknown name, with nothing stored. A name with a code that no control can have
 * is fatal. */
MORVA_API int dcget(const char* name, void* out);

/* The value of a byte control, which becomes 0 in the same instant: of all that ask, one gets it.
 * This is no change for the counter. An index out of range is fatal. */
MORVA_API int dctrigger(int index);

/* The number of changes of the selected set so far, and the time of the last one in epoch seconds
 * (-1.0: none). To notice changes, compare the count with the one seen before. */
MORVA_HOT long dcchanged(void);
MORVA_API double dctimestamp(void);

/* Waits until the number of changes of the selected set is another than `changed`: 1, or 0 after
 * the milliseconds (negative: no limit). The thread sleeps, and whoever changes a control wakes it:
 *
 *     long seen = dcchanged();
 *     for (;;) {
 *         dcwait(seen, -1);
 *         seen = dcchanged();
 *         ...
 *     }
 *
 * A change that is made without this library, and the removal of the set, are noticed within a
 * tenth of a second; dctrigger is no change. */
MORVA_API int dcwait(long changed, int milliseconds);

/* Makes the file ".dynamic_controls" with empty sets in the current folder, unless there is one:
 * as many as the key maximum_dynamic_control_sets of the parameter file dynamic_controls_config
 * says (0 to 1000; 20 without it). Returns 0, or -1 with the reason registered. A process that
 * works in its own memory already goes on so. */
MORVA_API int dccreate(void);

/* Opens the controls. The selected set is the common one, or with `select` other than 0 the one of
 * this program (dcselect). Nothing happens when they are open already; so the common set stays
 * selected after dcopen(0), until dcselect is called. A file that cannot be used is complained of,
 * and private memory takes its place. The functions that get, set, set up, trigger or tell the
 * time of changes open with select 1, all others with 0. Returns 0. */
MORVA_API int dcopen(int select);

/* Selects the set of a program (31 characters of its name count); null or "": of this one, by
 * Program_Name. If there is none, the first free set becomes it; without a free one the common set
 * is selected. Returns 0. */
MORVA_API int dcselect(const char* program);

/* The selected set, and the number of sets. Programs that belong together may look at all of them:
 * dcselected() minus its number is the common set. */
MORVA_API Dcset* dcselected(void);
MORVA_API int dcmaxcontrols(void);

/* The names of all sets in use, as a new list that the caller frees with freetbl(tbl, 0); the names
 * themselves lie in the sets. */
MORVA_API Tbl* dcprograms(void);

/* A new array of the named controls of the selected set: name to code, as "b63" or "i15", which are
 * new copies. The caller frees it with freearr(arr, free). */
MORVA_API Arr* dcnames(void);

/* The name of a control by type ('b', 'i', 'f' or 's') and index, or "". It belongs to the set.
 * Another type, or an index that is not 0 to 63, is fatal. */
MORVA_API const char* dcname(int type, int index);

/* The byte that stands for a control in the name area. Fatal like dcname. */
MORVA_API int namecode(int type, int index);

/* 1 when there is a file and a set in it carries the name; for null or "" when there is a file.
 * Else 0. */
MORVA_API int dcexists(const char* program);

/* Frees every set but the common one that carries the name: all its controls are reset. Returns 0,
 * or -1 when there is none. With null or "" the file is removed: 0, or -1 with the reason
 * registered. */
MORVA_API int dcremove(const char* program);

/* Prints where the controls are to standard error and a line for each set in use to standard output
 * (number, address, process, name, time of the last change). The flag has no effect. Returns the
 * number of sets. */
MORVA_API int dcdump(int flag);

MORVA_END
#endif
