// String basics: comparison, blanks, fixed-width fields, case, printable text.
#include "morva/strings.h"

#include <cctype>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "text/strings.hpp"

namespace {

using std::string_view;

constexpr string_view kTrue[] = {"yes", "ok", "y", "true", "1", "on", "t"};
constexpr string_view kFalse[] = {"no", "n", "false", "0", "off", "f"};
constexpr std::size_t kLongestWord = 5;

bool listed(string_view word, const auto& words) {
    for (string_view candidate : words)
        if (word == candidate) return true;
    return false;
}

template <class Map>
int map_case(char* s, Map map) {
    char* p = s;
    for (; *p != '\0'; ++p) *p = static_cast<char>(map(static_cast<unsigned char>(*p)));
    return static_cast<int>(p - s);
}

}  // namespace

extern "C" {

int nstrcmp(const char* a, const char* b) {
    if (a != nullptr && b != nullptr) return std::strcmp(a, b);
    return a != b;
}

int blank(const char* s) {
    return s == nullptr || s[std::strspn(s, " ")] == '\0';
}

int whitespace(const char* s) {
    if (s == nullptr) return 1;
    while (morva::is_blank(*s)) ++s;
    return *s == '\0';
}

void sncopy(char* dst, const char* src, int n) {
    if (n <= 0) return;
    const std::size_t width = static_cast<std::size_t>(n);
    const std::size_t length = strnlen(src, width);
    std::memmove(dst, src, length);
    std::memset(dst + length, ' ', width - length);
}

char* szcopy(char* dst, const char* src, int n) {
    if (n > 0) {
        std::memmove(dst, src, static_cast<std::size_t>(n));
        dst += n;
    }
    *dst = '\0';
    return dst;
}

char* copystrip(char* dst, const char* src, int n) {
    const char* end = n > 0 ? src + n : src;
    while (src < end && *src == ' ') ++src;
    while (src < end && end[-1] == ' ') --end;
    return szcopy(dst, src, static_cast<int>(end - src));
}

void* memdup(const void* p, size_t n) {
    void* copy = morva::must_malloc(n, "b", MORVA_HERE);
    if (n > 0) std::memcpy(copy, p, n);
    return copy;
}

int str2upper(char* s) {
    return map_case(s, [](int c) { return std::toupper(c); });
}

int str2lower(char* s) {
    return map_case(s, [](int c) { return std::tolower(c); });
}

void chomp(char* s) {
    if (s == nullptr) return;
    const std::size_t length = std::strlen(s);
    if (length > 0 && s[length - 1] == '\n') s[length - 1] = '\0';
}

char* okstr(const char* s) {
    static char absent[] = "<null>";
    return s != nullptr ? const_cast<char*>(s) : absent;
}

int ascii_cnt(const char* buf, int n) {
    int count = 0;
    for (; count < n && buf[count] != '\0'; ++count)
        if (!morva::is_printable(buf[count])) return -1;
    return count;
}

char* strtrim(char* s) {
    char* first = s;
    while (morva::is_blank(*first)) ++first;
    std::size_t length = std::strlen(first);
    while (length > 0 && morva::is_blank(first[length - 1])) --length;
    if (first != s) std::memmove(s, first, length);
    s[length] = '\0';
    return s;
}

int yesno(const char* s) {
    if (s == nullptr) return 1;
    char word[kLongestWord + 2];
    const std::size_t length = strnlen(s, sizeof word);
    for (std::size_t i = 0; i < length; ++i)
        word[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(s[i])));
    if (listed({word, length}, kTrue)) return -1;
    return listed({word, length}, kFalse) ? 0 : 1;
}

}  // extern "C"
