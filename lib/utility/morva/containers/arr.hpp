// Arrays for the other families of the library. Keys may stand inside a longer text, without a
// terminated copy of them; a key given here holds no zero byte.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "containers/node_pool.hpp"
#include "morva/arr.h"

namespace morva {

// As getarr.
void* find_key(const Arr* arr, std::string_view key);

// As setarr.
void* put_key(Arr* arr, std::string_view key, void* value);

// A copy of the array with the same values, whose nodes it appends to `nodes` in key order, for the
// caller to set their values.
Arr* copy_array(const Arr* arr, Vector<Node*>* nodes);

// Asks for the memory at an address that is to be read soon.
inline void prefetch(const void* address) {
    __builtin_prefetch(address);
}

}  // namespace morva
