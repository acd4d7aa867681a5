/* Files: dumps of bytes for people, files made, mapped and examined, lines from descriptors, and
 * numbers read the same in every locale.
 *
 *     void* address;
 *     long size;
 *     if (mapfile("station.tab", 0, &address, &size) != 0) elog_die(0, "no station table");
 *     hexdump(stderr, address, size < 64 ? (int)size : 64);
 *     if (size > 0) munmap(address, size);
 *
 * Functions that return a failure register the reason, except restat, is_file, is_filename and
 * fdgets, whose callers ask because they do not know: these leave it in errno. There is no
 * process-wide state; every function may be called from any thread.
 */
#ifndef MORVA_FILES_H
#define MORVA_FILES_H

#include <stdio.h>
#include <sys/stat.h>

#include "morva/export.h"

MORVA_BEGIN

/* ---- Bytes for people ---- */

/* Writes n bytes to `stream`, sixteen a line: offset, bytes in hex, and what is printable of them
 * (ASCII; a dot for the rest):
 *
 *     00000000  48 65 6c 6c 6f 2c 20 77  6f 72 6c 64 0a           |Hello, world.|
 *
 * Nothing for n of 0 or less. Other threads' output to the stream does not come between the lines.
 */
MORVA_API void hexdump(FILE* stream, const void* bytes, int n);

/* The same as a new string, which the caller frees; every line begins with `prefix` (null: nothing)
 * and ends with a newline. An empty string for n of 0 or less. */
MORVA_API char* hexdump_string(const char* prefix, const void* bytes, int n);

/* Puts a printable form of n bytes into `result`, a buffer of `size` bytes, and returns `result`.
 * Printable ASCII stays as it is; newline, tab, carriage return, backslash and the like are written
 * as in C ("\n", "\\"), other bytes as a backslash and three octal digits ("\033"). What does not
 * fit is left out, never half an escape; the text always ends with a zero byte, except that a null
 * or empty buffer is not touched. */
MORVA_API char* printable_string(const void* bytes, int n, char* result, int size);

/* ---- Making files ---- */

/* Makes a new, empty file whose name is `base`, a dot and six random letters or digits, readable
 * and writable by its owner only, and returns the name as a new string that the caller frees. The
 * file is the caller's alone: it did not exist before under that name, not as a link either. Null
 * with the reason registered, also for an empty or null `base`. */
MORVA_API char* vkunique_filename(const char* base);

/* Makes a file of `size` bytes that begins with the n given bytes; the rest are zeros. The whole
 * file has room on the disk, so that writing into a mapping of it cannot fail for want of space.
 * Mode 0664, less the umask. A regular file that exists is replaced in place. Returns 0, or -1 with
 * the reason registered: when anything fails the file is removed; a negative size, n outside 0 ..
 * size, and a path that names something else than a regular file touch nothing. */
MORVA_API int mkfile(const char* path, long size, const void* bytes, long n);

/* ---- Looking at files ---- */

/* As stat, but a signal that interrupts it goes unnoticed. 0, or -1 with errno; nothing is
 * registered. */
MORVA_API int restat(const char* path, struct stat* status);

/* 1 when `name` names an existing regular file (links are followed), else 0. errno is preserved.
 * The two are the same. */
MORVA_API int is_file(const char* name);
MORVA_API int is_filename(const char* name);

/* Maps the whole of a regular file: read-only, or with `writable` such that changes go to the file.
 * The caller unmaps it with munmap(address, size). An empty file gives a null address and the size
 * 0, and nothing is to be unmapped. The bytes are shared with whoever else has the file: they
 * change when the file is written, and are gone (SIGBUS) when it is truncated meanwhile. There is
 * no terminating zero byte. Returns 0, or -1 with the reason registered, `address` and `size` then
 * being untouched. */
MORVA_API int mapfile(const char* path, int writable, void** address, long* size);

/* ---- Reading ---- */

/* As fgets, but from a descriptor: reads a line of at most size-1 characters, newline included, and
 * ends it with a zero byte. Nothing behind the newline is read, so that descriptors may be handed
 * over between lines. Returns `buf`, or null at the end of file (errno 0, buffer untouched) and on
 * an error (errno not 0; the characters of the line that had arrived stand in the buffer). A signal
 * that interrupts it goes unnoticed. Speed: three system calls a line (one more for every further
 * 1024 characters) from a file, the like from a stream socket, but one call a character from a pipe
 * or terminal, which cannot be read on trial. */
MORVA_API char* fdgets(char* buf, int size, int fd);

/* ---- Numbers ---- */

/* As strtod in the "C" locale, whatever the locale: leading white space, a sign, decimal or 0x
 * hexadecimal digits with a point and an exponent, "inf", "infinity", "nan", "nan(letters)".
 * Exactly rounded. `end`, when given, receives the place behind the number, or `text` when there is
 * none (the result is then 0). Too large numbers give plus or minus HUGE_VAL, those too small for
 * full precision the nearest value there is; both set errno to ERANGE, which is otherwise left
 * alone. A null text is no number. */
MORVA_API double fix_strtod(const char* text, char** end);

MORVA_END
#endif
