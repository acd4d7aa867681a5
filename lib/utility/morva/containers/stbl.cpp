#include "morva/stbl.h"

#include <cstdlib>

#include "containers/redblack.hpp"

namespace morva {
namespace {

// The set as the public record shows it, and behind it which state of the tree `list` holds: adding
// an item that is there marks the set dirty but leaves its list as it is.
struct Set {
    Stbl shown;
    long listed;  // the tree's count of changes when `list` was built
};

Set* set_of(Stbl* stbl) {
    return reinterpret_cast<Set*>(stbl);
}

// Brings `list` up to date.
Tbl* listed(Stbl* stbl) {
    if (!stbl->dirty) return stbl->list;
    Tree* tree = tree_of(stbl->tree);
    if (stbl->list == nullptr || set_of(stbl)->listed != tree->changes) {
        freetbl(stbl->list, nullptr);
        stbl->list = nullptr;
        stbl->list = list_in_order(tree, Part::kKey);
        set_of(stbl)->listed = tree->changes;
    }
    stbl->dirty = 0;
    return stbl->list;
}

}  // namespace
}  // namespace morva

using namespace morva;

extern "C" {

Stbl* newstbl(Rb_compare compare) {
    Stbl* stbl = &must_alloc<Set>(1, "stbl", MORVA_HERE)->shown;
    Tree* tree = new_tree(compare, true);
    tree->replace = 0;
    stbl->tree = reinterpret_cast<Rbtree*>(tree);
    stbl->dirty = 1;
    return stbl;
}

void* addstbl(Stbl* stbl, void* item) {
    stbl->dirty = 1;
    return static_cast<Rbnode*>(rbinsert(item, item, stbl->tree))->key;
}

void* delstbl(Stbl* stbl, const void* item) {
    stbl->dirty = 1;
    const Rbpair* removed = rbdelete(item, stbl->tree);
    return removed == nullptr ? nullptr : removed->key;
}

void* tststbl(Stbl* stbl, const void* item) {
    return rbfind(item, stbl->tree);
}

long maxstbl(Stbl* stbl) {
    return listed(stbl)->count;
}

void* getstbl(Stbl* stbl, long i) {
    return gettbl(listed(stbl), i);
}

Tbl* tblstbl(Stbl* stbl) {
    return listed(stbl);
}

// The function may cause the list to be rebuilt, so the list is looked up for each item.
int applystbl(Stbl* stbl, int (*function)(void* item, void* private_data), void* private_data) {
    unsigned sum = 0;
    listed(stbl);
    for (long i = 0; i < stbl->list->count; ++i)
        sum += static_cast<unsigned>(function(gettbl(stbl->list, i), private_data));
    return static_cast<int>(sum);
}

void freestbl(Stbl* stbl, void (*free_function)(void*)) {
    if (stbl == nullptr) return;
    freetbl(stbl->list, nullptr);
    Tree* tree = tree_of(stbl->tree);
    if (free_function != nullptr)
        for_each_node_upwards(tree, [&](Node* node) { free_function(node->key); });
    free_tree(tree);
    std::free(stbl);
}

}  // extern "C"
