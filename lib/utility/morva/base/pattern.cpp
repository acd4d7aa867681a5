#include "base/pattern.hpp"

namespace morva {

Pattern::~Pattern() {
    if (compiled_) regfree(&regex_);
}

bool Pattern::compile(const char* text, String* reason) {
    const int code = regcomp(&regex_, text, REG_EXTENDED);
    if (code == 0) return compiled_ = true;
    if (reason != nullptr) {
        char words[256];
        regerror(code, &regex_, words, sizeof words);
        *reason = words;
    }
    return false;
}

bool Pattern::matches_whole(const char* string) const {
    regmatch_t match;
    return regexec(&regex_, string, 1, &match, 0) == 0 && match.rm_so == 0 &&
           string[match.rm_eo] == '\0';
}

bool Pattern::found_in(const char* string) const {
    return regexec(&regex_, string, 0, nullptr, 0) == 0;
}

bool Pattern::search(const char* string, int* start, int* length) const {
    regmatch_t match;
    if (regexec(&regex_, string, 1, &match, 0) != 0) return false;
    *start = static_cast<int>(match.rm_so);
    *length = static_cast<int>(match.rm_eo - match.rm_so);
    return true;
}

}  // namespace morva
