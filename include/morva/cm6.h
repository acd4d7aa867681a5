/* CM6 compression and the GSE checksum. */
#ifndef MORVA_CM6_H
#define MORVA_CM6_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

MORVA_API int cm6(const int32_t* samples, int nsamp, char** text, int* nbytes, int* buffer_size);
MORVA_API int um6(const char* text, int nbytes, int32_t** samples, int* nsamp, int* buffer_size);
MORVA_API void stuff(int32_t value, char** cursor);
MORVA_API int unstuff(int32_t* value, char** cursor, int* remaining);
MORVA_API void initDecode(void);
MORVA_API int gse_checksum(const int32_t* samples, int nsamp, int32_t* checksum);

MORVA_END
#endif
