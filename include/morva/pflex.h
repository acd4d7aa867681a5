/* Reading parameter text into a tree of Pf nodes.
 *
 *     Pf* pf = NULL;
 *     if (pfcompile("rate 20\nsites &Tbl{\nAAK\nBFO\n}\n", &pf) < 0) elog_die(0, "Bad text\n");
 *     long rate = pfget_int(pf, "rate");
 *     pffree(pf);
 *
 * The text is a sequence of lines. At the top and inside an array a line is a key and a value,
 * inside a list it is a value alone:
 *
 *     # a comment
 *     name        value up to the end of the line     # a comment
 *     "two words" value of a key with a blank
 *     list        &Tbl{
 *         first item
 *         second item
 *     }
 *     array       &Arr{
 *         key     value
 *     }
 *     home        &env(HOME)
 *     text        &Literal{
 *     any text, {braces} in balance
 *     }
 *     obsolete    &Undef{}
 *     __END__
 *
 *   Blanks     are spaces and tabs; carriage returns and all others are ordinary characters.
 *   Key        a run of characters up to the next blank or newline; "#" ends it. Or a text in
 *              double or single quotes, with neither escapes nor a quote of its kind, which may
 *              span lines; what follows the closing quote is the value. Keys are cut at 1023
 *              bytes.
 *   Value      the rest of the line up to a "#", without the white space around it. A list takes
 *              every line for an item, an empty line for an empty one, except lines that begin
 *              with "#" in the first column.
 *   Escapes    in plain keys and in values: \b \n \r \t; a backslash and a digit take that digit
 *              and the next two characters (of the same line) for an octal number; a backslash
 *              before any other character, a newline too, gives that character. White space that
 *              escapes give is removed from the ends of a value like any other; a literal keeps
 *              it.
 *   Blocks     &Tbl{ begins a list, &Arr{ an array, a line that begins with "}" ends the
 *              innermost one; the rest of these lines is ignored. At most 11 blocks may be open.
 *   &Undef{}   removes the entry of its key, or the last item of its list.
 *   Function   "&", a name, "(", anything, ")", then blanks and a comment at most: &env(HOME).
 *              The last ")" of the line behind which no more than that follows is the one that
 *              counts.
 *   &Literal   and a delimiter c: the text from the next line on up to the character that closes
 *              c, where further c open it once more. {}, (), [], <> and `' are pairs; "}", ")",
 *              "]" and ">" are closed by the character that opens the next pair; "'" is never
 *              closed; any other delimiter is closed by the character that follows it. With c a
 *              double quote the rest of the line is a word (at most 127 bytes), and the text ends
 *              at a double quote with that word behind it. The rest of the opening and of the
 *              closing line is ignored.
 *   The end    a line of only __END__, __DATA__ or __EOF__ where a key could stand.
 *
 * Zero bytes, raw or from an escape, end the key, value or literal that they stand in: what follows
 * them in it is dropped.
 *
 * Every function reads into *pf: into a new tree when it is null, and else over the tree that it
 * is, which must be a PFFILE or PFARR. A key that is read again replaces the earlier value whole.
 * The nodes' filename is the source's name, "*internal buffer*" for a text, "*unknown pfin file*"
 * for a stream, "*pf filename unknown*" for a descriptor; the root keeps the one it has.
 *
 * They return 0, or -2 with the reason registered: a block that is still open at the end, a closing
 * brace too many, too many blocks, a literal without end, an input that cannot be read, or an
 * argument that is null, negative or no array, which changes nothing. Otherwise what had been read
 * stays in the tree, and the root is a PFFILE. An opener behind other text of a value draws a
 * complaint and is part of the value. The text may be a string of the tree, even one that it
 * replaces.
 *
 * Threads: may be called from any thread; Pf_lock is held for the whole call, so that texts are
 * read one at a time, and Pf_busy is the number of calls that hold it. Messages come when it is
 * free again. A tree that is being read into is the calling thread's alone. */
#ifndef MORVA_PFLEX_H
#define MORVA_PFLEX_H

#include <pthread.h>
#include <stdio.h>

#include "morva/export.h"
#include "morva/pf.h"

MORVA_BEGIN

/* Reads a string. */
MORVA_API int pfcompile(const char* text, Pf** pf);

/* As pfcompile, for `length` bytes that need not end with a zero byte. */
MORVA_API int pfcompile_counted(const char* text, long length, Pf** pf);

/* As pfcompile, for what is left of a stream or descriptor, up to its end. The caller closes it.
 * When reading fails, the lines that came before are read. */
MORVA_API int pfin(FILE* stream, Pf** pf);
MORVA_API int pfinfd(int fd, Pf** pf);

/* When not 0, a line on standard error tells of each key that had a value before in its array. */
extern MORVA_API int Pf_show_replacements;

/* Held by whoever is reading. A program that takes it keeps all others from reading. */
extern MORVA_API pthread_mutex_t Pf_lock;

MORVA_END
#endif
