// Lists of strings: searched by pattern, printed.
#include <algorithm>
#include <cstdio>
#include <string_view>

#include "base/pattern.hpp"
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {

const char* string_of(const Tbl* tbl, int64_t i, String* copy) {
    const char* text = static_cast<const char*>(tbl_item(tbl, i));
    if (!tbl->direct || std::memchr(text, 0, tbl->itemsize) != nullptr) return text;
    return copy->assign(text, tbl->itemsize).c_str();
}

namespace {

void push_index(Tbl* tbl, int64_t i) {
    pushtbl(tbl, reinterpret_cast<void*>(i));
}

// Prints item i as a line.
int put_item(const Tbl* tbl, int64_t i) {
    String copy;
    const char* text = string_of(tbl, i, &copy);
    return std::puts(text != nullptr ? text : "");
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

Tbl* greptbl(const char* pattern, Tbl* tbl) {
    Tbl* found = newtbl(0);
    Pattern compiled;
    if (!compiled.compile(pattern)) return found;
    String copy;
    for (long i = 0; i < maxtbl(tbl); ++i) {
        const char* text = string_of(tbl, i, &copy);
        if (text != nullptr && compiled.matches_whole(text)) push_index(found, i);
    }
    return found;
}

Tbl* tblgrep(Tbl* tbl, const char* string) {
    Tbl* found = newtbl(0);
    String copy;
    for (long i = 0; i < maxtbl(tbl); ++i) {
        const char* text = string_of(tbl, i, &copy);
        Pattern pattern;
        if (text != nullptr && pattern.compile(text) && pattern.matches_whole(string))
            push_index(found, i);
    }
    return found;
}

int dumptbl(const char* title, Tbl* tbl, int (*print_function)(void*)) {
    static char empty[] = "  ** no entries in list **\n";
    if (title != nullptr && *title != '\0') std::puts(title);
    if (maxtbl(tbl) == 0)
        return print_function != nullptr ? print_function(empty) : std::puts(empty);
    int result = 0;
    for (long i = 0; i < maxtbl(tbl); ++i) {
        std::printf("%3ld : ", i);
        result = print_function != nullptr ? print_function(tbl_item(tbl, i)) : put_item(tbl, i);
    }
    return result;
}

}  // extern "C"
