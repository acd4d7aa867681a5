// Patterns matched by table against the C library: the same leftmost, longest match. The first line
// is the pattern, each further one a string.
#include <regex.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/pattern.hpp"
#include "base/pattern_guard.hpp"

namespace {

void compare(const morva::PatternTable& table, const regex_t& regex, const std::string& string) {
    regmatch_t match;
    const bool expected = regexec(&regex, string.c_str(), 1, &match, 0) == 0;
    int start = 0, length = 0;
    if (table.search(string.c_str(), &start, &length) != expected) abort();
    if (table.found_in(string.c_str()) != expected) abort();
    if (expected && (start != match.rm_so || start + length != match.rm_eo)) abort();
    const bool whole = expected && match.rm_so == 0 && string[match.rm_eo] == '\0';
    if (table.matches_whole(string.c_str()) != whole) abort();
}

void compare_groups(const morva::Pattern& pattern, const regex_t& regex,
                    const std::string& string) {
    regmatch_t ours[10], theirs[10];
    const bool found = regexec(&regex, string.c_str(), 10, theirs, 0) == 0;
    if (pattern.match_groups(string.c_str(), ours, 10) != found) abort();
    for (int i = 0; found && i < 10; ++i)
        if (ours[i].rm_so != theirs[i].rm_so || ours[i].rm_eo != theirs[i].rm_eo) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    for (char& c : text)
        if (c == '\0') c = '\n';
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string pattern = text.substr(0, end);
    morva::PatternTable table;
    morva::Pattern guarded;
    const bool compiles = guarded.compile(pattern.c_str(), nullptr, morva::Pattern::Groups::kKept);
    // The C library is not to be asked for what would take it minutes.
    if (!table.build(pattern.c_str()) || !compiles || morva::over_ceiling(pattern.c_str()))
        return 0;
    regex_t regex;
    if (regcomp(&regex, pattern.c_str(), REG_EXTENDED) != 0) abort();
    compare(table, regex, "");
    for (size_t at = end + 1, next; at < text.size(); at = next + 1) {
        next = std::min(text.find('\n', at), text.size());
        compare(table, regex, text.substr(at, next - at));
        compare(table, regex, text.substr(at));
        compare_groups(guarded, regex, text.substr(at, next - at));
    }
    regfree(&regex);
    return 0;
}
