/* Morph: names rewritten by rules, and matches replaced by a template.
 *
 *     Tbl* lines = strtbl("/^BH(.)$/HH$1/", "LOG  ACE", NULL);
 *     Tbl* rules;
 *     char name[16];
 *     if (newmorphtbl(lines, &rules) > 0) elog_complain(0, "some rules can't be used\n");
 *     morphtbln("BHZ", rules, 0, name, sizeof name);         // 1, and "HHZ"
 *     freemorphtbl(rules);
 *     freetbl(lines, 0);
 *
 * Patterns are POSIX extended regular expressions; a match has the whole of it and nine groups.
 *
 * In a template, "$" and a digit stand for what that group matched (nothing when it took no part),
 * "$0" for the whole match. "\" takes the next character as it is; "$" with any other character
 * stands for nothing, and that character is gone, too. A template must not end in a lone "$" or
 * "\"; one that does is read without it.
 *
 * A rule is a line of a pattern and a replacement, which is a template:
 *     /PATTERN/REPLACEMENT/    the delimiter is "/", a double or a single quote; the last one may
 *                              be left out. It stands for itself behind a "\", which stays
 *                              (but to the C library "\'" in a pattern is the end of the string:
 *                              put a pattern with single quotes between others).
 *     PATTERN REPLACEMENT      separated by blanks or tabs, which stand for themselves behind a
 *                              "\". What follows the second word is ignored.
 * Without a replacement there is an empty one. An empty pattern matches the empty string alone.
 *
 * The functions whose names end in "n" take the size of the result; the others need a buffer that
 * is large enough. A result may be written over the string that it is made of. A null string or
 * template reads as an empty one.
 *
 * Threads: a table does not change between newmorphtbl and freemorphtbl; any number of threads may
 * rename with it. */
#ifndef MORVA_MORPH_H
#define MORVA_MORPH_H

#include <regex.h>
#include <stddef.h>

#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* Flags of morphtbl. */
enum {
    MORPH_PARTIAL = 1, /* a rule also counts when its pattern matches a part of the string */
    MORPH_ALL = 2      /* every rule that counts is applied, each to what those before it made */
};

/* An item of a table of rules. */
typedef struct Morph_rule {
    char* pattern;
    struct Morph_pattern* compiled; /* known to the library alone */
    char* replacement;
    long line; /* index of the line that it comes from */
} Morph_rule;

/* Writes `source` with its whole match replaced by the template. `matches` is what regexec gave for
 * the source: only the first element and those that the template names are looked at. Nothing is
 * replaced when the first says that there is no match (-1). */
MORVA_API void regsubstitute(const char* source, const char* template_text,
                             const regmatch_t* matches, char* result);

/* As regsubstitute, at most `size` bytes, terminator included. Returns the length of the result, or
 * -1 when not all of it fitted: the result then holds the first size - 1 characters. */
MORVA_API long regsubstituten(const char* source, const char* template_text,
                              const regmatch_t* matches, char* result, size_t size);

/* When the pattern matches somewhere in the string, writes the string with the leftmost match
 * replaced by the template and returns 1; otherwise writes the string as it is and returns 0. So
 * does a pattern compiled with REG_NOSUB, which does not tell where it matches. */
MORVA_API int patsub(const char* string, const regex_t* compiled, const char* template_text,
                     char* result);

/* As patsub, for `size` bytes; -1 as regsubstituten. */
MORVA_API int patsubn(const char* string, const regex_t* compiled, const char* template_text,
                      char* result, size_t size);

/* Compiles rules from a list of lines (null lines are left out), which may be freed afterwards, and
 * stores a new list of Morph_rule, in the order of the lines. A line whose pattern does not compile
 * (or is one that would take minutes or all memory to match) is left out, and registered as
 * "'%s' did not compile: %s". Returns the number of such lines; -1 when `rule_lines` is null, which
 * gives an empty table. The table is freed with freemorphtbl. */
MORVA_API long newmorphtbl(Tbl* rule_lines, Tbl** table);

/* Renames `string` by the first rule that counts, in the order of the table, and returns 1; or,
 * when none does, copies the string and returns 0. A rule counts when its leftmost match is the
 * whole string; `flags` (a sum of MORPH_PARTIAL and MORPH_ALL) say otherwise. With MORPH_ALL, each
 * rule is tried once, and the number of those that counted is returned. A null table has no
 * rules. */
MORVA_API long morphtbl(const char* string, Tbl* table, int flags, char* result);

/* As morphtbl, for `size` bytes. -1 when what a rule made did not fit, also if a later rule would
 * have made it shorter: the result then holds the first size - 1 characters of that. */
MORVA_API long morphtbln(const char* string, Tbl* table, int flags, char* result, size_t size);

/* As morphtbl, but returns the result as a new string that the caller frees. Unless `applied` is
 * null, it receives a new list of the rules that counted: Morph_rule, which stay the table's;
 * freetbl(applied, 0). */
MORVA_API char* morphtbl_str(const char* string, Tbl* table, int flags, Tbl** applied);

/* Frees a table and its rules; null is ignored. */
MORVA_API void freemorphtbl(Tbl* table);

MORVA_END
#endif
