#include "base/pattern.hpp"

#include <cstdio>

#include "base/pattern_guard.hpp"

namespace morva {

Pattern::~Pattern() {
    if (compiled_) regfree(&regex_);
}

bool Pattern::compile(const char* text, Reason& reason, Groups groups) {
    if (table_.build(text) && (groups == Groups::kIgnored || layout_.read(text))) return true;
    if (const char* refusal = over_ceiling(text)) {
        std::snprintf(reason, sizeof reason, "%s", refusal);
        return false;
    }
    const int code = regcomp(&regex_, text, REG_EXTENDED);
    compiled_ = code == 0;
    if (!compiled_) regerror(code, &regex_, reason, sizeof reason);
    return compiled_;
}

bool Pattern::compile(const char* text, String* reason, Groups groups) {
    Reason words;
    const bool done = compile(text, words, groups);
    if (!done && reason != nullptr) *reason = words;
    return done;
}

bool Pattern::regex_matches_whole(const char* string) const {
    regmatch_t match;
    return regexec(&regex_, string, 1, &match, 0) == 0 && match.rm_so == 0 &&
           string[match.rm_eo] == '\0';
}

bool Pattern::found_in(const char* string) const {
    return table_.ready() ? table_.found_in(string) : regexec(&regex_, string, 0, nullptr, 0) == 0;
}

bool Pattern::search(const char* string, int* start, int* length) const {
    if (table_.ready()) return table_.search(string, start, length);
    regmatch_t match;
    if (regexec(&regex_, string, 1, &match, 0) != 0) return false;
    *start = static_cast<int>(match.rm_so);
    *length = static_cast<int>(match.rm_eo - match.rm_so);
    return true;
}

bool Pattern::match_groups(const char* string, regmatch_t* matches, std::size_t count) const {
    int start, length;
    if (table_.ready() && !table_.search(string, &start, &length)) return false;
    if (layout_.ready()) {
        layout_.place(start, length, matches, count);
        return true;
    }
    return regexec(&regex_, string, count, matches, 0) == 0;
}

}  // namespace morva
