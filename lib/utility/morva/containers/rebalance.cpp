// Insertion into and deletion from a red-black tree with a sentinel, after T. H. Cormen,
// C. E. Leiserson, R. L. Rivest and C. Stein, "Introduction to Algorithms", chapter 13; mirrored
// cases are one case with a side.

#include "containers/redblack.hpp"

namespace morva {
namespace {

Side side_of(const Node* node) {
    return node == node->parent->child[kRight] ? kRight : kLeft;
}
Side other(Side side) {
    return side == kLeft ? kRight : kLeft;
}

// Puts `node` where `old` hangs.
void replace_child(Tree* tree, Node* old, Node* node) {
    if (old->parent == &tree->nil)
        tree->root = node;
    else
        old->parent->child[side_of(old)] = node;
}

// Moves `node` down to `side`; its child of the other side takes its place.
void rotate(Tree* tree, Node* node, Side side) {
    Node* up = node->child[other(side)];
    Node* inner = up->child[side];
    node->child[other(side)] = inner;
    if (inner != &tree->nil) inner->parent = node;
    up->parent = node->parent;
    replace_child(tree, node, up);
    up->child[side] = node;
    node->parent = up;
}

// Restores "no red node has a red child" above a red node that was attached.
void rebalance_insertion(Tree* tree, Node* node) {
    while (node->parent->red) {
        Node* parent = node->parent;
        Node* grandparent = parent->parent;
        const Side side = side_of(parent);
        Node* uncle = grandparent->child[other(side)];
        if (uncle->red) {
            parent->red = uncle->red = 0;
            grandparent->red = 1;
            node = grandparent;
            continue;
        }
        if (node == parent->child[other(side)]) {
            rotate(tree, parent, side);
            std::swap(node, parent);
        }
        parent->red = 0;
        grandparent->red = 1;
        rotate(tree, grandparent, other(side));
    }
    tree->root->red = 0;
}

// Gives the paths through `node`, one black node short, that node back.
void rebalance_deletion(Tree* tree, Node* node) {
    while (node != tree->root && !node->red) {
        Node* parent = node->parent;
        const Side side = side_of(node);
        Node* sibling = parent->child[other(side)];
        if (sibling->red) {
            sibling->red = 0;
            parent->red = 1;
            rotate(tree, parent, side);
            sibling = parent->child[other(side)];
        }
        if (!sibling->child[kLeft]->red && !sibling->child[kRight]->red) {
            sibling->red = 1;
            node = parent;
            continue;
        }
        if (!sibling->child[other(side)]->red) {
            sibling->child[side]->red = 0;
            sibling->red = 1;
            rotate(tree, sibling, other(side));
            sibling = parent->child[other(side)];
        }
        sibling->red = parent->red;
        parent->red = 0;
        sibling->child[other(side)]->red = 0;
        rotate(tree, parent, side);
        node = tree->root;
    }
    node->red = 0;
}

void move_pair(const Node* from, Node* to) {
    to->key_room = from->key_room;
    to->short_length = from->short_length;
    to->key = from->key;
    to->value = from->value;
    to->head = from->head;
    to->tail = from->tail;
}

}  // namespace

Node* attach(Tree* tree, Place place) {
    Node* node = tree->pool.take_node();
    node->child[kLeft] = node->child[kRight] = &tree->nil;
    node->parent = place.parent;
    node->red = 1;
    *place.link = node;
    ++tree->count;
    ++tree->changes;
    rebalance_insertion(tree, node);
    return node;
}

void detach(Tree* tree, Node* node) {
    tree->scratch = {node->key, node->value};
    Node* removed = node;
    if (node->child[kLeft] != &tree->nil && node->child[kRight] != &tree->nil) {
        removed = node->child[kRight];
        while (removed->child[kLeft] != &tree->nil) removed = removed->child[kLeft];
    }
    Node* child = removed->child[removed->child[kLeft] == &tree->nil ? kRight : kLeft];
    child->parent = removed->parent;  // the sentinel's parent, too: the repair climbs by it
    replace_child(tree, removed, child);
    if (removed != node) move_pair(removed, node);
    if (!removed->red) rebalance_deletion(tree, child);
    tree->pool.give_node(removed);
    ++tree->changes;
    ++tree->deletions;
    if (--tree->count == 0) tree->pool.reset();
}

}  // namespace morva
