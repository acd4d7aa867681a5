/* Parameter trees as text that reads back as an equal tree.
 *
 *     pfput_string(pf, "comment", "two\nlines");
 *     if (pfwrite_atomic("local.pf", pf) != 0) elog_complain(0, "settings not saved");
 *     char* text = pf2string(pf);                   // "comment\t&Literal{\ntwo\nlines}\n"
 *
 * pfwrite and pfout write with indentation, pf2string and pfappend without. All write the entries
 * of an array in the order of their keys, and every string in the plainest form that keeps it: as
 * it stands, with backslashes, or as a literal. docs/formats/pf.md describes the text.
 *
 * A few trees do not read back equal from that text: keys with a blank together with "#", an
 * unmatched "}", a backslash or both kinds of quotes; keys with a tab, an empty key, keys that
 * begin with a quote or that end the input ("__END__" with an empty value); strings that look like
 * an opener or a function ("&Tbl{", "&env(HOME)"). pfwrite_atomic finds other forms for them, or
 * refuses. Null strings and null nodes inside a tree, and nodes that hold neither a string, a
 * function nor entries, are written as empty strings.
 *
 * Strings returned are new and the caller's to free; null arguments for them count as "". Running
 * out of memory ends the process. Threads: a tree must not be changed while it is written. */
#ifndef MORVA_PFWRITE_H
#define MORVA_PFWRITE_H

#include <stdio.h>

#include "morva/export.h"
#include "morva/pf.h"

MORVA_BEGIN

/* ---- Whole trees ---- */

/* Writes a tree to a file, which is made or emptied first: whoever reads it meanwhile, or after a
 * crash, may find a part of it. The entries of a PFFILE stand by themselves, a PFARR or list as the
 * root gets its opener and closing brace. Returns 0, or -1: when pf or its value is null (the file
 * is left empty, nothing is registered), or with the reason registered when the file cannot be
 * opened or not all of the text could be written. */
MORVA_API int pfwrite(const char* filename, Pf* pf);

/* The same to a stream, which stays open and is not flushed. -1 when stream, pf or its value is
 * null, and, with the reason registered, when the stream takes no more. */
MORVA_API int pfout(FILE* stream, Pf* pf);

/* Replaces a file such that its name leads to the old text or to the whole new text at any time,
 * also after a crash or power cut: the text is written to a hidden new file in the same folder
 * (".NAME." and random letters), synced, and renamed over the old one, and the folder is synced. A
 * link is followed and stays a link. The mode is kept; owner and group are kept where the process
 * may set them. Only the name given gets the new text: other hard links keep the old.
 *
 * The root must be an array (PFFILE or PFARR), of which the entries are written as from a PFFILE.
 * The text reads back equal: where pfwrite's would not, a string is written as a literal, a key
 * with quotes or with octal escapes. A tree with anything that no text expresses is refused, and
 * the message says where it stands: a key of more than 1023 characters, a null or
 * other node without a value, a function whose text is not a call on one line, blocks nested more
 * than 11 deep.
 *
 * Returns 0, or -1 with the reason registered; the old file is then as it was and the new one is
 * gone, with one exception: when only the folder could not be synced, the new text is in place. */
MORVA_API int pfwrite_atomic(const char* filename, Pf* pf);

/* A tree as a new string, without indentation. The entries of an array at the root stand by
 * themselves. An empty string when pf or its value is null. */
MORVA_API char* pf2string(Pf* pf);

/* Appends to a string stack (pushstr) what pf2string gives, of a tree that stands `level` blocks
 * deep: an array has its opener and closing brace at every level but 0. Returns 0, or -1 with the
 * stack unchanged when pf or its value is null. */
MORVA_API int pfappend(void** string, int level, Pf* pf);

/* ---- Strings in them ---- */

/* The form in which a string value is written. */
MORVA_API char* str2pf(const char* s);

/* A string with escapes when mode is 1 and it has no newline; else as a literal, between the first
 * pair of {} () [] <> `' that is balanced in it, or up to a terminator that does not occur in it.
 */
MORVA_API char* pfoutput_literal(const char* s, int mode);

/* A string with a backslash before every newline, "#" and backslash, and before each "}" that no
 * "{" before it opens. */
MORVA_API char* pfescape_special_chars(const char* s);

MORVA_END
#endif
