// Splitting in place: runs of separators count as one, empty fields never appear.
#include <cstring>

#include "morva/strings.h"
#include "morva/tbl.h"
#include "text/strings.hpp"

namespace {

constexpr long kFirstItems = 5;

template <class IsSeparator>
Tbl* split_at(char* s, IsSeparator is_separator) {
    Tbl* fields = newtbl(kFirstItems);
    for (char* p = s; *p != '\0';) {
        if (is_separator(*p)) {
            ++p;
            continue;
        }
        pushtbl(fields, p);
        while (*p != '\0' && !is_separator(*p)) ++p;
        if (*p != '\0') *p++ = '\0';
    }
    return fields;
}

}  // namespace

extern "C" {

Tbl* split(char* s, char c) {
    return split_at(s, [c](char candidate) { return candidate == c; });
}

Tbl* splitws(char* s) {
    return split_at(s, morva::is_blank);
}

}  // extern "C"
