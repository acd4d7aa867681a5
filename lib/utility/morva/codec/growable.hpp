// Buffers of callers that the codecs allocate and grow with malloc and realloc, never free.
#pragma once

#include <climits>
#include <cstdint>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"

namespace morva {

// Makes *buffer hold `need` bytes; a null buffer or a size of 0 or less stands for none. When
// memory runs out, or an int can't tell the size, buffer and size stay as they were and the failure
// is registered as `malloc_error` or `realloc_error`.
template <class Item>
bool grow_buffer(Item** buffer, int* size, std::int64_t need, const char* malloc_error,
                 const char* realloc_error) {
    const bool fresh = *buffer == nullptr || *size <= 0;
    if (!fresh && *size >= need) return true;
    void* larger = nullptr;
    if (need <= INT_MAX) {
        const auto bytes = static_cast<std::size_t>(need);
        larger = fresh ? try_malloc(bytes) : try_realloc(*buffer, bytes);
    }
    if (larger == nullptr) {
        elog_log(0, "%s", fresh ? malloc_error : realloc_error);
        return false;
    }
    *buffer = static_cast<Item*>(larger);
    *size = static_cast<int>(need);
    return true;
}

}  // namespace morva
