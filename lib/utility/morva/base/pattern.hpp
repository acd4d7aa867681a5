// A compiled POSIX extended regular expression, guarded against patterns that would take the
// process's memory or minutes.
#pragma once

#include <regex.h>

#include "base/memory.hpp"

namespace morva {

class Pattern {
  public:
    Pattern() = default;
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;
    ~Pattern();

    // Compiles `text`. On failure returns false and, when asked, gives the reason.
    bool compile(const char* text, String* reason = nullptr);

    // True when the leftmost match begins at the first character and ends at the last.
    bool matches_whole(const char* string) const;

    // True when the pattern matches anywhere.
    bool found_in(const char* string) const;

    // True when the pattern matches anywhere; gives the offset and length of the leftmost match.
    bool search(const char* string, int* start, int* length) const;

  private:
    regex_t regex_{};
    bool compiled_ = false;
};

}  // namespace morva
