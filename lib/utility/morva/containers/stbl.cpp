#include "morva/stbl.h"

#include <algorithm>
#include <cstdlib>

#include "containers/redblack.hpp"
#include "containers/tbl.hpp"

namespace morva {
namespace {

constexpr int kFew = 4;

// The set as the public record shows it, and behind it how `list` differs from the tree. Adding an
// item that is there, or deleting one that is not, marks the set dirty but changes nothing. After a
// few changes the list is brought up to date item by item, which beats listing the tree.
struct Set {
    Stbl shown;
    long tracked;  // the tree's count of changes that `list`, `added` and `removed` account for
    int added_count;
    int removed_count;
    void* added[kFew];   // items that are not in the list yet
    long removed[kFew];  // places in the list, ascending, of items that are no longer in the tree
};

Set* set_of(Stbl* stbl) {
    return reinterpret_cast<Set*>(stbl);
}

bool tracks(const Set* set, long changes) {
    return set->shown.list != nullptr && set->tracked == changes;
}

// The place in the list of the n-th item that was not removed.
long place_of(const Set* set, long n) {
    for (int i = 0; i < set->removed_count && set->removed[i] <= n; ++i) ++n;
    return n;
}

// The place of the first item that does not sort before `item`. Removed items are not looked at:
// they may have been freed.
long place_in_list(const Set* set, const void* item) {
    const auto items = tbl_pointers(set->shown.list);
    const Rb_compare compare = set->shown.tree->compare;
    long low = 0;
    long high = static_cast<long>(items.size()) - set->removed_count;
    while (low < high) {
        const long middle = low + (high - low) / 2;
        if (compare(items[place_of(set, middle)], item) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return place_of(set, low);
}

bool note_added(Set* set, void* item) {
    if (set->added_count == kFew) return false;
    set->added[set->added_count++] = item;
    return true;
}

bool note_removed(Set* set, const void* item) {
    void** const end = set->added + set->added_count;
    if (void** added = std::find(set->added, end, item); added != end) {
        *added = set->added[--set->added_count];
        return true;
    }
    if (set->removed_count == kFew) return false;
    const long place = place_in_list(set, item);
    const Tbl* list = set->shown.list;
    if (place >= tbl_count(list) || tbl_item(list, place) != item) return false;
    long* const last = set->removed + set->removed_count++;
    *last = place;
    std::inplace_merge(set->removed, last, last + 1);
    return true;
}

void update_list(Set* set) {
    Tbl* list = set->shown.list;
    while (set->removed_count > 0) deltbl(list, set->removed[--set->removed_count]);
    std::for_each_n(set->added, set->added_count,
                    [=](void* item) { instbl(list, place_in_list(set, item), item); });
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
    const long changes = tree_of(stbl->tree)->changes;
    if (tracks(set, changes))
        update_list(set);
    else
        list_tree(set);
    set->tracked = changes;
    set->added_count = set->removed_count = 0;
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
    if (tree->changes != changes && tracks(set, changes) && note_added(set, item))
        set->tracked = tree->changes;
    return stored;
}

void* delstbl(Stbl* stbl, const void* item) {
    Set* set = set_of(stbl);
    const Tree* tree = tree_of(stbl->tree);
    const long changes = tree->changes;
    stbl->dirty = 1;
    const Rbpair* removed = rbdelete(item, stbl->tree);
    if (removed == nullptr) return nullptr;
    if (tracks(set, changes) && note_removed(set, removed->key)) set->tracked = tree->changes;
    return removed->key;
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
