// Path resolution for the other sources of parameter files.
#pragma once

#include <string_view>

#include "pf/pf.hpp"

namespace morva::pf {

// What resolution gives instead of a type code.
enum : int { kNotFound = -1, kRefused = -2 };

// As pfresolve without creation, on an array only, by a path that need not be terminated.
int resolve_in_array(Pf* array, std::string_view path, Pf** node);

}  // namespace morva::pf
