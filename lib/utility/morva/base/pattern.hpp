// A compiled POSIX extended regular expression, guarded against patterns that would take the
// process's memory or minutes, and quick for the small patterns of daily use.
//
//     Pattern pattern;
//     String reason;
//     if (!pattern.compile("^BH[ZNE]$", &reason)) ...
//     if (pattern.found_in("BHZ")) ...
#pragma once

#include <regex.h>

#include "base/group_layout.hpp"
#include "base/memory.hpp"
#include "base/pattern_table.hpp"

namespace morva {

// The answers are those of the C library's regcomp and regexec. Patterns above the ceiling of
// pattern_guard.hpp are refused like patterns that do not compile. A compiled pattern never
// changes: any number of threads may match with it.
class Pattern {
  public:
    // Whether match_groups will be asked for what the groups matched.
    enum class Groups { kIgnored, kKept };

    Pattern() = default;
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;
    ~Pattern();

    using Reason = char[128];

    // Compiles `text`, once. On failure returns false and, when asked, gives the reason. The first
    // form takes no memory that could end the process.
    bool compile(const char* text, Reason& reason, Groups groups = Groups::kIgnored);
    bool compile(const char* text, String* reason = nullptr, Groups groups = Groups::kIgnored);

    // True when the leftmost match begins at the first character and ends at the last.
    bool matches_whole(const char* string) const {
        return table_.ready() ? table_.matches_whole(string) : regex_matches_whole(string);
    }

    // False when no string that begins with the character matches as a whole; 0 stands for the
    // empty string.
    bool may_begin_with(char c) const { return !table_.ready() || table_.may_begin_with(c); }

    // True when the pattern matches anywhere.
    bool found_in(const char* string) const;

    // True when the pattern matches anywhere; gives the offset and length of the leftmost match.
    bool search(const char* string, int* start, int* length) const;

    // As found_in, and gives the whole match and up to count - 1 groups; needs Groups::kKept.
    bool match_groups(const char* string, regmatch_t* matches, std::size_t count) const;

  private:
    bool regex_matches_whole(const char* string) const;

    PatternTable table_;
    GroupLayout layout_;  // ready only with a table
    regex_t regex_{};
    bool compiled_ = false;  // regex_ holds something
};

}  // namespace morva
