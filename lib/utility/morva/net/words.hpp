// Texts of the network families: fields of entries, and the buffers of callers.
#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

#include "containers/arr.hpp"
#include "morva/pf.h"
#include "morva/pfexpand.h"

namespace morva::net {

inline constexpr std::size_t kTextSize = 256;  // of hosts, ports and descriptions

inline std::string_view trimmed(std::string_view text) {
    const auto is_space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
    return text;
}

// Stores what fits of a text in a caller's buffer of `size` bytes; a null buffer takes nothing.
inline void store_text(std::string_view text, char* buffer, std::size_t size = kTextSize) {
    if (buffer == nullptr) return;
    const std::size_t n = std::min(text.size(), size - 1);
    if (n > 0) std::memmove(buffer, text.data(), n);
    buffer[n] = '\0';
}

// The string at the top of a parameter tree under a key, taken literally; null when there is none.
inline const char* top_string(Pf* pf, std::string_view key) {
    if (pf == nullptr || (pf->type != PFFILE && pf->type != PFARR)) return nullptr;
    Pf* node = static_cast<Pf*>(find_key(pf->value.arr, key));
    return node != nullptr && node->type == PFSTRING ? pfexpand(node) : nullptr;
}

}  // namespace morva::net
