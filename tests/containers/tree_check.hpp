// Checks a tree by its public records alone.
#pragma once

#include <string>
#include <vector>

#include "morva/redblack.h"

namespace tree_check {

struct Walk {
    const Rbtree* tree;
    const Rbnode* sentinel;
    std::vector<const Rbnode*> nodes;  // in order
    std::string fault;

    void expect(bool holds, const char* what) {
        if (!holds && fault.empty()) fault = what;
    }

    // Black nodes on every way down from `node`.
    int visit(const Rbnode* node, const Rbnode* parent) {
        if (node == sentinel) return 0;
        expect(node->parent == parent, "a child does not know its parent");
        expect(node->red == 0 || node->red == 1, "a node is neither red nor black");
        expect(!node->red || (!node->left->red && !node->right->red), "a red node has a red child");
        const int left = visit(node->left, node);
        if (!nodes.empty())
            expect(tree->compare(nodes.back()->key, node->key) < 0, "keys do not ascend");
        nodes.push_back(node);
        const int right = visit(node->right, node);
        expect(left == right, "ways down hold different numbers of black nodes");
        return left + 1 - node->red;
    }
};

inline Walk walk(const void* handle) {
    const auto* tree = static_cast<const Rbtree*>(handle);
    Walk result{tree, tree->root->parent, {}, {}};
    result.expect(result.sentinel->red == 0, "the sentinel is not black");
    result.expect(tree->root->red == 0, "the root is not black");
    result.visit(tree->root, result.sentinel);
    return result;
}

// What is wrong with the tree, "" when nothing is.
inline std::string fault(const void* handle) {
    return walk(handle).fault;
}

}  // namespace tree_check
