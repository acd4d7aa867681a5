// Arrays for the other families of the library. Keys may stand inside a longer text, without a
// terminated copy of them; a key given here holds no zero byte.
#pragma once

#include <string_view>

#include "morva/arr.h"

namespace morva {

// As getarr.
void* find_key(const Arr* arr, std::string_view key);

// As setarr.
void* put_key(Arr* arr, std::string_view key, void* value);

// As duparr, but for copies that need more than the value.
Arr* copy_array(const Arr* arr, void* (*copy_value)(void* value, void* context), void* context);

}  // namespace morva
