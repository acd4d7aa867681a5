// Trees for tests of paths, references and functions.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>

#include "pf/pf.hpp"
#include "support/kit.hpp"

namespace pf_tree {

// A root whose values are made by their paths; texts that begin with "&" and end with ")" are
// functions.
class Tree {
  public:
    Tree(std::initializer_list<std::pair<const char*, const char*>> values) {
        for (const auto& [path, text] : values) set(path, text);
    }
    ~Tree() { pffree(root); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    Pf* set(const char* path, const std::string& text) {
        Pf* node = nullptr;
        pfresolve(root, path, 1, &node);
        if (node == nullptr) return nullptr;
        if (node->type == PFSTRING) std::free(node->value.string);
        if (text.starts_with("&") && text.ends_with(")")) {
            node->type = PFFUNCTION;
            node->value.funct = morva::pf::new_function_record();
            node->value.funct->text = morva::pf::new_text(text);
        } else {
            node->type = PFSTRING;
            node->value.string = morva::pf::new_text(text);
        }
        return node;
    }
    Pf* at(const char* path) const {
        Pf* node = nullptr;
        pfresolve(root, path, 0, &node);
        return node;
    }
    std::string expanded(const char* path) const {
        const char* text = pfexpand(at(path));
        return text != nullptr ? text : "<null>";
    }

    Pf* root = pfnew(PFFILE);
};

}  // namespace pf_tree
