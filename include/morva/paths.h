/* Paths: creating directories. */
#ifndef MORVA_PATHS_H
#define MORVA_PATHS_H

#include "morva/export.h"

MORVA_BEGIN

MORVA_API int makedir(const char* dir);
MORVA_API int make_pathdirs(const char* path);

MORVA_END
#endif
