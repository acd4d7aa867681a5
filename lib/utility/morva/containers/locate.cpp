// The descent: one for text, which compares the words in the nodes, and one for any other order.

#include <cstring>

#include "containers/redblack.hpp"

namespace morva {

int compare_behind_words(const TextKey& key, const Node* node) {
    const std::size_t rest = key.length - kKeyPrefix;
    const int order = std::strncmp(key.text + kKeyPrefix, text_of(node) + kKeyPrefix, rest);
    if (order != 0) return order;
    return text_of(node)[key.length] == '\0' ? 0 : -1;
}

// Which child comes next is a coin toss, so it is computed, not branched on.
Place locate_text(Tree* tree, const TextKey& key) {
    Node* const nil = &tree->nil;
    const std::uint64_t head = key.head;
    Node* parent = nil;
    Node** link = &tree->root;
    for (Node* node = *link; node != nil; node = *link) {
        bool greater = head > node->head;
        if (head == node->head) [[unlikely]] {
            const int order = compare_behind_head(key, node);
            if (order == 0) break;
            greater = order > 0;
        }
        parent = node;
        link = &node->child[greater];
    }
    return {parent, link};
}

Place locate_by_compare(Tree* tree, const void* key) {
    Place place{&tree->nil, &tree->root};
    while (place.node() != &tree->nil) {
        Node* node = place.node();
        const int order = tree->compare(key, node->key);
        if (order == 0) break;
        place = {node, &node->child[order > 0]};
    }
    return place;
}

Place locate(Tree* tree, const void* key) {
    if (!orders_text(tree)) return locate_by_compare(tree, key);
    return locate_text(tree, TextKey(static_cast<const char*>(key)));
}

Node* find(Tree* tree, const void* key) {
    if (tree == nullptr) return nullptr;
    if (orders_text(tree)) return find_text(tree, TextKey(static_cast<const char*>(key)));
    Node* node = locate_by_compare(tree, key).node();
    return node == &tree->nil ? nullptr : node;
}

}  // namespace morva
