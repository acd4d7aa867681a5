// Where the groups of a pattern lie in its match, for the patterns that leave no choice: everything
// in a row, with no more than one element of changing length. "^(.)H([ZNE])_(.*)$" is one.
#pragma once

#include <regex.h>

#include <array>
#include <cstddef>

namespace morva {

class GroupLayout {
  public:
    // False when the pattern leaves a choice. It must be one that a PatternTable could be built of.
    bool read(const char* pattern);
    bool ready() const { return ready_; }

    // The whole match, which is given, and the groups; -1 for those that the pattern does not have.
    void place(int start, int length, regmatch_t* matches, std::size_t count) const;

  private:
    friend class LayoutReader;
    static constexpr std::size_t kGroups = 10;

    // A distance from the beginning or, when negative, from behind the end: -1 is the end itself.
    using Edge = short;
    struct Group {
        Edge begin, end;
    };

    std::array<Group, kGroups> groups_;
    std::size_t count_ = 0;
    bool ready_ = false;
};

}  // namespace morva
