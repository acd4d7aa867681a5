// Lists of strings: joined, searched by pattern, printed.
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

// Item i as text. A null item is an empty text; one in a by-value list ends with its slot at the
// latest.
std::string_view text_of(const Tbl* tbl, int64_t i) {
    const char* text = static_cast<const char*>(tbl_item(tbl, i));
    if (text == nullptr) return {};
    return {text, tbl->direct ? strnlen(text, tbl->itemsize) : std::strlen(text)};
}

void push_index(Tbl* tbl, int64_t i) {
    pushtbl(tbl, reinterpret_cast<void*>(i));
}

// Where loads and stores go that are not wanted.
struct Aside {
    char bytes[8] = {};
};

// Copies the first and the last Word of a text that has room for one, and otherwise nothing that
// anybody sees: without a branch, because the lengths of short texts are unpredictable.
template <class Word>
inline void copy_ends(char* to, const char* from, std::size_t length, Aside& aside) {
    const std::uintptr_t mask = length >= sizeof(Word) ? ~std::uintptr_t{0} : 0;
    const auto here = reinterpret_cast<std::uintptr_t>(aside.bytes);
    const auto pick = [&](const char* address) {
        return here + ((reinterpret_cast<std::uintptr_t>(address) - here) & mask);
    };
    const char* source = reinterpret_cast<const char*>(pick(from));
    char* target = reinterpret_cast<char*>(pick(to));
    const std::size_t last = (length - sizeof(Word)) & mask;
    Word head, tail;
    std::memcpy(&head, source, sizeof head);
    std::memcpy(&tail, source + last, sizeof tail);
    std::memcpy(target, &head, sizeof head);
    std::memcpy(target + last, &tail, sizeof tail);
}

inline char* append(char* to, const char* text, std::size_t length, Aside& aside) {
    if (length > 2 * sizeof(uint64_t)) {
        std::memcpy(to, text, length);
    } else {
        copy_ends<uint8_t>(to, text, length, aside);
        copy_ends<uint16_t>(to, text, length, aside);
        copy_ends<uint32_t>(to, text, length, aside);
        copy_ends<uint64_t>(to, text, length, aside);
    }
    return to + length;
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

char* jointbl(Tbl* tbl, const char* separator) {
    const std::string_view between = separator != nullptr ? separator : "";
    const long count = maxtbl(tbl);
    malloced<std::size_t> lengths;
    if (count > 0)
        lengths.reset(
            static_cast<std::size_t*>(must_malloc(count * sizeof(std::size_t), "s", MORVA_HERE)));
    std::size_t bytes = count * between.size() + 1;
    for (long i = 0; i < count; ++i) bytes += lengths.get()[i] = text_of(tbl, i).size();
    char* joined = static_cast<char*>(must_malloc(bytes, "s", MORVA_HERE));
    char* to = joined;
    Aside aside;
    for (long i = 0; i < count; ++i) {
        if (i > 0) to = std::copy(between.begin(), between.end(), to);
        to = append(to, static_cast<char*>(tbl_item(tbl, i)), lengths.get()[i], aside);
    }
    *to = '\0';
    return joined;
}

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
