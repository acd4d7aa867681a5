// Whether lines of a list are still what they were, told from memory as a whole.
//
// A reader puts nodes and their texts one behind the other in large blocks (pf/pfpool.hpp). Where
// the items of a list stand in such a row, two comparisons take the place of a walk from node to
// text for each: the list holds the same pointers, and the memory there is the same. It can be
// read whatever became of the tree that the image is of: the first node is in the list, hence
// alive, and tells where its block is and how far it reaches.
#pragma once

#include <cstddef>
#include <span>

#include "base/memory.hpp"
#include "morva/pf.h"

namespace morva::net {

class ListImage {
  public:
    using Nodes = std::span<Pf* const>;

    // Of these nodes, as they are now.
    void take(Nodes nodes);

    // How many nodes from `from` on, up to the end of the row that begins there, are the same in
    // memory; 0 when one is not, or when no row begins there.
    std::size_t same_from(std::size_t from, Nodes nodes) const;

    // How many of the nodes it is of are in no row.
    std::size_t apart() const { return apart_; }

  private:
    struct Row {
        std::size_t first, end;  // nodes
        std::size_t bytes;       // from the first node to the end of the last text
        const char* copy;
        malloced<char> block;  // which the copy is in
    };
    void add_row(std::size_t first, std::size_t end, const char* memory_end);
    bool same(const Row& row, Nodes nodes) const;

    Vector<Pf*> nodes_;
    Vector<Row> rows_;  // in order
    std::size_t apart_ = 0;
};

}  // namespace morva::net
