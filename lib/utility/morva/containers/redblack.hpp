// The tree inside: what Arr and Stbl build on, and what other families may use to walk an Arr
// without a call per step. An Arr* and an Rbtree* both point at a Tree.
//
// Invariants, between any two calls: the public records form a red-black tree (a black root, no red
// node with a red child, the same number of black nodes on every path to the sentinel) whose keys
// ascend from left to right, each key once.
#pragma once

#include <cstddef>
#include <cstring>

#include "base/memory.hpp"
#include "containers/node_pool.hpp"
#include "containers/text_key.hpp"
#include "morva/arr.h"
#include "morva/redblack.h"

namespace morva {

enum Side { kLeft = 0, kRight = 1 };

struct Tree {
    Rb_compare compare;
    std::int32_t replace;
    Rbpair scratch;
    Node* root;

    // Behind the public record.
    Node nil;        // the sentinel: stands for every absent child and for the root's parent
    long count;      // nodes
    long changes;    // insertions, replacements and deletions so far
    long deletions;  // deletions so far
    long unpooled;   // nodes whose key is not from the pool
    NodePool pool;
    void (*give_back)(Tree*);  // what frees the tree's memory; null for std::free
};

inline Tree* tree_of(Rbtree* tree) {
    return reinterpret_cast<Tree*>(tree);
}
inline Tree* tree_of(Arr* arr) {
    return reinterpret_cast<Tree*>(arr);
}

// True when keys are strings in strcmp order, so that their first bytes stand in the nodes.
inline bool orders_text(const Tree* tree) {
    return tree->compare == reinterpret_cast<Rb_compare>(&std::strcmp);
}

// Where a key is, or where it would be attached.
struct Place {
    Node* parent;
    Node** link;  // the parent's link to the node, or to the sentinel when the key is absent
    Node* node() const { return *link; }
};
Place locate_text(Tree* tree, const TextKey& key);
Place locate_by_compare(Tree* tree, const void* key);
Place locate(Tree* tree, const void* key);
Node* find(Tree* tree, const void* key);  // the node, or null

// Compares keys of which one is longer than both words, and whose words are the same: the other has
// at least their length.
int compare_behind_words(const TextKey& key, const Node* node);

// Compares a key with a node whose first word is the same.
inline int compare_behind_head(const TextKey& key, const Node* node) {
    if (key.tail != node->tail) return key.tail < node->tail ? -1 : 1;
    if (key.length <= kKeyPrefix && node->short_length <= kKeyPrefix) return 0;
    return compare_behind_words(key, node);
}

// As find, where the tree orders text. Which child comes next is a coin toss, so it is computed,
// not branched on.
inline Node* find_text(Tree* tree, const TextKey& key) {
    Node* const nil = &tree->nil;
    for (Node* node = tree->root; node != nil;) {
        bool greater = key.head > node->head;
        if (key.head == node->head) [[unlikely]] {
            const int order = compare_behind_head(key, node);
            if (order == 0) return node;
            greater = order > 0;
        }
        node = node->child[greater];
    }
    return nullptr;
}

// Attaches a node for a key that is absent, without setting its key and value.
Node* attach(Tree* tree, Place place);

// Keeps the words of a text key in its node.
inline void set_words(Node* node, const TextKey& key) {
    node->head = key.head;
    node->tail = key.tail;
    node->short_length = key.short_length();
}

// Takes a node out of the tree and frees it; its pair is in the scratch pair. The pair of another
// node may move to a new node.
void detach(Tree* tree, Node* node);

// Null dies with the library's words unless `or_die` is false.
Tree* new_tree(Rb_compare compare, bool or_die);

// What a tree in the order of strcmp takes together with nodes and keys of `pool_bytes`, and such a
// tree in memory of somebody else, who gets it back when the tree is freed.
std::size_t tree_bytes(std::size_t pool_bytes);
Tree* place_tree(void* memory, std::size_t bytes, void (*give_back)(Tree*));
void free_tree(Tree* tree);

// In-order steps; null at the ends.
inline Node* outermost(Tree* tree, Side side) {
    if (tree->root == &tree->nil) return nullptr;
    Node* node = tree->root;
    while (node->child[side] != &tree->nil) node = node->child[side];
    return node;
}
inline Node* step(Tree* tree, Node* node, Side side) {
    if (node->child[side] != &tree->nil) {
        node = node->child[side];
        while (node->child[!side] != &tree->nil) node = node->child[!side];
        return node;
    }
    Node* parent = node->parent;
    while (parent != &tree->nil && node == parent->child[side]) {
        node = parent;
        parent = node->parent;
    }
    return parent == &tree->nil ? nullptr : parent;
}
inline Node* first(Tree* tree) {
    return outermost(tree, kLeft);
}
inline Node* next(Tree* tree, Node* node) {
    return step(tree, node, kRight);
}
inline char* text_of(const Node* node) {
    return static_cast<char*>(node->key);
}

// Calls visit(key, value) for every pair in ascending order. The visit may insert and replace keys,
// or delete the one it is called for, but no other. Only a deletion moves pairs, so that only then
// the next node is looked up again, by a key that a replacement might have freed.
template <class Visit>
void for_each_pair(Tree* tree, Visit visit) {
    Node* node = tree == nullptr ? nullptr : first(tree);
    while (node != nullptr) {
        Node* following = next(tree, node);
        const void* following_key = following == nullptr ? nullptr : following->key;
        const long deletions = tree->deletions;
        visit(node->key, node->value);
        if (following != nullptr && tree->deletions != deletions)
            following = find(tree, following_key);
        node = following;
    }
}

// Calls visit(node) for every node, children before their parent. The visit may free what the node
// points to, not change the tree.
template <class Visit>
void for_each_node_upwards(Tree* tree, Visit visit) {
    Node* const nil = &tree->nil;
    Node* node = tree->root;
    const auto descend = [nil](Node* from) {
        for (;;) {
            if (from->child[kLeft] != nil)
                from = from->child[kLeft];
            else if (from->child[kRight] != nil)
                from = from->child[kRight];
            else
                return from;
        }
    };
    if (node == nil) return;
    node = descend(node);
    while (node != nil) {
        Node* parent = node->parent;
        const bool from_left = parent != nil && node == parent->child[kLeft];
        visit(node);
        node = from_left && parent->child[kRight] != nil ? descend(parent->child[kRight]) : parent;
    }
}

// What a listing takes of each pair.
enum class Column { kKey, kValue, kNode };

// A new list of the keys, the values or the nodes, in key order.
Tbl* list_in_order(Tree* tree, Column column);

}  // namespace morva
