// Arrays by keys that stand inside a longer text, without a terminated copy of them. A key given
// here holds no zero byte.
#pragma once

#include <string_view>

#include "morva/arr.h"

namespace morva {

// As getarr.
void* find_key(const Arr* arr, std::string_view key);

// As setarr.
void* put_key(Arr* arr, std::string_view key, void* value);

}  // namespace morva
