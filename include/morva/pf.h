/* Pf: the tree of values that a parameter file becomes. The top node stands for the whole file,
 * inner nodes are lists (Tbl) or string-keyed arrays (Arr) of nodes, and the leaves are strings or
 * functions that are evaluated when they are fetched.
 *
 *     Pf* copy = pfdup(pf);
 *     if (pfcmp(pf, copy) != 0) showpf("differs", copy);
 *     pffree(copy);
 *
 * A tree owns its nodes: freeing the root frees all of it. Every node, every string in it and every
 * function record is a block of its own from malloc, so that a caller may replace the string in a
 * node's value: free the old one, store a new one from malloc.
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

/* ---- Setters ----
 *
 * `pf` is an array, and key its string, or a list: then key is the index, cast to a pointer, from
 * 0; behind the end, slots that are skipped are left without a node, and a negative index appends.
 * What the entry held is freed. The parent and the file name of the new node stay unset. Any other
 * pf ends the process. All return 0. */

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

/* Takes an entry out of the tree. In a list, the items behind it move up. Returns its node, a root
 * of its own now, which the caller frees with pffree; null when there is none or pf is neither
 * array nor list. */
MORVA_API Pf* pfdel(Pf* pf, char* key);

MORVA_END
#endif
