#include "pf/pfscout.hpp"

#include <algorithm>

namespace morva::pf {
namespace {

constexpr std::size_t kMostPlaces = 2048;  // what is fetched at once stays in the cache
constexpr long kMostItems = 32;            // longer lists are fetched when the walk is in them

}  // namespace

// A place is looked at a while after it was asked for.
void Scout::add(const void* at, Kind kind, std::uintptr_t more) {
    if (at == nullptr || places_.size() >= kMostPlaces) return;
    __builtin_prefetch(at);
    places_.push_back({at, kind, more});
}

void Scout::look_at_node(const Pf* node) {
    if (is_array(node))
        add(node->value.arr, Kind::kArray);
    else if (node->type == PFTBL)
        add(node->value.tbl, Kind::kList);
    else
        __builtin_prefetch(node->value.any);
}

void Scout::look(Place place) {
    switch (place.kind) {
        case Kind::kSubtree: {
            const Node* node = static_cast<const Node*>(place.at);
            for (const Node* child : node->child)
                if (reinterpret_cast<std::uintptr_t>(child) != place.more)
                    add(child, Kind::kSubtree, place.more);
            return add(node->value, Kind::kNode);
        }
        case Kind::kEntry:
            return add(static_cast<const Node*>(place.at)->value, Kind::kNode);
        case Kind::kNode:
            return look_at_node(static_cast<const Pf*>(place.at));
        case Kind::kArray: {
            const Tree* tree = static_cast<const Tree*>(place.at);
            if (tree->root == &tree->nil) return;
            return add(tree->root, Kind::kSubtree, reinterpret_cast<std::uintptr_t>(&tree->nil));
        }
        case Kind::kList: {
            const Tbl* tbl = static_cast<const Tbl*>(place.at);
            const long count = std::min(tbl_count(tbl), kMostItems);
            if (count == 0) return;
            return add(tbl_pointers<>(tbl).data(), Kind::kItems,
                       static_cast<std::uintptr_t>(count));
        }
        case Kind::kItems:
            for (std::uintptr_t i = 0; i < place.more; ++i)
                add(static_cast<void* const*>(place.at)[i], Kind::kNode);
    }
}

void Scout::fetch(std::span<void* const> entries, bool array) {
    places_.clear();
    for (void* entry : entries) add(entry, array ? Kind::kEntry : Kind::kNode);
    for (std::size_t i = 0; i < places_.size(); ++i) look(places_[i]);
}

}  // namespace morva::pf
