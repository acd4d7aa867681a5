#include "morva/stbl.h"

#include <algorithm>
#include <cstdlib>

#include "containers/redblack.hpp"
#include "containers/tbl.hpp"

namespace morva {
namespace {

constexpr long kFewAdded = 4;

// The set as the public record shows it, and behind it which state of the tree `list` holds. Adding
// an item that is there, or deleting one that is not, marks the set dirty but changes nothing.
// After a few additions and no deletion the new items are put into the list, which beats listing
// the tree.
struct Set {
    Stbl shown;
    long listed;             // the tree's count of changes when `list` was up to date
    long pending;            // items added since
    void* added[kFewAdded];  // these items; further ones are not kept
};

Set* set_of(Stbl* stbl) {
    return reinterpret_cast<Set*>(stbl);
}

bool only_few_were_added(const Set* set) {
    return set->shown.list != nullptr &&
           tree_of(set->shown.tree)->changes == set->listed + set->pending;
}

void put_into_list(Set* set, void* item) {
    const auto items = tbl_pointers(set->shown.list);
    const Rb_compare compare = set->shown.tree->compare;
    const auto behind = std::partition_point(
        items.begin(), items.end(), [=](void* listed) { return compare(listed, item) < 0; });
    instbl(set->shown.list, behind - items.begin(), item);
}

void list_tree(Set* set) {
    freetbl(set->shown.list, nullptr);
    set->shown.list = nullptr;
    Tbl* list = list_in_order(tree_of(set->shown.tree), Column::kKey);
    list->right_increment = list->count / 8 + 10;
    set->shown.list = list;
}

// Brings `list` up to date.
Tbl* listed(Stbl* stbl) {
    if (!stbl->dirty) return stbl->list;
    Set* set = set_of(stbl);
    if (only_few_were_added(set))
        std::for_each_n(set->added, set->pending, [=](void* item) { put_into_list(set, item); });
    else
        list_tree(set);
    set->listed = tree_of(stbl->tree)->changes;
    set->pending = 0;
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
    Set* set = set_of(stbl);
    const Tree* tree = tree_of(stbl->tree);
    const long changes = tree->changes;
    stbl->dirty = 1;
    void* stored = static_cast<Rbnode*>(rbinsert(item, item, stbl->tree))->key;
    if (tree->changes != changes && set->pending < kFewAdded) set->added[set->pending++] = item;
    return stored;
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
