/* Path expressions: how a program names a value deep inside a parameter tree.
 *
 *     Pf* node;
 *     if (pfresolve(pf, "stations{AAK}{channels}[0]", 0, &node) == PFSTRING) puts(pfexpand(node));
 *
 * A path is a name, the key of an entry of the array where the search begins, and then any number
 * of steps:
 *     {key}     the entry of an array. The key is any text without braces; one that has braces, or
 *               begins with a quote, stands between quotes of the other kind: {"a{b"} or {'"x"'}
 *     [n]       an item of a list, counted from 0, or from -1 backwards from the end
 * Blanks are part of names and keys. The name may be missing: {key} is an entry of the array where
 * the search begins. A name that is to hold "{" or "[" is written in this way too, as a quoted key.
 * When the array has a key that is the same as the whole path, though, this entry is meant. */
#ifndef MORVA_PFRESOLVE_H
#define MORVA_PFRESOLVE_H

#include "morva/pf.h"

MORVA_BEGIN

/* Finds the node that `path` leads to from `pf`, stores it through `node` (unless that is null) and
 * returns its type. The node stays part of the tree. A function that the path ends at is not
 * evaluated; one that it leads through is, and its result is searched (morva/pfexpand.h).
 *
 * What the search begins at decides what the path is:
 *     an array                  the expression; null or empty for the array itself
 *     a list                    not a text at all but the index of an item, in the pointer; the
 *                               items are counted from 0, negative ones are not found
 *     a string or any other     nothing: this node is found, whatever the path
 *
 * When nothing is found, null is stored, and the result is
 *     -1   there is no such entry or item, or a step does not fit what is there, or pf is null;
 *          nothing is registered
 *     -2   the path is no path expression, or what is missing cannot be created; registered, for
 *          an expression with the column in bytes from 1
 *
 * With create other than 0, what is missing is made: arrays for steps by key and lists for steps by
 * index on the way, and at the end a PFPLACEHOLDER without a value. New nodes have their parent
 * link and the file name of the node they are in. A list grows by one item only, just behind its
 * end (so that it has no holes). What exists is never replaced: where a step meets a string or the
 * wrong kind of container, or a function, the path is refused; so it is when there is nothing to
 * create because pf is no container or the path is empty. A refused path has changed nothing. */
MORVA_API int pfresolve(Pf* pf, const char* path, int create, Pf** node);

MORVA_END
#endif
