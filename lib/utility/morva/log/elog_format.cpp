// printf for the formats that messages mostly have: %s, %d, %i, %u, %ld, %li, %lu, %c and %%, as
// they stand. The C library needs several times as long for them.
#include <charconv>
#include <cstdarg>
#include <cstring>

#include "log/elog.hpp"

namespace morva::log {
namespace {

// Room that is written front to back; `full` once something did not fit.
struct Room {
    char* at;
    char* end;
    bool full = false;

    void put(const char* text, std::size_t n) {
        if (n > static_cast<std::size_t>(end - at)) {
            full = true;
            return;
        }
        std::memcpy(at, text, n);
        at += n;
    }
    template <class Number>
    void put(Number number) {
        const auto [last, error] = std::to_chars(at, end, number);
        if (error != std::errc()) full = true;
        at = last;
    }
};

// The arguments, in a struct so that they can be passed on by reference.
struct Arguments {
    va_list list;
};

bool put_string(Room& room, const char* text) {
    if (text == nullptr) return false;  // the C library has its own words for that
    room.put(text, strnlen(text, static_cast<std::size_t>(room.end - room.at) + 1));
    return true;
}

bool put_long(Room& room, char letter, Arguments& arguments) {
    if (letter == 'd' || letter == 'i')
        room.put(va_arg(arguments.list, long));
    else if (letter == 'u')
        room.put(va_arg(arguments.list, unsigned long));
    else
        return false;
    return true;
}

// Handles the conversion whose letters begin at `p`; false when it is none of ours.
bool convert(Room& room, const char*& p, Arguments& arguments) {
    switch (const char letter = *p++) {
        case 's':
            return put_string(room, va_arg(arguments.list, const char*));
        case 'd':
        case 'i':
            room.put(va_arg(arguments.list, int));
            return true;
        case 'u':
            room.put(va_arg(arguments.list, unsigned));
            return true;
        case 'l':
            return put_long(room, *p++, arguments);
        case 'c': {
            const char c = static_cast<char>(va_arg(arguments.list, int));
            room.put(&c, 1);
            return true;
        }
        case '%':
            room.put(&letter, 1);
            return true;
        default:
            return false;
    }
}

}  // namespace

int format_simply(char* to, std::size_t size, const char* format, va_list given) {
    Room room{to, to + size - 1};
    Arguments arguments;
    va_copy(arguments.list, given);
    bool simple = true;
    for (const char* p = format; simple && *p != '\0' && !room.full;) {
        if (*p == '%') {
            ++p;
            simple = convert(room, p, arguments);
        } else {
            const char* next = std::strchr(p, '%');
            if (next == nullptr) next = p + std::strlen(p);
            room.put(p, static_cast<std::size_t>(next - p));
            p = next;
        }
    }
    va_end(arguments.list);
    if (!simple || room.full) return -1;
    *room.at = '\0';
    return static_cast<int>(room.at - to);
}

}  // namespace morva::log
