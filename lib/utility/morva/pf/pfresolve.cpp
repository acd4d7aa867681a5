// Path resolution. A path is read in place and every key looked up where it stands, so that finding
// takes no memory. Creation looks first and changes the tree last: the new nodes are put together
// on their own and attached with one store.
#include "morva/pfresolve.h"

#include <climits>
#include <cstdint>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "morva/pfexpand.h"
#include "pf/pf.hpp"
#include "pf/pfpath.hpp"
#include "pf/pfresolve.hpp"

namespace morva::pf {
namespace {

int give(Pf* found, Pf** node) {
    *node = found;
    return found == nullptr ? kNotFound : found->type;
}

int malformed(const char* path, const PathReader& reader, Pf** node) {
    *node = nullptr;
    elog_log(0, "bad path expression '%s', column %d: %s\n", path, reader.column(), reader.fault());
    return kRefused;
}

Pf* entry(Pf* array, std::string_view key) {
    return found_in(array, find_key(array->value.arr, key));
}

Pf* item(Pf* list, long index) {
    Tbl* items = list->value.tbl;
    if (items == nullptr || index < 0 || index >= tbl_count(items)) return nullptr;
    return found_in(list, tbl_item(items, index));
}

// The index from the front; negative when the list is shorter.
long from_front(const Pf* list, long index) {
    if (index >= 0) return index;
    const long count = list->value.tbl == nullptr ? 0 : tbl_count(list->value.tbl);
    return index < -count ? -1 : index + count;
}

Pf* child(Pf* container, const Step& step) {
    if (container->type == PFFUNCTION) container = pfinterpret(container);
    if (container == nullptr) return nullptr;
    if (step.by_key) return is_array(container) ? entry(container, step.key) : nullptr;
    return container->type == PFTBL ? item(container, from_front(container, step.index)) : nullptr;
}

// What a path lacks: where the walk stopped, and the reader behind the step that found nothing.
struct Gap {
    Pf* container;
    Step missing;
    PathReader rest;
};

// Nothing is created in what a function gives, nor is a function evaluated for it.
bool may_enter(const Pf* container, const Gap* gap) {
    return gap == nullptr || container->type != PFFUNCTION;
}

// Follows the steps as far as they lead, and reads the rest for faults.
int walk(Pf* array, const char* path, Pf** node, Gap* gap) {
    PathReader reader(path);
    const std::string_view name = reader.name();
    if (!reader.at_end()) {
        *node = entry(array, path);
        if (*node != nullptr) return (*node)->type;
    }
    Step step{true, name, 0};
    Pf* container = array;
    Pf* found = name.empty() ? array : entry(array, name);
    if (found == nullptr && gap != nullptr) *gap = {container, step, reader};
    while (reader.next(&step)) {
        if (found == nullptr) continue;
        container = found;
        found = may_enter(container, gap) ? child(container, step) : nullptr;
        if (found == nullptr && gap != nullptr) *gap = {container, step, reader};
    }
    if (reader.fault() != nullptr) return malformed(path, reader, node);
    return give(found, node);
}

// ---- Creation ----

int refuse(Pf** node, const char* path, const char* reason) {
    *node = nullptr;
    elog_log(0, "can't create '%s' in a parameter tree: %s\n", path, reason);
    return kRefused;
}

// Why a container cannot take a new child by this step; null when it can.
const char* obstacle(const Pf* container, const Step& step) {
    if (container->type == PFFUNCTION) return "it leads through a function";
    if (container->value.any == nullptr) return "it leads through a node without a value";
    if (step.by_key) return is_array(container) ? nullptr : "a key leads into what is no array";
    if (container->type != PFTBL) return "an index leads into what is no list";
    const long index = from_front(container, step.index);
    const bool fits = index >= 0 && index <= tbl_count(container->value.tbl);
    return fits ? nullptr : "the index is beyond the end of the list";
}

void attach(Pf* container, const Step& step, Pf* node) {
    node->parent = container;
    if (step.by_key)
        put_key(container->value.arr, step.key, node);
    else
        settbl(container->value.tbl, from_front(container, step.index), node);
}

// The nodes from the first missing one down to the placeholder, which `*leaf` becomes. Null when
// the path asks for an item of a new list that is not its first.
Pf* new_branch(PathReader steps, char* filename, Pf** leaf) {
    Pf* top = nullptr;
    Pf* container = nullptr;
    Step into{}, step{};
    while (steps.next(&step)) {
        if (!step.by_key && step.index != 0) {
            pffree(top);
            return nullptr;
        }
        Pf* node = step.by_key ? new_array_node() : new_list_node();
        node->filename = filename;
        if (container == nullptr)
            top = node;
        else
            attach(container, into, node);
        container = node;
        into = step;
    }
    *leaf = new_node(PFPLACEHOLDER);
    (*leaf)->filename = filename;
    if (container == nullptr) return *leaf;
    attach(container, into, *leaf);
    return top;
}

int create_in_array(Pf* array, const char* path, Pf** node) {
    Gap gap{nullptr, {}, PathReader("")};
    const int found = walk(array, path, node, &gap);
    if (found != kNotFound || *node != nullptr) return found;
    const char* reason = obstacle(gap.container, gap.missing);
    if (reason != nullptr) return refuse(node, path, reason);
    Pf* leaf = nullptr;
    Pf* top = new_branch(gap.rest, gap.container->filename, &leaf);
    if (top == nullptr) return refuse(node, path, "the first item of a new list has index 0");
    attach(gap.container, gap.missing, top);
    return give(leaf, node);
}

int create_in_list(Pf* list, long index, Pf** node) {
    if (index < 0 || index > tbl_count(list->value.tbl)) {
        *node = nullptr;
        elog_log(0, "can't create item %ld in a list of %ld\n", index, tbl_count(list->value.tbl));
        return kRefused;
    }
    Pf* leaf = new_node(PFPLACEHOLDER);
    leaf->filename = list->filename;
    attach(list, {false, {}, index}, leaf);
    return give(leaf, node);
}

int find_or_create_in_list(Pf* list, long index, bool create, Pf** node) {
    Pf* found = item(list, index);
    if (found == nullptr && create) return create_in_list(list, index, node);
    return give(found, node);
}

int resolve(Pf* pf, const char* path, bool create, Pf** node) {
    if (pf->type == PFTBL)
        return find_or_create_in_list(pf, reinterpret_cast<std::intptr_t>(path), create, node);
    if (is_array(pf) && path != nullptr && *path != '\0')
        return create ? create_in_array(pf, path, node) : walk(pf, path, node, nullptr);
    if (!create) return give(pf, node);
    *node = nullptr;
    elog_log(0, "can't create a value in a parameter tree: %s\n",
             is_array(pf) ? "the path is empty" : "this is no array or list");
    return kRefused;
}

}  // namespace

int resolve_in_array(Pf* array, std::string_view path, Pf** node) {
    return walk(array, String(path).c_str(), node, nullptr);
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" int pfresolve(Pf* pf, const char* path, int create, Pf** node) {
    Pf* found = nullptr;
    Pf** const result = node != nullptr ? node : &found;
    if (pf == nullptr) return give(nullptr, result);
    return resolve(pf, path, create != 0, result);
}
