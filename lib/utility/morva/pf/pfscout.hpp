// Fetches the parts of a tree into the cache before a walk comes to them.
//
// A large tree is all over the memory, and a walk that follows one pointer after the other waits
// for each. The scout follows those of many subtrees in turn, so that it waits for all of them at
// once.
#pragma once

#include <span>

#include "pf/pf.hpp"

namespace morva::pf {

class Scout {
  public:
    // The entries of an array (Node*) or a list (Pf*), with all that is below them, up to a limit.
    void fetch(std::span<void* const> entries, bool array);

  private:
    enum class Kind { kEntry, kSubtree, kNode, kArray, kList, kItems };
    struct Place {
        const void* at;
        Kind kind;
        std::uintptr_t more;  // kSubtree: the sentinel; kItems: how many
    };
    void add(const void* at, Kind kind, std::uintptr_t more = 0);
    void look(Place place);
    void look_at_node(const Pf* node);

    Vector<Place> places_;  // in the order in which they are looked at
};

}  // namespace morva::pf
