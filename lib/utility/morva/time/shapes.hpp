// A scanner made of shapes: a table of small patterns becomes one machine that reads each character
// once, whatever the number of shapes.
//
//     letters in lower case, ':' and others   themselves; letters also in upper case
//     9   one digit                           #   one digit or more
//     ~   digits with or without a fraction   !   a sign or nothing
//     $   the first three letters of a month  @   a letter
//     %   characters of a word, one or more   *   any character
//     [ ] what may be left out                |   another shape of the same rule
#pragma once

#include <cstdint>
#include <cstdlib>
#include <span>

#include "base/memory.hpp"

namespace morva::time {

class Shapes {
  public:
    explicit Shapes(std::span<const char* const> shapes);
    static void* operator new(std::size_t size) { return must_malloc(size, "shapes", MORVA_HERE); }
    static void operator delete(void* shapes) { std::free(shapes); }

    struct Match {
        int shape;  // its index; -1 when none fits
        const char* end;
    };
    // The longest match at the start of a text; of shapes that match as much, the first.
    Match longest(const char* text) const {
        unsigned state = kStart;
        const char* at = text;
        for (unsigned next; (next = after(state, *at)) != kDead; ++at) state = next;
        return match(state) >= 0 ? Match{match(state), at} : last_match(text);
    }

  private:
    // For texts that go on as a longer shape would and then do not end as it must.
    Match last_match(const char* text) const {
        Match found{-1, text};
        for (unsigned state = kStart; (state = after(state, *text)) != kDead;)
            if (++text; match(state) >= 0) found = {match(state), text};
        return found;
    }
    int match(unsigned state) const { return table_[state] - 1; }
    // The column does not depend on the state, so that only one look-up waits for the one before.
    unsigned after(unsigned state, char c) const {
        const std::uint16_t* column = table_.data() + column_of_[static_cast<unsigned char>(c)];
        return column[state];
    }

    static constexpr unsigned kDead = 0;
    static constexpr unsigned kStart = 1;

    // States are the places of their rows in the table. A row is the index of the shape that
    // matches there, from 1, and the next state for each class of characters. The dead state has
    // only the former.
    std::uint8_t column_of_[256];
    Vector<std::uint16_t> table_;
};

}  // namespace morva::time
