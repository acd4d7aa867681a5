/* Red-black tree: the ordered map beneath Arr and Stbl. It keeps pairs of untyped pointers, key and
 * value, in the order of a comparison of keys.
 *
 *     Rbtree* tree = rbinit(NULL);                     // keys are strings in strcmp order
 *     rbinsert("bhz", &channel, tree);
 *     char* following = rblookup(4, "bhz", tree);      // the next key, NULL at the end
 *     rbdestroy(tree);
 *
 * The tree never copies or frees keys and values: both are the caller's, and a key must stay as it
 * is while it is in the tree. Nodes are the tree's. The memory of deleted ones serves the same tree
 * again, and goes back when the tree is empty or freed.
 *
 * The records below are for reading; the tree keeps more behind them, so they are made by rbinit
 * and rbinsert only. `replace` may be set and cleared at any time. An absent child, and the parent
 * of the root, is the tree's sentinel: a black node whose own links lead nowhere. `root` is the
 * sentinel while the tree is empty, and `root->parent` is always the sentinel.
 *
 * An Arr* may be handed to these functions as an Rbtree*. Keys that enter through rbinsert must
 * then come from malloc, because the array frees them, and keys that leave in the scratch pair are
 * the caller's to free.
 *
 * Except for rbinit, running out of memory ends the process. Threads: users of one tree take turns;
 * readers alone need not. Different trees are independent of each other.
 */
#ifndef MORVA_REDBLACK_H
#define MORVA_REDBLACK_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Negative, zero or positive as key_a sorts before, with or behind key_b. */
typedef int (*Rb_compare)(const void* key_a, const void* key_b);

typedef struct Rbnode {
    struct Rbnode* left;
    struct Rbnode* right;
    struct Rbnode* parent;
    int32_t red; /* 1 red, 0 black */
    void* key;
    void* value;
} Rbnode;

typedef struct Rbpair {
    void* key;
    void* value;
} Rbpair;

typedef struct Rbtree {
    Rb_compare compare;
    int32_t replace; /* 1 after rbinit: inserting a key that is there replaces its pair */
    Rbpair scratch;  /* the pair that was replaced or deleted last */
    Rbnode* root;
} Rbtree;

/* A new empty tree; free it with rbdestroy. NULL for `compare` means strcmp. NULL when memory runs
 * out; nothing is registered then. */
MORVA_API Rbtree* rbinit(Rb_compare compare);

/* Inserts a pair. Three results can be told apart:
 *   - the key was absent: the new node (Rbnode*);
 *   - it was there and `replace` is set: &tree->scratch, which holds the old pair; the node took
 * the new key and the new value, so the old key is the caller's again;
 *   - it was there and `replace` is clear: the node that holds it, unchanged.
 * A node stays valid until a pair is deleted from its tree. */
MORVA_API void* rbinsert(void* key, void* value, Rbtree* tree);

/* Deletes the pair with that key. The tree's scratch record with the removed pair, overwritten by
 * the next replacement or deletion; NULL when the key is absent or `tree` is NULL. */
MORVA_API Rbpair* rbdelete(const void* key, Rbtree* tree);

/* The stored key that equals `key`, or NULL. A NULL tree holds nothing. */
MORVA_API void* rbfind(const void* key, Rbtree* tree);

/* The value stored under `key`, or NULL. A NULL tree holds nothing. */
MORVA_API void* rbsearch(const void* key, Rbtree* tree);

/* The stored key that `mode` asks for, or NULL when there is none:
 *   0  the key equal to `key`        3  the largest key < `key`
 *   1  the smallest key >= `key`     4  the smallest key > `key`
 *   2  the largest key <= `key`      7, 8  the smallest, the largest key; `key` is ignored
 *   5  the key after `key`, 6  the key before `key`: NULL also when `key` itself is absent
 * Any other mode gives NULL. */
MORVA_API void* rblookup(int mode, const void* key, Rbtree* tree);

/* Calls function(key, value, private_data) for every pair in ascending order; its result is
 * ignored. The function may insert and replace pairs (whether it is called for new ones depends on
 * where they sort), or delete the pair it is called for, but no other. */
MORVA_API void rbtraverse(Rbtree* tree, int (*function)(void* key, void* value, void* private_data),
                          void* private_data);

/* Frees the tree and its nodes, neither keys nor values. NULL is ignored. */
MORVA_API void rbdestroy(Rbtree* tree);

MORVA_END
#endif
