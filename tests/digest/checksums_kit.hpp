// What the tests of checksums and digests share.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "support/kit.hpp"

namespace kit {

inline const unsigned char* bytes_of(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

inline int count_of(std::string_view text) {
    return static_cast<int>(text.size());
}

inline std::string noise(std::size_t n, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string text(n, '\0');
    for (char& c : text) c = static_cast<char>(random());
    return text;
}

inline std::string hex_of(const unsigned char* bytes, std::size_t n) {
    std::string hex;
    for (std::size_t i = 0; i < n; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        hex += digits;
    }
    return hex;
}

}  // namespace kit
