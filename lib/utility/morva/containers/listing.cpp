// Lists a whole tree in key order without following one link after the other.
//
// Seen as a 2-3-4 tree (a black node with its red children is one wide node), all wide nodes of a
// level have the same height. A level is written as one array: subtree, item, subtree, item, ...,
// subtree, in key order; each pass replaces every subtree by its parts, and the last leaves the
// items. The subtrees of a pass do not depend on each other, so the processor fetches many at once,
// and no step is a branch that it must guess. The lowest levels, where nearly all nodes are, are
// opened in strips of a few subtrees, so that a node is still in the cache when its turn comes.

#include <algorithm>
#include <utility>

#include "containers/redblack.hpp"

namespace morva {
namespace {

constexpr long kSlack = 4;        // slots behind the last item that a pass may write
constexpr long kAhead = 8;        // subtrees fetched ahead
constexpr long kStripHeight = 3;  // levels that are opened strip by strip
constexpr long kStripWidth = 32;  // subtrees of a strip
constexpr long kStripSlots = 2 * kStripWidth * (1 << 2 * (kStripHeight - 1)) + kSlack;

template <Part part>
void* item_of(const Node* node) {
    return part == Part::kKey ? node->key : node->value;
}

// Fetches what the pass will read of the subtrees to come: first a node, later its children.
inline void fetch_ahead(void* const* level, long i, long last) {
    __builtin_prefetch(level[2 * std::min(i + 2 * kAhead, last)]);
    const auto* node = static_cast<const Node*>(level[2 * std::min(i + kAhead, last)]);
    __builtin_prefetch(node->child[kLeft]);
    __builtin_prefetch(node->child[kRight]);
}

// A black child is a subtree of the next level; a red one is an item between two of them.
template <Part part>
void** open_child(Node* child, void** to) {
    to[0] = child->red ? child->child[kLeft] : child;
    to[1] = item_of<part>(child);
    to[2] = child->child[kRight];
    return to + 1 + 2 * child->red;
}

// At the last level a red child is an item, and a black one is the sentinel.
template <Part part>
void** open_last_child(const Node* child, void** to) {
    *to = item_of<part>(child);
    return to + child->red;
}

// Opens `subtrees` of a level; `known` of them may be fetched. Returns the end of what it wrote.
template <Part part, bool last>
void** open_level(void* const* level, long subtrees, long known, void** to) {
    for (long i = 0; i < subtrees; ++i) {
        fetch_ahead(level, i, known - 1);
        auto* node = static_cast<Node*>(level[2 * i]);
        to = last ? open_last_child<part>(node->child[kLeft], to)
                  : open_child<part>(node->child[kLeft], to);
        *to++ = item_of<part>(node);
        to = last ? open_last_child<part>(node->child[kRight], to)
                  : open_child<part>(node->child[kRight], to);
        *to++ = level[2 * i + 1];
    }
    return to;
}

// Writes the items of `subtrees` of the same height and the item behind each.
template <Part part>
void** list_strip(void* const* level, long subtrees, long known, long height, void** to) {
    void* levels[2][kStripSlots];
    for (void** lower = levels[height % 2]; height > 1; --height) {
        void** end = open_level<part, false>(level, subtrees, known, lower);
        known = subtrees = (end - lower) / 2;
        level = lower;
        lower = levels[height % 2 == 0];
    }
    return open_level<part, true>(level, subtrees, known, to);
}

template <Part part>
void list_items(Tree* tree, void** items) {
    long height = 0;
    for (const Node* node = tree->root; node != &tree->nil; node = node->child[kLeft])
        height += 1 - node->red;
    // A subtree of height h holds at least 2^h - 1 items, and one item stands behind it.
    const long slots = 2 * (tree->count >> kStripHeight) + 2 + 2 * kSlack;
    malloced<void*> levels(
        static_cast<void**>(must_malloc(2 * slots * sizeof(void*), "level", MORVA_HERE)));
    void** level = levels.get();
    void** lower = level + slots;
    level[0] = tree->root;
    level[1] = nullptr;
    long subtrees = 1;
    for (; height > kStripHeight; --height, std::swap(level, lower))
        subtrees = (open_level<part, false>(level, subtrees, subtrees, lower) - lower) / 2;
    for (long i = 0; i < subtrees; i += kStripWidth) {
        const long width = std::min(kStripWidth, subtrees - i);
        items = list_strip<part>(level + 2 * i, width, subtrees - i, height, items);
    }
}

}  // namespace

Tbl* list_in_order(Tree* tree, Part part) {
    const long count = tree == nullptr ? 0 : tree->count;
    Tbl* list = newtbl(count);
    if (count == 0) return list;
    const long slots = count + kSlack;
    list->base = static_cast<char*>(must_malloc(slots * sizeof(void*), "tbl->base.cp", MORVA_HERE));
    auto** items = reinterpret_cast<void**>(list->base);
    if (part == Part::kKey)
        list_items<Part::kKey>(tree, items);
    else
        list_items<Part::kValue>(tree, items);
    std::fill(items + count, items + slots, nullptr);
    list->count = count;
    list->alloc_end = slots;
    list->right_increment = 2 * slots;
    return list;
}

}  // namespace morva
