// An Arr is a red-black tree whose keys are the array's own copies: short ones from the tree's
// pool, longer ones from malloc. A node's key_room tells which.
#include "containers/arr.hpp"

#include <cstdlib>
#include <cstring>

#include "base/pattern.hpp"
#include "containers/redblack.hpp"
#include "morva/arr.h"

namespace morva {
namespace {

// The array's own copy of a key, from the pool when it is short.
struct OwnKey {
    char* text;
    std::uint16_t room;
};

OwnKey copy_key(Tree* tree, std::string_view key) {
    OwnKey own{nullptr, 0};
    if (key.size() < NodePool::kLargestKey)
        own.text = tree->pool.take_key(key.size() + 1, &own.room);
    else
        own.text = static_cast<char*>(must_malloc(key.size() + 1, "key", MORVA_HERE));
    std::memcpy(own.text, key.data(), key.size());
    own.text[key.size()] = '\0';
    return own;
}

void set_key(Tree* tree, Node* node, OwnKey own) {
    node->key = own.text;
    node->key_room = own.room;
    tree->unpooled += own.room == 0;
}

void free_key(Tree* tree, Node* node) {
    if (node->key_room != 0) {
        tree->pool.give_key(node->key, node->key_room);
        return;
    }
    std::free(node->key);
    --tree->unpooled;
}

// `key` may be the node's own copy, so the new copy is made before the old one goes.
void* replace_pair(Tree* tree, Node* node, std::string_view key, void* value) {
    if (!tree->replace) return nullptr;
    void* previous = node->value;
    tree->scratch = {node->key, previous};
    node->value = value;
    if (!orders_text(tree)) {
        const OwnKey own = copy_key(tree, key);
        free_key(tree, node);
        set_key(tree, node, own);
    }
    return previous;
}

void* set_text(Tree* tree, const TextKey& key, void* value) {
    const Place place = locate_text(tree, key);
    const std::string_view text{key.text, key.length};
    if (place.node() != &tree->nil) return replace_pair(tree, place.node(), text, value);
    const OwnKey own = copy_key(tree, text);
    Node* node = attach(tree, place);
    set_key(tree, node, own);
    set_words(node, key);
    node->value = value;
    return nullptr;
}

void* set_by_compare(Tree* tree, const char* key, void* value) {
    const Place place = locate_by_compare(tree, key);
    if (place.node() != &tree->nil) return replace_pair(tree, place.node(), key, value);
    const OwnKey own = copy_key(tree, key);
    Node* node = attach(tree, place);
    set_key(tree, node, own);
    node->value = value;
    return nullptr;
}

// Copies the nodes of a tree as they stand, without comparing keys; keys and values stay those of
// the original. Recurses as deep as a balanced tree is.
struct Copier {
    const Tree* from;
    Tree* to;
    Vector<Node*>* nodes;

