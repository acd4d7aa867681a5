// Nodes of parameter trees for the families that build and walk them: what pfnew does, without a
// call per node and without work that the caller is about to redo.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "containers/redblack.hpp"
#include "containers/tbl.hpp"
#include "morva/pf.h"

namespace morva::pf {

// True for the two types whose value is an Arr.
inline bool is_array(const Pf* pf) {
    return pf->type == PFFILE || pf->type == PFARR;
}

// The index that a list's key is: it travels in the pointer.
inline long index_in(const char* key) {
    return static_cast<long>(reinterpret_cast<std::intptr_t>(key));
}

// What was found in a container, or null. Its parent link leads there from now on: setters and
// copying leave it unset. Several threads may find the same node at once.
inline Pf* found_in(Pf* container, void* entry) {
    Pf* const node = static_cast<Pf*>(entry);
    if (node == nullptr) return nullptr;
    const std::atomic_ref<Pf*> parent(node->parent);
    Pf* before = parent.load(std::memory_order_acquire);
    if (before != container) [[unlikely]]
        parent.compare_exchange_strong(before, container, std::memory_order_acq_rel);
    return node;
}

// A node of the type with every other field null. Containers and functions need a value, too.
inline Pf* new_node(int type) {
    void* block = must_malloc(sizeof(Pf), "pf", Site{"pfnew", __LINE__, __FILE_NAME__});
    return new (block) Pf{type, 0, {nullptr}, nullptr, nullptr, nullptr};
}

// A string of a node, in a block of its own.
inline char* new_text(std::string_view text) {
    char* copy = static_cast<char*>(
        must_malloc(text.size() + 1, "pf->value.string", Site{"pfnew", __LINE__, __FILE_NAME__}));
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

inline Pf* new_string_node(std::string_view text) {
    Pf* node = new_node(PFSTRING);
    node->value.string = new_text(text);
    return node;
}

inline Pffunct* new_function_record() {
    return must_alloc<Pffunct>(1, "pf->value.pffunct", Site{"pfnew", __LINE__, __FILE_NAME__});
}

inline Pf* new_function_node(std::string_view text) {
    Pf* node = new_node(PFFUNCTION);
    node->value.funct = new_function_record();
    node->value.funct->text = new_text(text);
    return node;
}

inline Pf* new_array_node(int type = PFARR) {
    Pf* node = new_node(type);
    node->value.arr = newarr(nullptr);
    return node;
}

inline Pf* new_list_node() {
    Pf* node = new_node(PFTBL);
    node->value.tbl = newtbl(0);
    return node;
}

// pffree as a free function of lists and arrays.
inline void free_node(void* node) {
    pffree(static_cast<Pf*>(node));
}

// Frees what the node holds, as pffree does, but not the node, which stays where it is in its tree.
void clear_node(Pf* node);

// The node's file name for a message. A node without one gets the empty string.
inline const char* filename_of(Pf* pf) {
    static char unnamed[] = "";
    if (pf->filename == nullptr) pf->filename = unnamed;
    return pf->filename;
}

// Whether the function &exec( may run commands; what pfconfig("exec", ...) sets.
extern constinit std::atomic<bool> g_exec_allowed;

}  // namespace morva::pf
