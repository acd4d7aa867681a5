/* Banner: programs tell who they are when they start.
 *
 *     elog_init(argc, argv);
 *     announce(NULL, "2.1");
 *
 * tells, through the message register at notify severity: the program, its version and the release
 * of the library; the revision of the library's source; when the program's file was made, if it is
 * found along PATH; and the command line:
 *
 *     wfserver 2.1   using libmorva 1.0.0 Linux-x86_64 2026-11-22  <#>
 *        5f1d0c26f3a94e1c8b3f7a0d94e2bb76c01c5f9e  <#>
 *         Sun Nov 22 08:15:00 2026 <#>
 *     --> wfserver -v AAK <#>
 *
 * "<#>" marks these lines in long logs. Release and revision are fixed when the library is built.
 * Null for a program, or an empty name, stands for Program_Name, or for the name of the executable
 * when that is empty; null for a version for the empty string. Times are local ones, as ctime
 * writes them. Texts on standard error are written at once, lines of other threads do not come
 * between them.
 *
 * Threads: all may be called at any time; of announce_str, see there. */
#ifndef MORVA_BANNER_H
#define MORVA_BANNER_H

#include "morva/export.h"

MORVA_BEGIN

/* Reports the lines above, with elog_notify, the last one by elog_commandline. */
MORVA_API void announce(const char* program, const char* version);

/* The same without the command line, as one text of at most 1023 characters, each line with its
 * newline. It is static: overwritten by the next call of any thread. */
MORVA_API char* announce_str(const char* program, const char* version);

/* The same without the command line, on standard error: program and version, the time of the file,
 * the release, the revision. */
MORVA_API void banner(const char* program, const char* version);

/* The banner of contributed programs, on standard error: name of the executable and version, the
 * time of its file, "Usage:" with the name and `usage`, the notice of the contributed software with
 * the release, author, location, and where to report problems. What is null or does not begin with
 * a printable character is left out. */
MORVA_API void cbanner(const char* version, const char* usage, const char* author,
                       const char* location, const char* email);

/* The command line as a new string that the caller frees: the running executable (or argv[0], or
 * "?program?", when the system does not tell), its last path component unless `full` is other than
 * 0, and the arguments, each behind a blank. */
MORVA_API char* cmdline(int argc, char** argv, int full);

/* Writes "command line: " and cmdline(argc, argv, 0) to standard error. */
MORVA_API void echo_cmdline(int argc, char** argv);

/* Complains that this program is deprecated. A `replacement` that begins with a printable character
 * is told in a line of its own: deprecate("Please use wf2 instead."). */
MORVA_API void deprecate(const char* replacement);

/* ---- What the library was built as ---- */

/* The release text of announcements ("libmorva 1.0.0 Linux-x86_64 2026-11-22": product, release
 * number, platform, date) and the revision text: 40 hexadecimal digits, all 0 when the revision was
 * not known. Static. */
MORVA_API const char* morva_release(void);
MORVA_API const char* morva_revision(void);

MORVA_END
#endif
