/* Pf: the tree of values that a parameter file becomes. The top node stands for the whole file,
 * inner nodes are lists (Tbl) or string-keyed arrays (Arr) of nodes, and the leaves are strings or
 * functions that are evaluated when they are fetched.
 *
 *     double rate = pfget_double(pf, "rate");                // ends the program when there is none
 *     char* first = pfget_string(pf, "stations{AAK}{channels}[0]");
 *     pfput_int(pf, "count", 12);
 *     pffree(pf);
 *
 * A tree owns its nodes: freeing the root frees all of it. A node and its string need not be blocks
 * of their own, since a reader makes many at once. So neither is given to free, and a string
 * stays with its node: pffree frees nodes, with their strings, and pfset replaces strings.
 *
 * None of these functions needs stack in proportion to the depth of a tree.
 *
 * Threads: a tree has no lock. Several threads may read it while none modifies it and none expands
 * the same values. The handlers below are process-wide settings, to be set before threads start. */
#ifndef MORVA_PF_H
#define MORVA_PF_H

#include <stdint.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/strmatches.h"
#include "morva/tbl.h"

MORVA_BEGIN

enum {
    PFEXEC_ERROR = -1,
    PFFILE = 0,        /* the root of a tree that was read; otherwise the same as PFARR */
    PFSTRING = 1,      /* a leaf */
    PFTBL = 2,         /* an ordered list of nodes */
    PFARR = 3,         /* an array from keys to nodes */
    PFUNDEFINED = 4,   /* no value */
    PFINVALID = 5,     /* not found */
    PFPLACEHOLDER = 6, /* made by path resolution, to become a string */
    PFFUNCTION = 7,    /* a leaf that has to be evaluated */
    PFGRAFT = 8        /* only as an argument of pfput: links a whole tree */
};

typedef struct Pf Pf;

/* The value of a function node. */
typedef struct Pffunct {
    char* text; /* the call as it stands in the file, "&env(HOME)" */
    Pf* result; /* what it evaluated to; null until then */
    Hook* hook; /* what the evaluator keeps with it */
} Pffunct;

/* A node. It owns its value and `expanded`. */
struct Pf {
    int32_t type;
    uint32_t place; /* the library's: where memory is shared with other nodes; 0 where it is not */
    union {
        void* any;
        char* string;   /* PFSTRING, PFUNDEFINED, PFINVALID, PFPLACEHOLDER; may be null */
        Arr* arr;       /* PFFILE, PFARR: of Pf* */
        Tbl* tbl;       /* PFTBL: of Pf* */
        Pffunct* funct; /* PFFUNCTION */
    } value;
    Pf* parent;     /* the enclosing node; null at the root */
    char* filename; /* where the node came from, for messages; lives as long as the process */
    char* expanded; /* the value as it was last expanded */
};

/* ---- Handlers ---- */

/* What a getter calls for a value that is missing or of the wrong type: with the node that was
 * searched, the path as given (an index in the pointer when that node is a list), the type that was
 * expected and the one found (PFINVALID when there is none), and the address of the getter's
 * result. A handler that stores a substitute there and returns makes it the result. */
typedef void (*Pfdie)(Pf* pf, char* key, int expected, int found, void* result);

/* The handler in use; _pfdie at first. */
extern MORVA_API Pfdie pfdie;

/* The handler at first. It ends the process, with the reason: on an array, a function or a string
 * for both faults; on a list for a missing item only, while an item of the wrong type is no error.
 */
MORVA_API void _pfdie(Pf* pf, char* key, int expected, int found, void* result);

/* Asks the user; what the function &ask( calls. Gives the answer as a new string from malloc, which
 * the library frees, or null for none. */
typedef char* (*Pfprompter)(const char* prompt);

/* The prompter in use; null at first. */
extern MORVA_API Pfprompter Pfprompt;

/* Sets one of the above: code "ask" Pfprompt, "die" pfdie (null: _pfdie again). Code "exec" with a
 * null value forbids the function &exec( to run commands, with any other allows it again; it is
 * allowed at first. Returns 0, or -1 for an unknown code, which is registered. */
MORVA_API int pfconfig(const char* code, void* value);

/* ---- Trees ---- */

/* A new node of the type with nothing in it; containers are empty, functions without text. Free it
 * with pffree, unless it becomes part of a tree. */
MORVA_API Pf* pfnew(int type);

/* Frees the node and everything under it; null is ignored. Do not free a node that is part of a
 * tree: pfdel takes it out. The value of a node whose type is none of the above, PFUNDEFINED or
 * PFPLACEHOLDER is left alone, with a complaint. */
MORVA_API void pffree(Pf* pf);

/* A deep copy, free it with pffree. Functions are copied without their results, PFINVALID without
 * its string; parent, filename and expanded of all copied nodes are null. A PFEXEC_ERROR,
 * PFUNDEFINED, PFPLACEHOLDER or unknown type anywhere in the tree ends the process. */
MORVA_API Pf* pfdup(Pf* pf);

/* 0 when both trees have the same types, keys and values, else 1; -1 when it meets two nodes of the
 * same unknown type before any difference, with the reason registered. Functions are compared by
 * their texts; PFUNDEFINED, PFINVALID, PFPLACEHOLDER and PFEXEC_ERROR by their strings, as
 * PFSTRING. Null strings and null nodes equal only each other. PFFILE and PFARR count as one type.
 */
MORVA_API int pfcmp(Pf* a, Pf* b);

/* Describes one node on standard error: label, address, type, value (strings as text), file name
 * and last expansion. */
MORVA_API void showpf(const char* label, Pf* pf);

