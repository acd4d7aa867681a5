// IPv4 values against the lists of parameter trees.
//
// Reading the numbers of all lines is most of the work of a check, so each thread keeps those of
// the last few lists that it has looked through before. But nodes, lists and texts are the
// program's, which may change them, free them, and read another tree to the same addresses without
// our notice. So nothing kept is believed that is not compared first: the numbers tell which line
// decides, and before that is the answer, this line and all before it are compared with copies of
// those that were read.
#pragma once

#include <cstdint>
#include <string_view>

#include "morva/pf.h"

namespace morva::net {

// Small enough to be returned in registers.
struct Found {
    int index = -1;
    uint32_t size = 0;
    const char* text = nullptr;

    Found() = default;
    Found(std::size_t line, std::string_view comment)
        : index(static_cast<int>(line)),
          size(static_cast<uint32_t>(comment.size())),
          text(comment.data()) {}
    std::string_view comment() const { return {text, size}; }
};

// The first line of a list that matches: its index, or -1, and its comment without blanks around
// it. The comment is valid until the next call in the thread, or until the list changes.
Found find_value(const Tbl* list, uint32_t ip);

}  // namespace morva::net