    Node* subtree(const Node* node, Node* parent) const {
        if (node == &from->nil) return &to->nil;
        prefetch(node->child[kLeft]);
        prefetch(node->child[kRight]);
        Node* copy = to->pool.take_node();
        *copy = *node;
        copy->parent = parent;
        copy->child[kLeft] = subtree(node->child[kLeft], copy);
        nodes->push_back(copy);
        copy->child[kRight] = subtree(node->child[kRight], copy);
        return copy;
    }
};

// Gives a node that has another's key a copy of it.
void copy_key_of(Tree* tree, Node* node) {
    if (node->key_room == 0) {
        node->key = must_strdup(text_of(node), "key", MORVA_HERE);
        return;
    }
    const char* text = text_of(node);
    node->key = tree->pool.take_key(node->key_room, &node->key_room);
    std::memcpy(node->key, text, node->key_room);
}

// Keys by which `accepts` is true, in key order.
template <class Accepts>
Tbl* keys_that(Arr* arr, Accepts accepts) {
    Tbl* keys = newtbl(0);
    for_each_pair(tree_of(arr), [&](void* key, void*) {
        if (accepts(static_cast<const char*>(key))) pushtbl(keys, key);
    });
    return keys;
}

[[gnu::noinline]] void* find_by_compare(Tree* tree, std::string_view key) {
    const Node* node = locate_by_compare(tree, String(key).c_str()).node();
    return node == &tree->nil ? nullptr : node->value;
}

}  // namespace

void* find_key(const Arr* arr, std::string_view key) {
    if (arr == nullptr) return nullptr;
    Tree* tree = tree_of(const_cast<Arr*>(arr));
    if (!orders_text(tree)) return find_by_compare(tree, key);
    const Node* node = find_text(tree, TextKey(key));
    return node == nullptr ? nullptr : node->value;
}

void* put_key(Arr* arr, std::string_view key, void* value) {
    Tree* tree = tree_of(arr);
    return orders_text(tree) ? set_text(tree, TextKey(key), value)
                             : set_by_compare(tree, String(key).c_str(), value);
}

Arr* copy_array(const Arr* arr, Vector<Node*>* nodes) {
    constexpr std::size_t kAhead = 8;
    const Tree* from = tree_of(const_cast<Arr*>(arr));
    Tree* to = new_tree(from->compare, true);
    const std::size_t first = nodes->size(), end = first + static_cast<std::size_t>(from->count);
    nodes->reserve(end);
    to->root = Copier{from, to, nodes}.subtree(from->root, &to->nil);
    to->count = from->count;
    to->unpooled = from->unpooled;
    for (std::size_t i = first; i < end; ++i) {
        if (i + kAhead < end) prefetch((*nodes)[i + kAhead]->key);
        copy_key_of(to, (*nodes)[i]);
    }
    return reinterpret_cast<Arr*>(to);
}

}  // namespace morva

using namespace morva;

extern "C" {

Arr* newarr(Arr_compare compare) {
    return reinterpret_cast<Arr*>(new_tree(reinterpret_cast<Rb_compare>(compare), true));
}

void* setarr(Arr* arr, const char* key, const void* value) {
    Tree* tree = tree_of(arr);
    void* stored = const_cast<void*>(value);
    return orders_text(tree) ? set_text(tree, TextKey(key), stored)
                             : set_by_compare(tree, key, stored);
}

void* getarr(Arr* arr, const char* key) {
    const Node* node = find(tree_of(arr), key);
    return node == nullptr ? nullptr : node->value;
}

void* delarr(Arr* arr, const char* key) {
    Tree* tree = tree_of(arr);
    Node* node = find(tree, key);
    if (node == nullptr) return nullptr;
    free_key(tree, node);
    detach(tree, node);
    return tree->scratch.value;
}

long cntarr(Arr* arr) {
    return arr == nullptr ? 0 : tree_of(arr)->count;
}

Tbl* keysarr(Arr* arr) {
    return list_in_order(tree_of(arr), Column::kKey);
}

Tbl* valsarr(Arr* arr) {
    return list_in_order(tree_of(arr), Column::kValue);
}

int applyarr(Arr* arr, int (*function)(char* key, void* value, void* private_data),
             void* private_data) {
    for_each_pair(tree_of(arr), [&](void* key, void* value) {
        function(static_cast<char*>(key), value, private_data);
    });
    return 0;
}

Arr* duparr(Arr* arr, void* (*dup_function)(void*)) {
    Vector<Node*> nodes;
    Arr* copy = copy_array(arr, &nodes);
    for (Node* node : nodes) node->value = dup_function(node->value);
    return copy;
}

int freearr(Arr* arr, void (*free_function)(void*)) {
    if (arr == nullptr) return 0;
    Tree* tree = tree_of(arr);
    if (free_function != nullptr || tree->unpooled > 0)
        for_each_node_upwards(tree, [&](Node* node) {
            if (free_function != nullptr) free_function(node->value);
            if (node->key_room == 0) std::free(node->key);
        });
    free_tree(tree);
    return 0;
}

Tbl* greparr(const char* pattern, Arr* arr) {
    Pattern compiled;
    if (!compiled.compile(pattern)) return newtbl(0);
    return keys_that(arr, [&](const char* key) { return compiled.matches_whole(key); });
}

Tbl* arrgrep(Arr* arr, const char* string) {
    return keys_that(arr, [&](const char* key) {
        Pattern compiled;
        return compiled.compile(key) && compiled.matches_whole(string);
    });
}

}  // extern "C"
