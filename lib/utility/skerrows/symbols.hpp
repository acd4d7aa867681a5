// Names for code addresses, found without allocating memory.
#pragma once

#include <cstdint>

namespace skerrows {

struct Place {
    char function[1024] = "";           // as the linker knows it; empty when unknown
    const char* module = nullptr;       // path of the program or library, or null
    const void* module_base = nullptr;  // where it is loaded
    std::uintptr_t offset = 0;          // from the function, or else from the start of the module
};

// What is known of the code at `address`. Exported functions are found in memory, others in the
// symbol table of the module's file, where it was not stripped.
Place locate(std::uintptr_t address);

}  // namespace skerrows
