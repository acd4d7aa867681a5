// Trees for tests of paths, references and functions.
#pragma once

#include <string>

#include "support/kit.hpp"

namespace pf_tree {

class Tree {
  public:
    explicit Tree(const std::string& text) { pfcompile(text.c_str(), &root); }
    ~Tree() { pffree(root); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    Pf* at(const char* path) const {
        Pf* node = nullptr;
        pfresolve(root, path, 0, &node);
        return node;
    }
    std::string expanded(const char* path) const {
        const char* text = pfexpand(at(path));
        return text != nullptr ? text : "<null>";
    }

    Pf* root = nullptr;
};

}  // namespace pf_tree
