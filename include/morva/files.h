/* File and descriptor helpers, dumps, and directory creation. */
#ifndef MORVA_FILES_H
#define MORVA_FILES_H

#include <stdio.h>
#include <sys/stat.h>

#include "morva/export.h"

MORVA_BEGIN

MORVA_API void hexdump(FILE* stream, const void* bytes, int n);
MORVA_API char* hexdump_string(const char* prefix, const void* bytes, int n);
MORVA_API char* printable_string(const void* bytes, int n, char* result, int size);
MORVA_API char* vkunique_filename(const char* base);
MORVA_API int mkfile(const char* path, long size, const void* bytes, long n);
MORVA_API int restat(const char* path, struct stat* status);
MORVA_API int is_file(const char* name);
MORVA_API int is_filename(const char* name);
MORVA_API double fix_strtod(const char* text, char** end);
MORVA_API int mapfile(const char* path, int writable, void** address, long* size);
MORVA_API char* fdgets(char* buf, int size, int fd);

MORVA_END
#endif
