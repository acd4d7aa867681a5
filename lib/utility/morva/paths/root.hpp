// Where the installation root comes from.
#pragma once

#include "paths/path.hpp"

namespace morva::paths {

// What the choice of the root depends on besides the environment.
struct Places {
    const char* standard;    // the built-in default root
    const char* releases;    // pattern of the release directories, for glob
    const char* executable;  // the running program, or null
};

// The root by the first step that yields one; false when none does.
bool decide_root(const Places& places, Path* root);

}  // namespace morva::paths
