// Reading all files of a name, for callers that want to know more than pfread tells.
#pragma once

#include "morva/pf.h"

namespace morva::pf {

// What became of a reading.
struct Reading {
    int result = 0;        // as pfread returns it
    long opened = 0;       // files
    bool complete = true;  // false: for want of descriptors or memory files were left out
};

Reading read_merged(const char* name, Pf** pf);

}  // namespace morva::pf
