/* Paths: the installation root, files found by name along a search path, variables of the
 * environment in texts, and paths taken apart, cleaned and compared.
 *
 *     char* table = datafile("UNITS", "units");    // along $UNITS, else $DATAPATH, else ROOT/data
 *     char dir[1024], base[1024];
 *     if (table == NULL) elog_die(0, "no units table");
 *     dirbase(table, dir, base);                   // "/opt/korvalin/RELEASE/data", "units"
 *     free(table);
 *
 * Conventions of the family:
 *   1. Paths hold at most 1024 bytes with their terminating zero, and so does every result buffer.
 *      A longer path is refused with -1 and a registered reason, and leaves the empty string in
 *      the result; nothing is written beyond the buffer. Along a search path, elements and
 *      candidates that are too long are passed over.
 *   2. A null path, name or text reads as an empty one. Result and argument may be the same buffer.
 *   3. Strings that are returned are new and the caller's to free, but for the installation root.
 *   4. A leading "~" stands for the current user's home directory, "~user" for another one's, where
 *      a function says so. Both come from the user database, not from the environment.
 *   5. The environment counts as empty in a process that runs with more rights than its user.
 *   6. But for the root there is no state: the functions may be called from several threads and
 *      processes at once.
 */
#ifndef MORVA_PATHS_H
#define MORVA_PATHS_H

#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* ---- The installation root ---- */

/* The root directory of the installed software, which holds bin, data and lib. The first call
 * decides it, by the first of these steps that yields one, and stores it with putkorvalin:
 *   1. the environment variable KORVALIN, when set, whatever it says;
 *   2. the built-in root, /opt/korvalin/RELEASE, when it is a directory;
 *   3. the running program, when it stands in a folder "bin": the folder that holds that one. Of a
 *      program that is known by a bare name only, the first of that name along PATH counts;
 *   4. the last directory that matches /opt/korvalin/[1-9].[0-9][a-z]*, in the order of glob(3).
 * When none does, the built-in root is returned and the next call looks again. The text is not the
 * caller's; it stays as it is as long as the process lives. May be called from any thread at any
 * time, but the first call changes the environment: make it before threads start. */
MORVA_API char* getkorvalin(void);

/* Makes a copy of `root` the text that getkorvalin returns from now on. The first root of a process
 * (be it the one that getkorvalin found) is also exported to the environment as KORVALIN; later
 * ones leave the entry alone, on purpose. A root of 1024 characters and more is cut to 1023.
 * Returns 0. */
MORVA_API int putkorvalin(const char* root);

/* ---- Searching ---- */

/* Every readable file that `name` stands for along `path`, in the order of the path: a new list of
 * new strings, freetbl(list, free). `path` is a list of directories with ":" between, empty
 * elements being left out; null or empty, it is the value of DATAPATH, or when that is unset the
 * root with
 * "/data" behind it. An element may begin with "~" or "~user". `subdir` is put behind each element
 * unless it is null or empty. What an element then names decides:
 *   - a directory: the candidates are directory/name, and behind it, when `name` has a "/" in it,
 *     directory/(what follows its last "/"). An empty name finds the directories themselves.
 *   - a file: it is a candidate itself, whatever the name, when it begins with "/".
 *   - nothing: passed over. That is no error, and nothing is registered.
 * "Readable" means by access(2), for the real user. Of `flags`, 1 has references to the environment
 * expanded first (expand_env), and 2 takes every candidate, readable or existing or not, relative
 * files too. Preserves errno. */
MORVA_API Tbl* datasearch(const char* path, const char* subdir, const char* name, int flags);

/* The first of what datasearch finds, or null; nothing is registered. The search path is the value
 * of the environment variable `envname` when it is given and set, and else as above, in either case
 * with its references to the environment expanded. A `suffix` that is not null or empty is put
 * behind the name with a dot between. Preserves errno. */
MORVA_API char* datapath(const char* envname, const char* subdir, const char* name,
                         const char* suffix);

/* As datapath without subdirectory and suffix. datafile("PATH", program) finds a program. */
MORVA_API char* datafile(const char* envname, const char* name);

/* Where a file may be written such that datapath, asked the same, would look: the first candidate
 * along the path that can be overwritten, or made in a directory that exists. Nothing is made. A
 * readable file of that name further ahead in the path is found before it. Null with the reason
 * registered when there is no such place, and for an empty name. */
