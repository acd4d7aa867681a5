// String stacks: strings of unknown length, grown to exactly the size that is needed.
#include <cstdarg>

#include "base/memory.hpp"
#include "morva/strings.h"
#include "text/strings.hpp"

namespace morva {

StringStack* new_string_stack(std::size_t initial) {
    StringStack* stack = must_alloc<StringStack>(1, "vstk", MORVA_HERE);
    stack->s = static_cast<char*>(must_malloc(initial, "vstk->s", MORVA_HERE));
    stack->size = stack->room = initial;
    stack->s[0] = '\0';
    return stack;
}

const char* grow_string_stack(StringStack* stack, std::size_t needed, const char* text) {
    stack->size = needed;
    if (needed <= stack->room) return text;
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(stack->s);
    const bool own = offset <= stack->length;
    // An eighth more keeps the copying of a long text in proportion to its length.
    const std::size_t room = needed + needed / 8;
    stack->s = static_cast<char*>(must_realloc(stack->s, room, "vstk->s", MORVA_HERE));
    stack->room = room;
    return own ? stack->s + offset : text;
}

char* take_text(StringStack*& stack) {
    if (stack == nullptr) return must_strdup("", "vstk->s", MORVA_HERE);
    char* text = stack->s;
    std::free(stack);
    stack = nullptr;
    return text;
}

}  // namespace morva

namespace {

using morva::StringStack;

constexpr std::size_t kFirstSize = 1024;

StringStack*& stack_of(void** stack) {
    return *reinterpret_cast<StringStack**>(stack);
}

}  // namespace

extern "C" {

long pushstr(void** stack, const char* string) {
    const std::string_view text = string != nullptr ? std::string_view(string) : std::string_view();
    return static_cast<long>(morva::push_text(stack_of(stack), text));
}

long pushstrc(void** stack, char c) {
    StringStack*& record = stack_of(stack);
    if (record == nullptr) record = morva::new_string_stack(kFirstSize);
    if (record->length + 2 > record->size)
        morva::grow_string_stack(record, record->length + 2, nullptr);
    record->s[record->length++] = c;
    record->s[record->length] = '\0';
    return static_cast<long>(record->length);
}

long pushstrn(void** stack, const char* string, int n) {
    StringStack*& record = stack_of(stack);
    const std::size_t limit = n > 0 && string != nullptr ? static_cast<std::size_t>(n) : 0;
    if (record == nullptr) record = morva::new_string_stack(std::max(kFirstSize, 5 * limit));
    // One byte more than the text needs: the size is part of the stack's contract.
    const std::size_t needed = record->length + limit + 2;
    if (needed > record->size) string = morva::grow_string_stack(record, needed, string);
    const std::size_t length = limit > 0 ? strnlen(string, limit) : 0;
    if (length > 0) std::memcpy(record->s + record->length, string, length);
    record->length += length;
    record->s[record->length] = '\0';
    return static_cast<long>(record->length);
}

char* popstr(void** stack, int release) {
    StringStack*& record = stack_of(stack);
    if (release || record == nullptr) return morva::take_text(record);
    return record->s;
}

char* strconcat(const char* first, ...) {
    StringStack* stack = nullptr;
    va_list arguments;
    va_start(arguments, first);
    for (const char* text = first; text != nullptr; text = va_arg(arguments, const char*))
        morva::push_text(stack, text);
    va_end(arguments);
    return morva::take_text(stack);
}

char* strjoin(char c, const char* first, ...) {
    StringStack* stack = nullptr;
    va_list arguments;
    va_start(arguments, first);
    for (const char* text = first; text != nullptr; text = va_arg(arguments, const char*)) {
        if (stack != nullptr) morva::push_text(stack, {&c, 1});
        morva::push_text(stack, text);
    }
    va_end(arguments);
    return morva::take_text(stack);
}

}  // extern "C"
