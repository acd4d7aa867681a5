#include "morva/redblack.h"

#include <cstring>
#include <new>

#include "containers/redblack.hpp"

namespace morva {

static_assert(offsetof(Node, child) == offsetof(Rbnode, left));
static_assert(offsetof(Node, parent) == offsetof(Rbnode, parent));
static_assert(offsetof(Node, red) == offsetof(Rbnode, red));
static_assert(offsetof(Node, key) == offsetof(Rbnode, key));
static_assert(offsetof(Node, value) == offsetof(Rbnode, value));
static_assert(offsetof(Tree, replace) == offsetof(Rbtree, replace));
static_assert(offsetof(Tree, scratch) == offsetof(Rbtree, scratch));
static_assert(offsetof(Tree, root) == offsetof(Rbtree, root));

namespace {

Tree* start_tree(void* memory, Rb_compare compare) {
    auto* tree = new (memory) Tree{};
    tree->compare = compare != nullptr ? compare : reinterpret_cast<Rb_compare>(&std::strcmp);
    tree->replace = 1;
    tree->nil.child[kLeft] = tree->nil.child[kRight] = tree->nil.parent = &tree->nil;
    tree->root = &tree->nil;
    return tree;
}

}  // namespace

Tree* new_tree(Rb_compare compare, bool or_die) {
    void* block = try_malloc(sizeof(Tree));
    if (block == nullptr && or_die) out_of_memory(sizeof(Tree), "tree", MORVA_HERE);
    return block == nullptr ? nullptr : start_tree(block, compare);
}

std::size_t tree_bytes(std::size_t pool_bytes) {
    return sizeof(Tree) + NodePool::room_for(pool_bytes);
}

Tree* place_tree(void* memory, std::size_t bytes, void (*give_back)(Tree*)) {
    Tree* tree = start_tree(memory, nullptr);
    tree->pool.begin_with(tree + 1, bytes - sizeof(Tree));
    tree->give_back = give_back;
    return tree;
}

void free_tree(Tree* tree) {
    tree->pool.release();
    if (tree->give_back != nullptr)
        tree->give_back(tree);
    else
        std::free(tree);
}

namespace {

// A key that leaves through these functions is the caller's: one from the pool of an Arr is handed
// out as a copy from malloc.
void* handed_out(Tree* tree, Node* node) {
    if (node->key_room == 0) {
        --tree->unpooled;
        return node->key;
    }
    char* copy = must_strdup(text_of(node), "key", MORVA_HERE);
    tree->pool.give_key(node->key, node->key_room);
    return copy;
}

void set_pair(Tree* tree, Node* node, void* key, void* value) {
    node->key = key;
    node->value = value;
    node->key_room = 0;
    ++tree->unpooled;
}

void* replaced(Tree* tree, Node* node, void* key, void* value) {
    if (!tree->replace) return node;
    tree->scratch = {handed_out(tree, node), node->value};
    set_pair(tree, node, key, value);
    ++tree->changes;
    return &tree->scratch;
}

// The nearest node on `side` of where an absent key would be attached: the last node compared, or
// its neighbour.
Node* neighbour_of_gap(Tree* tree, Place place, Side side) {
    const bool attaches_left = place.link == &place.parent->child[kLeft];
    if (attaches_left == (side == kRight)) return place.parent;
    return step(tree, place.parent, side);
}

// What a lookup mode takes: the key itself when it is there, and else its neighbour on `side`.
enum class Takes { kSame, kSameOrSide, kSide, kSideOfPresent, kEnd };
struct Lookup {
    Takes takes;
    Side side;
};
constexpr Lookup kLookups[] = {
    {Takes::kSame, kLeft},          {Takes::kSameOrSide, kRight}, {Takes::kSameOrSide, kLeft},
    {Takes::kSide, kLeft},          {Takes::kSide, kRight},       {Takes::kSideOfPresent, kRight},
    {Takes::kSideOfPresent, kLeft}, {Takes::kEnd, kLeft},         {Takes::kEnd, kRight},
};

Node* look_up(Tree* tree, Lookup lookup, const void* key) {
    if (lookup.takes == Takes::kEnd) return outermost(tree, lookup.side);
    const Place place = locate(tree, key);
    if (place.node() == &tree->nil) {
        const bool may_be_absent =
            lookup.takes == Takes::kSameOrSide || lookup.takes == Takes::kSide;
        return may_be_absent ? neighbour_of_gap(tree, place, lookup.side) : nullptr;
    }
    const bool takes_same = lookup.takes == Takes::kSame || lookup.takes == Takes::kSameOrSide;
    return takes_same ? place.node() : step(tree, place.node(), lookup.side);
}

}  // namespace
}  // namespace morva

using namespace morva;

extern "C" {

Rbtree* rbinit(Rb_compare compare) {
    return reinterpret_cast<Rbtree*>(new_tree(compare, false));
}

void* rbinsert(void* key, void* value, Rbtree* handle) {
    Tree* tree = tree_of(handle);
    if (!orders_text(tree)) {
        const Place place = locate_by_compare(tree, key);
        if (place.node() != &tree->nil) return replaced(tree, place.node(), key, value);
        Node* node = attach(tree, place);
        set_pair(tree, node, key, value);
        return node;
    }
    const TextKey text(static_cast<const char*>(key));
    const Place place = locate_text(tree, text);
    if (place.node() != &tree->nil) return replaced(tree, place.node(), key, value);
    Node* node = attach(tree, place);
    set_pair(tree, node, key, value);
    set_words(node, text);
    return node;
}

Rbpair* rbdelete(const void* key, Rbtree* handle) {
    Node* node = find(tree_of(handle), key);
    if (node == nullptr) return nullptr;
    Tree* tree = tree_of(handle);
    node->key = handed_out(tree, node);
    detach(tree, node);
    return &handle->scratch;
}

void* rbfind(const void* key, Rbtree* tree) {
    const Node* node = find(tree_of(tree), key);
    return node == nullptr ? nullptr : node->key;
}

void* rbsearch(const void* key, Rbtree* tree) {
    const Node* node = find(tree_of(tree), key);
    return node == nullptr ? nullptr : node->value;
}

void* rblookup(int mode, const void* key, Rbtree* handle) {
    Tree* tree = tree_of(handle);
    const bool known = mode >= 0 && mode < static_cast<int>(std::size(kLookups));
    if (!known || tree == nullptr || tree->root == &tree->nil) return nullptr;
    const Node* node = look_up(tree, kLookups[mode], key);
    return node == nullptr ? nullptr : node->key;
}

void rbtraverse(Rbtree* tree, int (*function)(void* key, void* value, void* private_data),
                void* private_data) {
    for_each_pair(tree_of(tree),
                  [&](void* key, void* value) { function(key, value, private_data); });
}

void rbdestroy(Rbtree* tree) {
    if (tree != nullptr) free_tree(tree_of(tree));
}

}  // extern "C"
