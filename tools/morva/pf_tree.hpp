// Trees of parameters as the commands of this group use them.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "morva.h"
#include "records.hpp"

namespace tool {

struct FreeTree {
    void operator()(Pf* pf) const { pffree(pf); }
};
using Tree = std::unique_ptr<Pf, FreeTree>;

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

enum class Values { as_written, expanded };

// The merged tree of a name. Null, with a complaint, when there is no such file or reading it
// failed.
Tree read_tree(const std::string& name);

// The node of a path; the whole tree for an empty one. Null, with a complaint, when there is none.
Pf* find(Pf* tree, const std::string& path, const std::string& name);

inline bool is_array(const Pf* node) {
    return node->type == PFFILE || node->type == PFARR;
}
inline bool is_block(const Pf* node) {
    return is_array(node) || node->type == PFTBL;
}

// What a function evaluates to, and every other node itself. Null when it has no result.
Pf* evaluated(Pf* node, Values values);

// The text of a string or of a function as it is written.
std::string text_of(Pf* node, Values values);

// Strings become strings, arrays objects and lists lists.
std::string json_of(Pf* node, Values values);

// The node as the writer lays it out; an array without its opener and closing brace.
std::string normal_form(Pf* node);

// The keys of an array in their order.
std::vector<std::string> keys_of(const Pf* array);

struct Leaf {
    std::string path;
    int type;
    std::string text;  // of an empty block its opener and brace
};

// Every string, function and empty block below the node, which `path` leads to, with their paths.
std::vector<Leaf> leaves_of(Pf* node, const std::string& path = "");

// The values that differ, as lines for people or as a list in JSON.
void print_difference(const std::vector<Leaf>& old_leaves, const std::vector<Leaf>& new_leaves);
std::string difference_json(const std::vector<Leaf>& old_leaves,
                            const std::vector<Leaf>& new_leaves);

// Prints them for two whole trees and ends a command with what that comes to; a null tree could not
// be read.
int tell_difference(const Tree& a, const Tree& b, bool json);

// The bytes of a file. False, with a complaint, when it cannot be read.
bool read_file(const std::string& file, std::string* text);

}  // namespace tool
