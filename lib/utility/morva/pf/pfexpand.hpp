// References inside values, for the evaluator and for those who check files.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "pf/pf.hpp"

namespace morva::pf {

// What begins with an "&" that means something.
struct Reference {
    std::string_view text;  // as written
    std::string_view path;  // of a reference; empty for "&&"
    bool braced;            // a path expression, not a name
};

// The first one in `text` from `at` on. False when there is none.
bool next_reference(std::string_view text, std::size_t at, Reference* found);

// Finds what a reference in the value of `node` stands for, from the enclosing array outward. Its
// type, or a code of pfresolve.hpp.
int look_up(const Pf* node, std::string_view path, bool braced, Pf** target);

// Appends the string of a node with its references expanded; the node must have one. False, with
// the reason registered, when it has to stay as written.
bool append_expanded(Pf* node, String* text);

// As append_expanded, for a text that stands in the place of `node`, whose evaluation is under way.
bool expand_text(const Pf* node, std::string_view value, String* text);

// True for types with a string, when it is not null.
inline bool has_string(const Pf* node) {
    switch (node->type) {
        case PFSTRING:
        case PFUNDEFINED:
        case PFINVALID:
        case PFPLACEHOLDER:
            return node->value.string != nullptr;
        default:
            return false;
    }
}

}  // namespace morva::pf
