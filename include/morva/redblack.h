/* Red-black tree: the ordered map beneath Arr and Stbl. */
#ifndef MORVA_REDBLACK_H
#define MORVA_REDBLACK_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

typedef int (*Rb_compare)(const void* key_a, const void* key_b);

typedef struct Rbnode {
    struct Rbnode* left;
    struct Rbnode* right;
    struct Rbnode* parent;
    int32_t red;
    void* key;
    void* value;
} Rbnode;

typedef struct Rbpair {
    void* key;
    void* value;
} Rbpair;

typedef struct Rbtree {
    Rb_compare compare;
    int32_t replace;
    Rbpair scratch;
    Rbnode* root;
} Rbtree;

MORVA_API Rbtree* rbinit(Rb_compare compare);
MORVA_API void* rbinsert(void* key, void* value, Rbtree* tree);
MORVA_API Rbpair* rbdelete(const void* key, Rbtree* tree);
MORVA_API void* rbfind(const void* key, Rbtree* tree);
MORVA_API void* rbsearch(const void* key, Rbtree* tree);
MORVA_API void* rblookup(int mode, const void* key, Rbtree* tree);
MORVA_API void rbtraverse(Rbtree* tree, int (*function)(void* key, void* value, void* private_data),
                          void* private_data);
MORVA_API void rbdestroy(Rbtree* tree);

MORVA_END
#endif
