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

constexpr long kAhead = 12;          // subtrees whose children are fetched ahead
constexpr long kSlack = 2 * kAhead;  // slots behind a level, for the fetching to read
constexpr long kSpill = 3;           // slots behind its last item that a pass may write
constexpr long kStripHeight = 3;     // levels that are opened strip by strip
constexpr long kStripWidth = 64;     // subtrees of a strip
constexpr long kStripSlots = 2 * kStripWidth * (1 << 2 * (kStripHeight - 1)) + kSlack;
constexpr long kFewSlots = 128;  // longer levels above the strips come from the heap

template <Column column>
void* item_of(Node* node) {
    if constexpr (column == Column::kNode) return node;
    return column == Column::kKey ? node->key : node->value;
}

// Fetches the children of a subtree whose turn comes later.
inline void fetch_children(const void* subtree) {
    const auto* node = static_cast<const Node*>(subtree);
    __builtin_prefetch(node->child[kLeft]);
    __builtin_prefetch(node->child[kRight]);
}

// A black child is a subtree of the next level; a red one is an item between two of them. What is
// written too far is written over by what follows.
template <Column column>
void** open_child(Node* child, void** to) {
    const std::intptr_t red = child->red;
    to[0] = child->child[kLeft];
    to[1] = item_of<column>(child);
    to[2] = child->child[kRight];
    to[3 * red] = child;
    return to + 1 + 2 * red;
}

// At the last level a red child is an item, and a black one is the sentinel.
template <Column column>
void** open_last_child(Node* child, void** to) {
    *to = item_of<column>(child);
    return to + child->red;
}

// Opens `subtrees` of a level, behind which kAhead more stand. Returns the end of what it wrote.
template <Column column, bool last>
void** open_level(void* const* level, long subtrees, void** to) {
    for (void* const* end = level + 2 * subtrees; level != end; level += 2) {
        fetch_children(level[2 * kAhead]);
        auto* node = static_cast<Node*>(level[0]);
        to = last ? open_last_child<column>(node->child[kLeft], to)
                  : open_child<column>(node->child[kLeft], to);
        *to++ = item_of<column>(node);
        to = last ? open_last_child<column>(node->child[kRight], to)
                  : open_child<column>(node->child[kRight], to);
        *to++ = level[1];
    }
    return to;
}

// Writes the next lower level and behind it, over and over, its first subtree. Returns how many
// subtrees it has.
template <Column column>
long open_inner_level(void* const* level, long subtrees, void** lower) {
    void** end = open_level<column, false>(level, subtrees, lower);
    for (long i = 0; i < kAhead; ++i) end[2 * i] = lower[0];
    return (end - lower) / 2;
}

// Writes the items of `subtrees` of the same height and the item behind each.
template <Column column>
void** list_strip(void* const* level, long subtrees, long height, void** to) {
    void* levels[2][kStripSlots];
    for (; height > 1; --height) {
        void** lower = levels[height % 2];
        subtrees = open_inner_level<column>(level, subtrees, lower);
        level = lower;
    }
    return open_level<column, true>(level, subtrees, to);
}

long black_height(const Tree* tree) {
    long height = 0;
    for (const Node* node = tree->root; node != &tree->nil; node = node->child[kLeft])
        height += 1 - node->red;
    return height;
}

template <Column column>
void list_items(Tree* tree, void** items) {
    // A subtree of height h holds at least 2^h - 1 items, and one item stands behind it.
    const long slots = 2 * (tree->count >> kStripHeight) + 2 + kSlack;
    void* few[2 * kFewSlots];
    malloced<void*> many;
    if (slots > kFewSlots)
        many.reset(
            static_cast<void**>(must_malloc(2 * slots * sizeof(void*), "level", MORVA_HERE)));
    void** level = many ? many.get() : few;
    void** lower = level + slots;

    for (long i = 0; i <= kAhead; ++i) level[2 * i] = tree->root;
    level[1] = nullptr;
    long subtrees = 1;
    long height = black_height(tree);
    for (; height > kStripHeight; --height, std::swap(level, lower))
        subtrees = open_inner_level<column>(level, subtrees, lower);
    for (long i = 0; i < subtrees; i += kStripWidth) {
        const long width = std::min(kStripWidth, subtrees - i);
        items = list_strip<column>(level + 2 * i, width, height, items);
    }
}

}  // namespace

Tbl* list_in_order(Tree* tree, Column column) {
    const long count = tree == nullptr ? 0 : tree->count;
    Tbl* list = newtbl(count);
    if (count == 0) return list;
    const long slots = count + kSpill;
    list->base = static_cast<char*>(must_malloc(slots * sizeof(void*), "tbl->base.cp", MORVA_HERE));
    auto** items = reinterpret_cast<void**>(list->base);
    if (column == Column::kKey)
        list_items<Column::kKey>(tree, items);
    else if (column == Column::kValue)
        list_items<Column::kValue>(tree, items);
    else
        list_items<Column::kNode>(tree, items);
    std::fill(items + count, items + slots, nullptr);
    list->count = count;
    list->alloc_end = slots;
    list->right_increment = 2 * slots;
    return list;
}

}  // namespace morva
