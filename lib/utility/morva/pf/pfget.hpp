// What the getters share, for those that live with other families too: a value found, checked for
// its type, and read as a number. A getter of a new kind of number is one call of number_at.
#pragma once

#include "base/diagnostics.hpp"
#include "morva/pf.h"
#include "morva/strings.h"

namespace morva::pf {

// A path as messages show it, which for a list is an index. Valid while the object lives.
class PathName {
  public:
    PathName(const Pf* pf, const char* path);
    const char* c_str() const { return name_; }

  private:
    const char* name_;
    char index_[24];
};

// The expanded string at the path. Null when there is none: for a missing value pfdie has been
// called with `result`, for one of the wrong type with the place of the node. An unset string is
// the empty string.
const char* text_at(Pf* pf, const char* path, void* result);

// The number that parse(text, &end) makes of the string at the path, which must be all of the
// string but white space; it is used as it is when there is more, after the complaint "Bad KIND
// value '%s' for %s". Without a value, 0 or what a handler has stored.
template <class Number, class Parse>
Number number_at(Pf* pf, const char* path, const char* kind, Parse parse) {
    Number result = 0;
    const char* text = text_at(pf, path, &result);
    if (text == nullptr) return result;
    char* end = const_cast<char*>(text);
    result = parse(text, &end);
    if (end == text || !whitespace(end))
        elog_complain(0, "Bad %s value '%s' for %s", kind, text, PathName(pf, path).c_str());
    return result;
}

}  // namespace morva::pf
