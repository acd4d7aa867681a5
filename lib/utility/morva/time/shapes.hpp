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
#include <span>

#include "base/memory.hpp"

namespace morva::time {

class Shapes {
  public:
    explicit Shapes(std::span<const char* const> shapes);

    struct Match {
        int shape;  // its index; -1 when none fits
        const char* end;
    };
    // The longest match at the start of a text; of shapes that match as much, the first.
    Match longest(const char* text) const {
        unsigned state = kStart;
        const char* at = text;
        for (unsigned next; (next = after(state, *at)) != kDead; ++at) state = next;
        return matches_[state] >= 0 ? Match{matches_[state], at} : last_match(text);
    }

  private:
    // For texts that go on as a longer shape would and then do not end as it must.
    Match last_match(const char* text) const {
        Match found{-1, text};
        for (unsigned state = kStart; (state = after(state, *text)) != kDead;)
            if (++text; matches_[state] >= 0) found = {matches_[state], text};
        return found;
    }
    unsigned after(unsigned state, char c) const {
        return next_[state * kClasses + class_of_[static_cast<unsigned char>(c)]];
    }

    static constexpr unsigned kDead = 0;
    static constexpr unsigned kStart = 1;
    static constexpr unsigned kClasses = 64;

    std::uint8_t class_of_[256];
    Vector<std::uint16_t> next_;
    Vector<std::int16_t> matches_;
};

}  // namespace morva::time
