/* String utilities: comparing and trimming, splitting into lists, strings of unknown length,
 * translation and substitution, lines, numbers as short text, and an edit distance.
 *
 *     char line[] = " AAK BHZ  00 ";
 *     Tbl* fields = splitws(line);                  // "AAK", "BHZ", "00", inside of line
 *     void* text = NULL;
 *     for (long i = 0; i < maxtbl(fields); ++i) pushstr(&text, gettbl(fields, i));
 *     char* joined = popstr(&text, 1);              // "AAKBHZ00", the caller's to free
 *     freetbl(fields, 0);
 *     free(joined);
 *
 * Strings end with a zero byte unless a function says otherwise, and must not be null unless it
 * says so. "Blanks" are spaces; "white space" is spaces, tabs and newlines, nothing else. What a
 * function returns as new comes from malloc and is freed by the caller. Running out of memory ends
 * the process. Only xargs registers reasons.
 *
 * Threads: spaces has a lock of its own; everything else works on what the caller hands in. */
#ifndef MORVA_STRINGS_H
#define MORVA_STRINGS_H

#include <stddef.h>
#include <stdio.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* strcmp; with null strings 0 when both are null and 1 when one is. */
MORVA_API int nstrcmp(const char* a, const char* b);

/* 1 when s holds only spaces, is empty or null, else 0. */
MORVA_API int blank(const char* s);

/* As blank, for white space. */
MORVA_API int whitespace(const char* s);

/* Fills the n bytes of a fixed-width field: src, cut at n characters or padded with spaces. No
 * terminator is written; an n below 1 writes nothing. Here and in the next two dst and src may
 * overlap. */
MORVA_API void sncopy(char* dst, const char* src, int n);

/* Copies n bytes of src, whatever they are, and adds a terminator; dst holds n + 1 bytes. An n
 * below 1 counts as 0. Returns the address of the terminator. */
MORVA_API char* szcopy(char* dst, const char* src, int n);

/* As szcopy, without the spaces (and only those) that the n bytes begin and end with. */
MORVA_API char* copystrip(char* dst, const char* src, int n);

/* A new copy of n bytes; p may be null when n is 0. */
MORVA_API void* memdup(const void* p, size_t n);

/* Map s in place by the current locale. Return its length. */
MORVA_API int str2upper(char* s);
MORVA_API int str2lower(char* s);

/* Removes one newline from the end of s, if there is one. Null is ignored. */
MORVA_API void chomp(char* s);

/* s, or "<null>" when it is null: for printing. Neither is the caller's to change or free. */
MORVA_API char* okstr(const char* s);

/* Reads a line into buf, at most size - 2 characters; what did not fit comes with the next call.
 * The newline is dropped, and the last byte of buf is set to zero. Returns buf; null at the end of
 * the file, when stream is null, or when size is below 3. */
MORVA_API char* getaline(FILE* stream, char* buf, int size);

/* Write a title, unless it is null, and a line for each item of a list of strings (index and text)
 * or each entry of an array of strings (key and text, by key). */
MORVA_API void debugtbl(FILE* stream, const char* title, Tbl* tbl);
MORVA_API void debugarr(FILE* stream, const char* title, Arr* arr);

/* The number of characters before the first zero byte of buf, n when there is none among n bytes;
 * -1 when one of them is not printable ASCII (32 .. 126). */
MORVA_API int ascii_cnt(const char* buf, int n);

/* Writes a title, unless it is null, and the characters of buf up to the first that is not
 * printable ASCII, at most n (50 when n is below 1). When already the first is not, a hex dump of
 * 16 bytes, or of n when that is less; an n below 1 says nothing of the size, buf must then have
 * 16. Two quotes when buf is null or empty. No newline of its own. */
MORVA_API void debugchar(FILE* stream, const char* title, const char* buf, int n);

/* Split s in place, at the character c or at white space: the list's items point into s, where the
 * separator behind each field has become a terminator. Separators in a row count as one, so no
 * field is ever empty. The list is new and does not own its items: freetbl(list, 0). */
MORVA_API Tbl* split(char* s, char c);
MORVA_API Tbl* splitws(char* s);

/* Removes the white space around s in place and returns s. Other control characters stay. */
MORVA_API char* strtrim(char* s);

/* String stacks build strings of unknown length. The caller holds a pointer that starts out null;
 * the first push makes the record behind it: uint64_t size (bytes), uint64_t length (without the
 * terminator), char* s (always terminated). One user at a time.
 *
 * pushstr appends a string (null counts as empty). The first push makes room for 1024 bytes, or for
 * 5 times the string when that is more; later the size grows to exactly what is needed, length +
 * string + 1. The stack's own text may be pushed. Returns the new length. */
