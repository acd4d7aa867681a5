/* Parameter files as people keep them: what is wrong with a file, which line decided a value, and
 * changes that leave comments, order and layout alone.
 *
 *     Tbl* findings = pfcheck("orbserver");
 *     for (long i = 0; i < maxtbl(findings); ++i) {
 *         Pffinding* f = gettbl(findings, i);
 *         printf("%s:%ld:%ld: %s\n", f->file, f->line, f->column, f->text);
 *     }
 *     freetbl(findings, freepffinding);
 *
 * All of these read the text itself and evaluate nothing: no function of a parameter file is run.
 * Lines and columns count from 1, columns in bytes. Lists are the caller's, who frees them with the
 * free function named. Failures are registered. Any bytes may be read; nothing in them is trusted.
 * Threads: no state of their own; may be called from any thread. */
#ifndef MORVA_PFCHECK_H
#define MORVA_PFCHECK_H

#include "morva/export.h"
#include "morva/pf.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* ---- Findings ---- */

enum {
    PFWARNING = 1, /* read, but hardly as meant */
    PFERROR = 2    /* reading the file fails (pfread and its like give a negative result) */
};

typedef struct Pffinding {
    char* file;
    long line, column;
    int severity; /* PFWARNING or PFERROR */
    char* text;   /* one line, without a newline */
} Pffinding;

/* Frees one finding. */
MORVA_API void freepffinding(void* finding);

/* Reads every file of the name, as pfread would, and gives what is wrong with them, a list of
 * Pffinding in the order of the files and their lines (empty: nothing). Errors:
 *     blocks and literals without an end, at the line that opened them; a closing brace too many;
 *     blocks nested too deeply
 * Warnings:
 *     an opener that stands after other text, and so opens nothing; text that is ignored after an
 *     opener or a closing brace; a key that is given twice in one array of one file; references to
 *     values that do not exist or that lead back to themselves, also those of &ref(); names of
 *     functions that do not exist; keys and terminators that are cut; keys with a carriage return
 *     or an empty name; &Undef{} with nothing to remove; zero bytes
 * References are looked up in the merged tree, as programs do. Null when there is no such file or
 * one cannot be read. */
MORVA_API Tbl* pfcheck(const char* name);

/* The same for a text of `length` bytes; `file` is the name for the findings. Never null. */
MORVA_API Tbl* pfcheck_text(const char* text, long length, const char* file);

/* ---- Where a value comes from ---- */

typedef struct Pfplace {
    char* file;
    long line, column;   /* of the key, or of the item of a list */
    long offset, length; /* the bytes of the value in the file; of a block from its opener to its
                            closing brace */
    int type;   /* PFSTRING, PFFUNCTION, PFARR, PFTBL; PFINVALID: this took the value away */
    char* text; /* of strings and functions, unexpanded; else null */
} Pfplace;

/* Frees one place. */
MORVA_API void freepfplace(void* place);

/* Every place that has a say in the value of `path` (as for pfresolve) in the files of the name: a
 * list of Pfplace, first the one that decides, then what it overrode, latest first. When an array
 * was given anew without the entry, or &Undef{} removed it, the first place has the type PFINVALID.
 * Empty when no file has the path; null when there is no such file or one cannot be read. */
MORVA_API Tbl* pfwhere(const char* name, const char* path);

/* ---- Changes that keep the layout ---- */

enum {
    PFEDIT_VERBATIM = 1, /* the value is parameter text: "&env(HOME)", "&Tbl{\n1\n2\n}" */
    PFEDIT_BLOCKS = 2    /* the path may be a block; it goes with everything in it */
};

/* The text with the value of `path` replaced by the string `value`, written such that it reads back
 * as it is; a new string of *result_length bytes (may be null) and a zero byte, which the caller
 * frees. Only bytes of the value change. What does not exist is added: at the end of its array,
 * indented like its neighbours, with the arrays and lists that the path needs; the index of a list
 * may be its count. Null, with the reason registered, when the text has errors, when the path is
 * malformed or names a block (see PFEDIT_BLOCKS), and when the result would not read back with just
 * this change, which is always tried. */
MORVA_API char* pfedit(const char* text, long length, const char* path, const char* value,
                       int flags, long* result_length);

/* Does that with a file, which is replaced in one step (see pfwrite_atomic) unless nothing changes.
 * 0, or -1 with the reason registered, the file then being as it was. */
MORVA_API int pfedit_file(const char* file, const char* path, const char* value, int flags);

/* The text laid out anew: blocks indented by four blanks, a tab between key and value, no blanks at
 * the ends of lines; order, comments and values stay. A new string, which the caller frees, or null
 * with the reason registered when the text has errors. */
MORVA_API char* pfformat(const char* text, long length, long* result_length);

/* Does that with a file, as pfedit_file. */
MORVA_API int pfformat_file(const char* file);

MORVA_END
#endif
