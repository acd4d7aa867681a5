/* Parameter files by name: found along the search path, merged, read again when they change, and
 * kept under their names for the whole program.
 *
 *     Pf* pf = NULL;
 *     for (;;) {
 *         if (pfupdate("acquire", &pf) < 0) elog_complain(0, "check acquire.pf\n");
 *         if (pf != NULL) listen(pfget_int(pf, "port"));
 *     }
 *
 * The search path is the value of PFPATH, folders separated by ":", or, when that is not set, the
 * folder data/pf of the installation root and then the current folder. "$NAME", "${NAME}" and a
 * leading "~" are expanded; an element that is itself a file counts as found whatever name is
 * searched, provided that it begins with "/". A process that runs with more rights than its user
 * ignores PFPATH and leaves the current folder out.
 *
 * A name needs no ".pf". All files of that name along the path are read into one tree, in path
 * order: a value of a later file replaces the whole value that an earlier one gives the same key of
 * the root. Nested arrays and lists are not merged. A name that begins with "./" or "/", or has a
 * folder in it, is looked up along the path by its last component, and the file so named is read
 * last.
 *
 * Missing files and unreadable ones are no errors; what is wrong inside a file is registered by the
 * reader, and the keys before and after it are kept. A null name finds nothing, nor
 * do names of 1024 bytes or more.
 *
 * Threads: the functions may be called from any thread. pfupdate and updatePf take turns, process-
 * wide, for their whole run. The trees have no lock: nobody may use a tree while another thread has
 * it read again, replaced or freed. A callback of the message register must not read parameter
 * files.
 */
#ifndef MORVA_PFREAD_H
#define MORVA_PFREAD_H

#include "morva/export.h"
#include "morva/pf.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* ---- Finding and reading ---- */

/* The files that `name` stands for, from lowest to highest priority: a new list of full names, to
 * be freed with freetbl(list, free). With a non-zero `all`, also those that do not exist or cannot
 * be read, in folders of the path that do exist, and the one that the name itself is. Preserves
 * errno. */
MORVA_API Tbl* pffiles(const char* name, int all);

/* Reads all files of `name` into a new tree, *pf, which the caller frees with pffree, also after a
 * failure; what *pf held before is neither used nor freed. Returns 0; -1 when no file could be
 * opened or the tree is empty; else the sum of the readers' results, negative when a file had
 * errors. */
MORVA_API int pfread(const char* name, Pf** pf);

/* Reads the one file that datapath(envname, dir, name, "pf") finds into a new tree, *pf, as pfread
 * does. Returns the reader's result: 0, or negative when the file had errors; or -1 with an empty
 * tree when there is no file ("Can't find parameter file DIR/NAME" is registered) or it cannot be
 * opened ("can't open 'FILE'", unless it has just gone). */
MORVA_API int pfload(const char* envname, const char* dir, const char* name, Pf** pf);

/* Prints the string that the key has in the files of `name`, and a newline, on standard output.
 * Returns 0, or -1 after a complaint: "Can't read parameter file NAME" (also when there are errors
 * in it) or "no entry 'KEY' in parameter file NAME". */
MORVA_API int pfprint(const char* filename, const char* key);

/* ---- Changes ---- */

/* A file and the state it was in. The fields behind the first two are more of what stat told, in
 * nanoseconds since 1970 and bytes. */
typedef struct Pftime {
    double mtime; /* modification time, epoch seconds */
    char* name;   /* full name, the record's own */
    int64_t modified_ns;
    int64_t changed_ns; /* of the file's status */
    int64_t size;
    uint64_t device;
    uint64_t inode;
    uint64_t content; /* pfupdate's digest of the bytes; 0 from pftimes */
} Pftime;

/* The files of pffiles(name, 0) that can be examined, in the same order: a new direct list of
 * Pftime, to be freed with freetbl(list, freepftime). */
MORVA_API Tbl* pftimes(const char* name);

/* Frees what a record of pftimes owns. Null is ignored. */
MORVA_API void freepftime(void* record);

/* Has the newest tree of `name` in the variable *pf, which must be the same variable in every call,
 * and null in the first; the tree stays the library's and lives until a later call replaces it.
 *   1  the files were read: for the first time through this variable, or because one has come,
 *      gone, or been modified or touched since; the tree before it, if *pf still holds it, is freed
 *   0  nothing has changed: *pf is the tree of the last read
 *  -1  there is no file: *pf is the tree of the last read, null when there was none
 *  <0  the files were read with errors, as pfread says: *pf is the tree with what could be read
 * A file has changed when its time of modification has. One that is written again within the same
 * tick of its file system's clock is noticed by its content; one whose old time is set again later
 * is not. Files that others write in place may be seen half-written, and again when they are
 * complete; files that are renamed into place are seen whole. The permissions of the process are
 * taken to stay what they are. With one variable for several names, only the tree that this call's
 * name was given before is freed. */
MORVA_API int pfupdate(const char* name, Pf** pf);

/* ---- Trees by name, for the whole program ---- */

/* The tree that is registered under the name, or null. It stays the registry's, and lives until it
 * is replaced or freed by one of the functions below. */
MORVA_API Pf* existsPf(const char* name);

/* The same; a tree that is not registered is first read with pfread and registered. Null when that
 * fails. Of two threads that read the same name at the same time, each gets the tree it has read,
 * and the one that comes later is registered; the other stays as it is, nobody frees it. */
MORVA_API Pf* getPf(const char* name);

/* Registers a tree, which becomes the registry's; a tree that it replaces is freed. Returns 0. */
MORVA_API int putPf(const char* name, Pf* pf);

/* The same, but the tree that is replaced is not freed. */
MORVA_API int putPf_nofree(const char* name, Pf* pf);

/* Brings the registered tree up to date, first registering it as getPf does. Returns 1 when the
 * files were read (always in the first call for a name) and the new tree is registered, the old one
 * being freed; 0 when nothing has changed; -1 when there are no files now; another negative number
 * when they have errors. With a negative result, the registered tree stays. */
MORVA_API int updatePf(const char* name);

/* Takes the name out of the registry and frees its tree. Returns 0, or -1 when it was not
 * registered. */
MORVA_API int freePf(const char* name);

MORVA_END
#endif
