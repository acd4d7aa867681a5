// Small regular expressions as a table: one row a state, one column a class of bytes.
#pragma once

#include <array>
#include <cstdint>

#include "base/memory.hpp"

namespace morva {

// Gives the answers of the C library's regexec (leftmost, then longest) for the patterns that it
// accepts. Built once, never changed: any number of threads may match at a time.
class PatternTable {
  public:
    // False when the pattern is outside the simple language, too large for a table, or the locale
    // is not one of single bytes in their plain order; the pattern may still be a good one then.
    bool build(const char* pattern);
    bool ready() const { return cells_ != nullptr; }

    bool matches_whole(const char* string) const {
        Cell row = start_;
        while (running(row)) row = step(row, *string++);
        return row != 0;
    }
    // Whether some whole match begins with the character; 0 stands for the empty string.
    bool may_begin_with(char c) const { return step(start_, c) != 0; }
    bool found_in(const char* string) const;
    bool search(const char* string, int* start, int* length) const;

  private:
    friend class TableBuilder;
    using Cell = std::uint16_t;  // the index of a row's first cell

    Cell step(Cell row, char c) const {
        return cells_[row + classes_[static_cast<unsigned char>(c)]];
    }
    bool running(Cell row) const { return row >= first_row_; }
    // Whether a match may end before the string does.
    bool accepts(Cell row) const { return cells_[row + width_ - 1] != 0; }
    const char* longest(Cell row, const char* string) const;
    const char* next_start(const char* string) const;

    malloced<Cell[]> cells_;
    std::uint16_t width_;  // cells in a row; the last tells whether the row accepts
    Cell first_row_;       // below it: 0 no match possible, width_ match at the end of the string
    Cell start_;           // at the first character
    Cell restart_;         // at any other; 0 when the pattern is anchored in front
    char only_first_;      // the only character that leads on from restart_, or 0
    bool whole_only_;      // whether nothing but the whole string can match
    std::array<std::uint8_t, 256> classes_;
};

}  // namespace morva