MORVA_API long pushstr(void** stack, const char* string);

/* As pushstr, for one character; room for 1024 bytes, growth to length + 2. */
MORVA_API long pushstrc(void** stack, char c);

/* As pushstr, but at most n characters of the string; room for 1024 or 5 n bytes, growth to
 * length + n + 2 however short the string is. An n below 1 appends nothing. */
MORVA_API long pushstrn(void** stack, const char* string, int n);

/* The text of the stack. With release other than 0 the text is the caller's to free and the pointer
 * becomes null; otherwise it belongs to the stack and holds until the next push. When nothing was
 * pushed yet: a new empty string, the caller's in both cases. */
MORVA_API char* popstr(void** stack, int release);

/* A new string of all arguments up to a null pointer, one behind the other. */
MORVA_API char* strconcat(const char* first, ...) MORVA_NULL_TERMINATED;

/* As strconcat, with the character c between one argument and the next. */
MORVA_API char* strjoin(char c, const char* first, ...) MORVA_NULL_TERMINATED;

/* A new string of the first n lines of text, each behind prefix (null: nothing). When text has
 * fewer newlines than n, what stands behind the last one is left out. Otherwise prefix and "...\n"
 * follow, even when the n lines are all that there is. */
MORVA_API char* strhead(const char* text, int n, const char* prefix);

/* Reads a line of any length. Start with a null buffer and a size of 0, which makes a buffer of
 * 1024 bytes, hand both to call after call, and free the buffer at the end. The size doubles until
 * the line, its newline and a terminator fit; beyond 2^30 bytes the process ends as without memory.
 * The newline is dropped; zero bytes of the line are kept. Returns the buffer, or null when nothing
 * was read or stream is null. */
MORVA_API char* intactline(FILE* stream, char** buffer, int* size);

/* Runs a command on the strings of a list through the system's shell (system): "command item item
 * ... suffix", in batches of as many items as fit 512 characters, but at least one. A null or empty
 * suffix is left out; a list without items runs nothing. With verbose other than 0 each command
 * line is shown with elog_notify. Nothing is quoted: items that come from outside must not hold
 * what the shell gives a meaning. 0, or -1 with the reason registered when a batch could not be run
 * or ended with a status other than 0; the batches behind it are run all the same. */
MORVA_API int xargs(const char* command, Tbl* tbl, const char* suffix, int verbose);

/* Copies s to out with new_text for every occurrence of old_text, found from left to right and
 * never overlapping; an empty old_text is found nowhere. out must be large enough and apart from s.
 * Returns the address of its terminator. */
MORVA_API char* strsub(const char* s, const char* old_text, const char* new_text, char* out);

/* As strsub, but writes at most size bytes, terminator included. Null when not everything fitted
 * (out then holds the first size - 1 characters) and when size is 0. */
MORVA_API char* strsubn(const char* s, const char* old_text, const char* new_text, char* out,
                        size_t size);

/* Translates s in place: each character that stands in `from` becomes the one at the same place of
 * `to`. The longer of the two counts as far as the shorter; of a character that `from` repeats the
 * last place counts. Null strings change nothing. Returns s. */
MORVA_API char* strtr(char* s, const char* from, const char* to);

/* A string of n spaces, n cut to 0 .. 63, in one of ten static buffers that are used in turn: it
 * holds until ten further calls, of whatever threads. */
MORVA_API char* spaces(int n);

/* Writes a number as short text and returns buf, which holds at least 32 bytes: 15 significant
 * digits without zeros at the end, as "%.15g" rounds them, and no zero before the point of a
 * positive number below 1. Sizes above 1e10 and below 0.001 have an exponent that is a multiple of
 * 3: "123.5",
 * ".5", "-0.25", "20e9", "100e-6". "Inf", "-Inf" and "nan" stand for what is no number. The same
 * text in every locale and rounding mode. */
MORVA_API char* strdbl(char* buf, double value);

/* The Levenshtein distance of two strings: how many characters must be inserted, deleted or
 * replaced to turn one into the other. -1, not the other's length, when either is empty. Takes 64
 * rows of the matrix at a time: G. Myers, Journal of the ACM 46 (1999), and H. Hyyro, Nordic
 * Journal of Computing 10 (2003). Memory: 32 bytes a character of the shorter string. */
MORVA_API int levenshtein_distance(const char* a, const char* b);

/* -1 for yes, ok, y, true, 1, on or t, 0 for no, n, false, 0, off or f, in whatever case, and 1 for
 * anything else and for null. */
MORVA_API int yesno(const char* s);

MORVA_END
#endif
