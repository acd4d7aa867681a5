// Lists a whole tree in key order without following one link after the other.
//
// Seen as a 2-3-4 tree (a black node with its red children is one wide node), all wide nodes of a
// level have the same height. A level is written as one array: subtree, item, subtree, item, ...,
// subtree, in key order; each pass replaces every subtree by its parts, and the last leaves the
// items. The subtrees of a pass do not depend on each other, so the processor fetches many at once,
// and no step is a branch that it must guess.

#include <algorithm>
#include <utility>

#include "containers/redblack.hpp"

namespace morva {
namespace {

constexpr long kSlack = 4;      // slots behind the last item that a pass may write
constexpr long kOnStack = 256;  // longer arrays come from the heap
constexpr long kAhead = 8;      // subtrees fetched ahead
constexpr long kFitsCache = 4096;

void* item_of(const Node* node, Part part) {
    return part == Part::kKey ? node->key : node->value;
}

// Fetches what the pass will read of the subtrees to come: first a node, later its children.
void fetch_ahead(void* const* level, long i, long subtrees) {
    const long far = std::min(i + 2 * kAhead, subtrees - 1);
    const long near = std::min(i + kAhead, subtrees - 1);
    __builtin_prefetch(level[2 * far]);
    const auto* node = static_cast<const Node*>(level[2 * near]);
    __builtin_prefetch(node->child[kLeft]);
    __builtin_prefetch(node->child[kRight]);
}

// A black child is a subtree of the next level; a red one is an item between two of them.
void** open_child(Node* child, Part part, void** to) {
    to[0] = child->red ? child->child[kLeft] : child;
    to[1] = item_of(child, part);
    to[2] = child->child[kRight];
    return to + 1 + 2 * child->red;
}

// At the last level a red child is an item, and a black one is the sentinel.
void** open_last_child(const Node* child, Part part, void** to) {
    *to = item_of(child, part);
    return to + child->red;
}

template <Part part, bool last, bool fetches>
void** open_level(void* const* level, long subtrees, void** to) {
    for (long i = 0; i < subtrees; ++i) {
        if constexpr (fetches) fetch_ahead(level, i, subtrees);
        auto* node = static_cast<Node*>(level[2 * i]);
        to = last ? open_last_child(node->child[kLeft], part, to)
                  : open_child(node->child[kLeft], part, to);
        *to++ = item_of(node, part);
        to = last ? open_last_child(node->child[kRight], part, to)
                  : open_child(node->child[kRight], part, to);
        *to++ = level[2 * i + 1];
    }
    return to - 1;
}

template <Part part, bool fetches>
void list_levels(Tree* tree, long height, void** items, void** scratch) {
    if (height % 2 == 1) std::swap(items, scratch);
    items[0] = tree->root;
    long subtrees = 1;
    for (; height > 1; --height, std::swap(items, scratch)) {
        items[2 * subtrees - 1] = nullptr;
        void** end = open_level<part, false, fetches>(items, subtrees, scratch);
        subtrees = (end - scratch + 1) / 2;
    }
    items[2 * subtrees - 1] = nullptr;
    open_level<part, true, fetches>(items, subtrees, scratch);
}

template <Part part>
void list_items(Tree* tree, void** items) {
    long height = 0;
    for (const Node* node = tree->root; node != &tree->nil; node = node->child[kLeft])
        height += 1 - node->red;
    void* on_stack[kOnStack];
    malloced<void*> on_heap;
    void** scratch = on_stack;
    if (const long slots = tree->count + kSlack; slots > kOnStack) {
        on_heap.reset(static_cast<void**>(must_malloc(slots * sizeof(void*), "level", MORVA_HERE)));
        scratch = on_heap.get();
    }
    if (tree->count > kFitsCache)
        list_levels<part, true>(tree, height, items, scratch);
    else
        list_levels<part, false>(tree, height, items, scratch);
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
