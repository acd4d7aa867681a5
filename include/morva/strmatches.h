/* Regular-expression matching, selection lists, and the hooks that keep compiled patterns. */
#ifndef MORVA_STRMATCHES_H
#define MORVA_STRMATCHES_H

#include <pthread.h>
#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

typedef struct Hook {
    uint32_t check;
    void (*free_function)(void*);
    int32_t spare;
    void* pvt;
    pthread_mutex_t lock;
} Hook;

MORVA_API Hook* new_hook(void (*free_function)(void*));
MORVA_API void free_hook(Hook** hook);
MORVA_API int strmatches(const char* string, const char* pattern, Hook** hook);
MORVA_API int strcontains(const char* string, const char* pattern, Hook** hook, int* start,
                          int* length);
MORVA_API int match_string(const char* pattern, const char* string);
MORVA_API int match_stachans(const char* spec, const char* station, const char* channel);

MORVA_END
#endif
