// Reading all files of a name, for callers that want to know more than pfread tells.
#pragma once

#include "morva/pf.h"

namespace morva::pf {

// What became of a reading: as pfread returns it, and how many files could be opened.
struct Reading {
    int result;
    long opened;
};

Reading read_merged(const char* name, Pf** pf);

}  // namespace morva::pf