MORVA_API char* newdata(const char* envname, const char* subdir, const char* name,
                        const char* suffix);

/* ---- The environment ---- */

/* A copy of `text` with the values of variables in place of the references to them: $NAME, where
 * the name is made of letters and digits (an underscore ends it), and ${NAME}, where it runs to the
 * next "}", or to the end of the text without one. Names are cut to 1023 characters. A reference to
 * a variable that is not set stays as it is. Values are not looked into again. Any length. */
MORVA_API char* expand_env(const char* text);

/* ---- Paths as texts: no file is looked at ---- */

/* Splits at the last "/": `dir` receives what precedes it, or "/" when nothing does, `base` what
 * follows. Without a "/", `dir` is "." and `base` the path. Null for `dir` or `base` leaves it out.
 * Returns 0, or -1 for too long a path; both are then empty. */
MORVA_API int dirbase(const char* path, char* dir, char* base);

/* As dirbase, but the directory of "/x" is empty, and unless `suffix` is null, the base name is cut
 * at its last dot: `suffix` receives what follows the dot. A base name without a dot, or whose only
 * dot is its first character (".profile"), stays whole, and the suffix is empty. */
MORVA_API int parsepath(const char* path, char* dir, char* base, char* suffix);

/* The paths up to a null, as one new string of any length with a single "/" wherever two meet.
 * Empty ones are left out; slashes elsewhere stay. */
MORVA_API char* concatpaths(const char* first, ...) MORVA_NULL_TERMINATED;

/* ---- Paths of this system ---- */

/* Writes a cleaned form of `path`: without "." and repeated or trailing slashes, and with ".."
 * having removed the component before it. The root is its own parent. A relative path is seen from
 * ".", and stays relative; what leads above it keeps its leading ".."; "." remains when nothing
 * else does, and before a "~" that is not to be replaced. "~" and "~user" are replaced. With
 * `follow_links`, every component that is a symbolic link is replaced by its target, so that the
 * result names the same file; without it, ".." behind a link may lead elsewhere than the system
 * would go. The file need not exist. Returns 0, or -1 with the reason registered, an empty result:
 * also for an unknown user, "too many symbolic links (>%d) for %s" (more than 32) and "can't read
 * link for %s". */
MORVA_API int cleanpath(const char* path, int follow_links, char* result);

/* As cleanpath without following links, for a relative path from the current directory: the result
 * begins with "/". When the current directory is unknown: -1 after registering "Can't discover
 * current directory: getcwd(3) fails\n", and the result is a copy of `path`. */
MORVA_API int abspath(const char* path, char* result);

/* Writes the relative path that leads from the directory `from` to `to`, "." when they are the
 * same. Both are made absolute first, and the links in them followed, since ".." leaves the
 * directory that a link leads to. Returns 0; or -1 when `from` is no existing directory, with the
 * reason registered: its last component is then left out (as of a file in the directory), and the
 * result is made all the same; or -1 as cleanpath. */
MORVA_API int relpath(const char* from, const char* to, char* result);

/* 1 when abspath makes the same text of both, else 0. */
MORVA_API int samepath(const char* a, const char* b);

/* The home directory of a user, of the effective user of the process when `user` is null or empty,
 * as a new string; null with the reason registered when the user database does not tell. */
MORVA_API char* homedir(const char* user);

/* ---- Making directories ---- */

/* Makes sure that `dir` is a directory in which the effective user may create files. Missing levels
 * are created, parents first, with mode 0775 (less the process's umask). Symbolic links are
 * followed. Returns 0, or -1 after registering one of "%s is not a directory\n", "can't write to
 * directory %s\n" (a directory on the way that lacks a level counts, too) and "Can't open or create
 * directory %s\n". Levels made before a failure stay, and a directory that somebody else creates at
 * the same moment is as good as one's own. An overlong, empty or null `dir` gives the last of
 * these. */
MORVA_API int makedir(const char* dir);

/* As makedir, for the directory part of a file path: everything before its last "/". A path without
 * a "/", or with only the leading one, needs nothing and gives 0. A null path is refused. */
MORVA_API int make_pathdirs(const char* path);

MORVA_END
#endif
