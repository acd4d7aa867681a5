// The ceiling on regular expressions that come from outside.
#pragma once

#include <cstddef>

namespace morva {

// What a pattern may be at most. Counted once repetitions are written out, so that a{9}{9} counts
// as 81 characters; x+ counts as xx*. The figures keep the C library below a second and some 100
// MB: its compiler lists for each node what can follow it without a character in between, and
// copies that behind an assertion; its matcher makes such lists of all nodes where it may stand.
struct PatternCeiling {
    static constexpr std::size_t kLength = 16384;    // bytes of the pattern's text
    static constexpr std::size_t kDepth = 100;       // groups within groups
    static constexpr std::size_t kNesting = 10;      // repetitions of repetitions
    static constexpr std::size_t kPositions = 8192;  // characters, '.' and bracket lists
    // 1 for each '|', 2 for each group, 4 for each '*', '+', '?' and copy that {n,m} may leave out.
    static constexpr std::size_t kBranching = 8000;
    // The same of the worst alternative.
    static constexpr std::size_t kBranchingOnWay = 3000;
    // Length of all lists; N alternatives need N squared.
    static constexpr std::size_t kLists = 2600000;
    // Branching within unbounded repetitions of what may be empty, as in (a*|b)*, where the time
    // can grow exponentially; what is within two of them counts twice.
    static constexpr std::size_t kEmptyLoops = 40;
    // Assertions (^ $ and the \b kind) times what they are among: branching, and 4 for each of
    // them; of the worst alternative, and without those that the whole pattern or a branch of it
    // begins or ends with. None may be within a repetition other than '?'.
    static constexpr std::size_t kTangle = 400;
    // Nodes reached from such an assertion other than a '^' in front, times positions: at each
    // character the matcher takes out of its lists what the assertion forbids.
    static constexpr std::size_t kCopies = 2000000;
    // Groups that may be empty, alone, and, of the worst alternative, times empty loops and
    // assertions (4 each).
    static constexpr std::size_t kEmptyGroups = 300;
    static constexpr std::size_t kEmptyPaths = 100;
    // Back-references: the C library tries every way of dividing a string among groups, so that
    // such a pattern may have no unbounded repetition and little branching.
    static constexpr std::size_t kReferences = 4;
    static constexpr std::size_t kBranchingWithReferences = 16;
};

// Null when the pattern stays under the ceiling, and otherwise the reason for refusing it. Says
// nothing about whether the pattern is well formed.
const char* over_ceiling(const char* pattern);

}  // namespace morva
