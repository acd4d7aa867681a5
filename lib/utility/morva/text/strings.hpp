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

// Copies a short piece of text without a call.
inline void copy_text(char* to, const char* from, std::size_t length) {
    const auto both_ends = [=]<class Part>(Part head) {
        Part tail;
        std::memcpy(&head, from, sizeof head);
        std::memcpy(&tail, from + length - sizeof tail, sizeof tail);
        std::memcpy(to, &head, sizeof head);
        std::memcpy(to + length - sizeof tail, &tail, sizeof tail);
    };
    if (length > 16)
        std::memcpy(to, from, length);
    else if (length >= 8)
        both_ends(std::uint64_t{});
    else if (length >= 4)
        both_ends(std::uint32_t{});
    else if (length >= 2)
        both_ends(std::uint16_t{});
    else if (length == 1)
        *to = *from;
}

// The record behind a string stack. The size is exactly what the text pushed so far has needed; the
// block may hold a little more, so that many small pushes do not move it many times.
struct StringStack {
    std::uint64_t size;    // bytes
    std::uint64_t length;  // bytes used, without the terminator
    char* s;               // always terminated
    std::uint64_t room;    // bytes in the block
};

// A stack with `initial` bytes.
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
    copy_text(to, from, text.size());
    to[text.size()] = '\0';
    return stack->length += text.size();
}

// Hands over the buffer and frees the record; a new empty string when there is no stack.
char* take_text(StringStack*& stack);

}  // namespace morva