/* ---- Getters ----
 *
 * These take a path (morva/pfresolve.h): "rate", "stations{AAK}{channels}[0]". Where pf is a list
 * it is an index instead, cast to a pointer, from 0; where pf is a string or function, that is the
 * value, whatever the path. Functions are evaluated and references expanded (morva/pfexpand.h).
 *
 * Programs need their parameters: a value of the wrong type goes to pfdie, and so does a number
 * that is missing, which by default ends the process. When the handler returns, so does the getter:
 * with what the handler stored through its last argument. That is the getter's number (or 0) for a
 * missing value, and for one of the wrong type a Pf*, the node that was found, which the handler
 * may replace by one of the right type; a wrong one that is left gives 0 or null.
 *
 * Strings that getters give belong to the tree: they are valid until the same node is fetched with
 * another result, modified or freed. */

/* The string, null when there is none. */
MORVA_API char* pfget_string(Pf* pf, const char* path);

/* Numbers. The whole string must be one, with white space around it; else "Bad integer value '%s'
 * for %s", or "Bad floating point value", is a complaint, and what the number is up to the first
 * other character is the result. Integers may be hexadecimal (0x1F) or octal (010), and are cut to
 * the range of long. Floating point numbers are what fix_strtod takes, whatever the locale. */
MORVA_API long pfget_int(Pf* pf, const char* path);
MORVA_API double pfget_double(Pf* pf, const char* path);

/* A number with a size suffix, as sz2dbl reads it; anything else in the string is ignored. */
MORVA_API double pfget_size(Pf* pf, const char* path);

/* -1 for the words that yesno takes as yes, else 0: for its words for no, when there is no value,
 * and, with the complaint "Bad boolean value '%s' for %s", for any other. */
MORVA_API int pfget_boolean(Pf* pf, const char* path);

/* A new list of the values of a list: the strings, and for entries that are no strings their Pf*
 * (null for none). A new array of the strings of an array; other entries are left out. Free them
 * with freetbl(list, NULL) and freearr(arr, NULL). Null when there is none. An empty path on an
 * array means the array itself. */
MORVA_API Tbl* pfget_tbl(Pf* pf, const char* path);
MORVA_API Arr* pfget_arr(Pf* pf, const char* path);

/* One entry of a container: `key` is a key, not a path, or for a list the index. Returns the type
 * and stores the string (valid as above) for PFSTRING, else the node, or with PFINVALID null when
 * there is none. A string is its own entry, whatever the key; so is a function. Never ends the
 * process; a pf of unknown type is a complaint. */
MORVA_API int pfget(Pf* pf, char* key, void** value);

/* The number of items of a list, 0 for any other node. */
MORVA_API long pfmaxtbl(Pf* pf);

/* A new list of the keys of an array in their order, null for any other node. Free it with
 * freetbl(list, NULL); the keys are the array's. */
MORVA_API Tbl* pfkeys(Pf* pf);

/* What the typed getters do first: stores the node at the path, evaluated, or null, and returns its
 * type, PFINVALID when there is none. A node of another type than `expected` goes to pfdie with
 * `node`, unless PFPLACEHOLDER is expected, which stands for any. */
MORVA_API int _pfeval(Pf* pf, const char* path, Pf** node, int expected);

/* The number in a string times what its last character stands for: G 1e9, M 1e6, k 1e3, m 1e-3,
 * u 1e-6, anything else 1. "1.5G" is 1.5e9, "4K" is 4; null and what is no number are 0. */
MORVA_API double sz2dbl(const char* string);

/* ---- Setters ----
 *
 * `pf` is an array, and key its string, or a list: then key is the index, cast to a pointer, from
 * 0; behind the end, slots that are skipped are left without a node, and a negative index appends.
 * What the entry held is freed. The parent and the file name of the new node stay unset. Any other
 * pf ends the process. All but pfset return 0. */

/* Stores a new node of the type, whose value is made of `value`:
 *     PFSTRING, PFFUNCTION   a copy of the string; null gives a node without one
 *     PFFILE, PFARR, PFTBL   the Arr or Tbl itself, whose values must be Pf*; the tree owns it from
 *                            now on, null stands for an empty one
 *     PFGRAFT                the Pf itself becomes the child, a PFFILE becomes a PFARR
 * Any other type ends the process. The string may come from the entry that is replaced; so may the
 * Arr, the Tbl or the Pf as a whole, but parts of them only after pfdel has taken them out. */
MORVA_API int pfput(Pf* pf, char* key, void* value, int type);

/* Store a string; the others the string that reads back as the value: decimal digits, what strdbl
 * writes (15 digits), "True" or "False". */
MORVA_API int pfput_string(Pf* pf, char* key, const char* string);
MORVA_API int pfput_int(Pf* pf, char* key, long value);
MORVA_API int pfput_double(Pf* pf, char* key, double value);
MORVA_API int pfput_boolean(Pf* pf, char* key, int value);

/* Store a list or an array of strings: copies of those in `tbl` or `arr`, which the caller keeps. A
 * null item becomes a string node without a string. Null stands for an empty list or array. */
MORVA_API int pfput_tbl(Pf* pf, char* key, Tbl* tbl);
MORVA_API int pfput_arr(Pf* pf, char* key, Arr* arr);

/* Makes the node at a path (morva/pfresolve.h) a copy of the string, whatever it was; what is
 * missing on the way there is created. Returns 0, or -1 when the path cannot be resolved, which is
 * registered. */
MORVA_API int pfset(Pf* pf, const char* path, const char* string);

/* Takes an entry out of the tree. In a list, the items behind it move up. Returns its node, a root
 * of its own now, which the caller frees with pffree; null when there is none or pf is neither
 * array nor list. */
MORVA_API Pf* pfdel(Pf* pf, char* key);

MORVA_END
#endif
