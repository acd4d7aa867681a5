/* Paths: making sure that directories exist before files are written into them.
 *
 *     if (make_pathdirs("/var/run/station/ABC/state") != 0) elog_complain(0, "no place for state");
 *
 * Paths hold at most 1024 bytes with their terminating zero; a longer one is refused. The functions
 * keep no state and may be called from several threads and processes at once: a directory that
 * somebody else creates at the same moment is as good as one's own.
 */
#ifndef MORVA_PATHS_H
#define MORVA_PATHS_H

#include "morva/export.h"

MORVA_BEGIN

/* Makes sure that `dir` is a directory in which the effective user may create files. Missing levels
 * are created, parents first, with mode 0775 (less the process's umask). Symbolic links are
 * followed. Returns 0, or -1 after registering one of "%s is not a directory\n", "can't write to
 * directory %s\n" (a directory on the way that lacks a level counts, too) and "Can't open or create
 * directory %s\n". Levels made before a failure stay. An overlong, empty or null `dir` gives the
 * last of these. */
MORVA_API int makedir(const char* dir);

/* As makedir, for the directory part of a file path: everything before its last "/". A path without
 * a "/", or with only the leading one, needs nothing and gives 0. */
MORVA_API int make_pathdirs(const char* path);

MORVA_END
#endif
