// What the string routines share, inline for the other families.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"

namespace morva {

inline bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

inline bool is_printable(char c) {
    return c >= 32 && c <= 126;
}

// The record behind a string stack.
struct StringStack {
    std::uint64_t size;    // bytes allocated
    std::uint64_t length;  // bytes used, without the terminator
    char* s;               // always terminated
};
static_assert(sizeof(StringStack) == 24);

// A stack with `initial` bytes of room.
StringStack* new_string_stack(std::size_t initial);

// Enlarges the buffer to exactly `needed` bytes. `text`, when it points into the buffer, moves
// along.
const char* grow_string_stack(StringStack* stack, std::size_t needed, const char* text);

// Appends `text`; the stack is created at its first push.
inline std::uint64_t push_text(StringStack*& stack, std::string_view text) {
    constexpr std::size_t kFirst = 1024;
    if (stack == nullptr) stack = new_string_stack(std::max(kFirst, 5 * text.size()));
    const char* from = text.data();
    const std::size_t needed = stack->length + text.size() + 1;
    if (needed > stack->size) from = grow_string_stack(stack, needed, from);
    char* to = stack->s + stack->length;
    std::memcpy(to, from, text.size());
    to[text.size()] = '\0';
    return stack->length += text.size();
}

// Hands over the buffer and frees the record; a new empty string when there is no stack.
char* take_text(StringStack*& stack);

}  // namespace morva
