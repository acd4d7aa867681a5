/* String utilities. */
#ifndef MORVA_STRINGS_H
#define MORVA_STRINGS_H

#include <stddef.h>
#include <stdio.h>

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

MORVA_API int nstrcmp(const char* a, const char* b);
MORVA_API int blank(const char* s);
MORVA_API int whitespace(const char* s);
MORVA_API void sncopy(char* dst, const char* src, int n);
MORVA_API char* szcopy(char* dst, const char* src, int n);
MORVA_API char* copystrip(char* dst, const char* src, int n);
MORVA_API void* memdup(const void* p, size_t n);
MORVA_API int str2upper(char* s);
MORVA_API int str2lower(char* s);
MORVA_API void chomp(char* s);
MORVA_API char* okstr(const char* s);
MORVA_API char* getaline(FILE* stream, char* buf, int size);
MORVA_API void debugtbl(FILE* stream, const char* title, Tbl* tbl);
MORVA_API void debugarr(FILE* stream, const char* title, Arr* arr);
MORVA_API int ascii_cnt(const char* buf, int n);
MORVA_API void debugchar(FILE* stream, const char* title, const char* buf, int n);

MORVA_API Tbl* split(char* s, char c);
MORVA_API Tbl* splitws(char* s);
MORVA_API char* strtrim(char* s);

MORVA_API long pushstr(void** stack, const char* string);
MORVA_API long pushstrc(void** stack, char c);
MORVA_API long pushstrn(void** stack, const char* string, int n);
MORVA_API char* popstr(void** stack, int release);
MORVA_API char* strconcat(const char* first, ...) MORVA_NULL_TERMINATED;
MORVA_API char* strjoin(char c, const char* first, ...) MORVA_NULL_TERMINATED;
MORVA_API char* strhead(const char* text, int n, const char* prefix);
MORVA_API char* intactline(FILE* stream, char** buffer, int* size);
MORVA_API int xargs(const char* command, Tbl* tbl, const char* suffix, int verbose);

MORVA_API char* strsub(const char* s, const char* old_text, const char* new_text, char* out);
MORVA_API char* strsubn(const char* s, const char* old_text, const char* new_text, char* out,
                        size_t size);
MORVA_API char* strtr(char* s, const char* from, const char* to);
MORVA_API char* spaces(int n);
MORVA_API char* strdbl(char* buf, double value);
MORVA_API int levenshtein_distance(const char* a, const char* b);
MORVA_API int yesno(const char* s);

MORVA_END
#endif
