// Numbers: fix_strtod gives what the C library's strtod gives in the "C" locale.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    char *end = nullptr, *expected_end = nullptr;
    const double expected = std::strtod(text.c_str(), &expected_end);
    const double value = fix_strtod(text.c_str(), &end);
    if (end != expected_end) std::abort();
    if (std::isnan(value) && std::isnan(expected)) return 0;
    if (std::memcmp(&value, &expected, sizeof value) != 0) std::abort();
    return 0;
}
