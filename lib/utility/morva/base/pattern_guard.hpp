// The ceiling on regular expressions that come from outside.
#pragma once

#include <cstddef>

namespace morva {

// What a pattern may be at most. Counted once repetitions are written out, so that a{9}{9} counts
// as 81 characters; x+ counts as xx*.
struct PatternCeiling {
    static constexpr std::size_t kLength = 16384;    // bytes of the pattern's text
    static constexpr std::size_t kDepth = 100;       // groups within groups
    static constexpr std::size_t kPositions = 8192;  // characters, '.' and bracket lists
    static constexpr std::size_t kBranching = 2000;  // see below
    // The C library tries every way of dividing a string among groups that are referred back to:
    // such a pattern has no unbounded repetition and little branching.
    static constexpr std::size_t kReferences = 4;
    static constexpr std::size_t kBranchingWithReferences = 16;
};
// Branching, which the C library's memory grows with the square of, adds up 1 for each '|', 2 for
// each group, and 4 for each '*', '+', '?' and each copy that {n,m} may leave out.

// Null when the pattern stays under the ceiling, and otherwise the reason for refusing it. Says
// nothing about whether the pattern is well formed.
const char* over_ceiling(const char* pattern);

}  // namespace morva
