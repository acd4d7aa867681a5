// Numbers in a compact engineering notation.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "morva/strings.h"

namespace {

constexpr double kLargest = 1e10;
constexpr double kSmallest = 0.001;

// The exponent group of a magnitude: the power of ten is three times it.
int exponent_group(double magnitude) {
    return static_cast<int>(std::log10(magnitude) + 99) / 3 - 33;
}

}  // namespace

extern "C" {

char* strdbl(char* buf, double value) {
    if (std::isinf(value)) return std::strcpy(buf, value < 0 ? "-Inf" : "Inf");
    double magnitude = std::fabs(value);
    int group = 0;
    if (magnitude != 0 && (magnitude > kLargest || magnitude < kSmallest)) {
        group = exponent_group(magnitude);
        magnitude /= std::pow(10.0, 3 * group);
    }
    std::sprintf(buf, "%.15g", std::copysign(magnitude, value));
    if (buf[0] == '0' && buf[1] != '\0') std::memmove(buf, buf + 1, std::strlen(buf));
    if (group != 0) std::sprintf(buf + std::strlen(buf), "e%d", 3 * group);
    return buf;
}

}  // extern "C"
