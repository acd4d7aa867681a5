// Setters: entries of arrays and lists made, replaced and taken out.
#include <cstdio>

#include "base/diagnostics.hpp"
#include "morva/pfresolve.h"
#include "morva/strings.h"
#include "pf/pf.hpp"

namespace morva::pf {
namespace {

template <class T>
T* as(void* value) {
    return static_cast<T*>(value);
}

Pf* string_node(const char* text) {
    return text == nullptr ? new_node(PFSTRING) : new_string_node(text);
}

Pf* function_node(const char* text) {
    return text == nullptr ? pfnew(PFFUNCTION) : new_function_node(text);
}

Pf* array_around(int type, Arr* arr) {
    if (arr == nullptr) return new_array_node(type);
    Pf* node = new_node(type);
    node->value.arr = arr;
    return node;
}

Pf* list_around(Tbl* tbl) {
    if (tbl == nullptr) return new_list_node();
    Pf* node = new_node(PFTBL);
    node->value.tbl = tbl;
    return node;
}

Pf* grafted(Pf* tree) {
    if (tree == nullptr) elog_die(0, "Bad pf pointer in pfput.\n");
    if (tree->type == PFFILE) tree->type = PFARR;
    return tree;
}

Pf* child_of(int type, void* value) {
    switch (type) {
        case PFFILE:
        case PFARR:
            return array_around(type, as<Arr>(value));
        case PFSTRING:
            return string_node(as<char>(value));
        case PFTBL:
            return list_around(as<Tbl>(value));
        case PFFUNCTION:
            return function_node(as<char>(value));
        case PFGRAFT:
            return grafted(as<Pf>(value));
        default:
            elog_die(0, "Bad type in pfput : %d\n", type);
    }
}

// Frees what the child has replaced, except for what the two share: a caller may put back the very
// node, list or array that it took from the entry.
void free_replaced(Pf* old, const Pf* child) {
    if (old == nullptr || old == child) return;
    if (old->value.any == child->value.any) old->value.any = nullptr;
    pffree(old);
}

void store(Pf* pf, char* key, Pf* child) {
    if (pf->type == PFTBL) {
        Pf* old = as<Pf>(gettbl(pf->value.tbl, index_in(key)));
        settbl(pf->value.tbl, index_in(key), child);
        free_replaced(old, child);
        return;
    }
    free_replaced(as<Pf>(setarr(pf->value.arr, key, child)), child);
}

}  // namespace
}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

int pfput(Pf* pf, char* key, void* value, int type) {
    Pf* child = child_of(type, value);
    if (pf == nullptr || !(is_array(pf) || pf->type == PFTBL))
        elog_die(0, "Bad pf pointer in pfput.\n");
    store(pf, key, child);
    return 0;
}

int pfput_string(Pf* pf, char* key, const char* string) {
    return pfput(pf, key, const_cast<char*>(string), PFSTRING);
}

int pfput_int(Pf* pf, char* key, long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%ld", value);
    return pfput_string(pf, key, text);
}

int pfput_double(Pf* pf, char* key, double value) {
    char text[64];
    return pfput_string(pf, key, strdbl(text, value));
}

int pfput_boolean(Pf* pf, char* key, int value) {
    return pfput_string(pf, key, value ? "True" : "False");
}

int pfput_tbl(Pf* pf, char* key, Tbl* tbl) {
    const long count = tbl == nullptr ? 0 : maxtbl(tbl);
    Tbl* nodes = newtbl(count);
    for (long i = 0; i < count; ++i) pushtbl(nodes, string_node(as<char>(gettbl(tbl, i))));
    return pfput(pf, key, nodes, PFTBL);
}

int pfput_arr(Pf* pf, char* key, Arr* arr) {
    Arr* nodes = newarr(nullptr);
    morva::for_each_pair(morva::tree_of(arr), [&](const void* name, void* text) {
        setarr(nodes, static_cast<const char*>(name), string_node(as<char>(text)));
    });
    return pfput(pf, key, nodes, PFARR);
}

int pfset(Pf* pf, const char* path, const char* string) {
    Pf* node = nullptr;
    pfresolve(pf, path, 1, &node);
    if (node == nullptr || node == pf) return -1;
    char* text = string == nullptr ? nullptr : new_text(string);
    if (node->type != PFPLACEHOLDER) clear_node(node);
    node->type = PFSTRING;
    node->value.string = text;
    return 0;
}

Pf* pfdel(Pf* pf, char* key) {
    if (pf == nullptr) return nullptr;
    Pf* node = nullptr;
    if (is_array(pf))
        node = key == nullptr ? nullptr : as<Pf>(delarr(pf->value.arr, key));
    else if (pf->type == PFTBL)
        node = as<Pf>(deltbl(pf->value.tbl, index_in(key)));
    if (node != nullptr) node->parent = nullptr;
    return node;
}

}  // extern "C"
