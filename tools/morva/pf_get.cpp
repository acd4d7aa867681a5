// morva pf get, keys and show: values of the merged tree.
#include <string.h>

#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

// A copy in which nothing is left to expand or to evaluate; functions without result are left out.
Tree expanded_copy(Pf* node) {
    node = evaluated(node, Values::expanded);
    if (node == nullptr) return nullptr;
    Tree copy(pfnew(is_array(node) ? PFARR : node->type));
    if (node->type == PFTBL) {
        for (long i = 0; i < maxtbl(node->value.tbl); ++i)
            if (Tree item = expanded_copy(static_cast<Pf*>(gettbl(node->value.tbl, i))))
                pushtbl(copy->value.tbl, item.release());
    } else if (is_array(node)) {
        for (const std::string& key : keys_of(node))
            if (Tree entry = expanded_copy(static_cast<Pf*>(getarr(node->value.arr, key.c_str()))))
                setarr(copy->value.arr, key.c_str(), entry.release());
    } else {
        copy->value.string = ::strdup(text_of(node, Values::expanded).c_str());
    }
    return copy;
}

void print_item(Pf* item, Values values) {
    item = evaluated(item, values);
    if (item == nullptr) return;
    print(is_block(item) ? normal_form(item) : text_of(item, values) + "\n");
}

void print_value(Pf* node, Values values) {
    if (node->type != PFTBL) return print_item(node, values);
    for (long i = 0; i < maxtbl(node->value.tbl); ++i)
        print_item(static_cast<Pf*>(gettbl(node->value.tbl, i)), values);
}

void print_strings(const std::vector<std::string>& strings, bool json) {
    JsonList list;
    for (const std::string& string : strings)
        json ? list.add(json_string(string)) : print(string + "\n");
    if (json) print(list.str() + "\n");
}

// The node that a command is asked about; null, with a status to end with, when there is none.
Pf* wanted(const Arguments& arguments, Tree& tree, int* status) {
    const std::string name = arguments.text("NAME");
    tree = read_tree(name);
    *status = tree == nullptr ? kUnusable : kFindings;
    return tree == nullptr ? nullptr : find(tree.get(), arguments.text("PATH"), name);
}

}  // namespace

int pf_get(const Arguments& arguments) {
    Tree tree;
    int status = kDone;
    Pf* node = wanted(arguments, tree, &status);
    if (node == nullptr) return status;
    const Values values = arguments.has("--raw") ? Values::as_written : Values::expanded;
    node = evaluated(node, values);
    if (node == nullptr) {
        elog_complain(0, "the function gives nothing");
        return kFindings;
    }
    if (arguments.has("--json"))
        print(json_of(node, values) + "\n");
    else
        print_value(node, values);
    return finish(kDone);
}

int pf_keys(const Arguments& arguments) {
    Tree tree;
    int status = kDone;
    Pf* node = wanted(arguments, tree, &status);
    if (node == nullptr) return status;
    std::vector<std::string> keys;
    if (arguments.has("--all")) {
        for (const Leaf& leaf : leaves_of(node, arguments.text("PATH"))) keys.push_back(leaf.path);
    } else if (is_array(node)) {
        keys = keys_of(node);
    } else {
        elog_complain(0, "'%s' is no array", arguments.text("PATH").c_str());
        return kFindings;
    }
    print_strings(keys, arguments.has("--json"));
    return finish(kDone);
}

int pf_show(const Arguments& arguments) {
    Tree tree;
    int status = kDone;
    Pf* node = wanted(arguments, tree, &status);
    if (node == nullptr) return status;
    const Values values = arguments.has("--expand") ? Values::expanded : Values::as_written;
    if (arguments.has("--json")) {
        print(json_of(node, values) + "\n");
        return finish(kDone);
    }
    const Tree copy = values == Values::expanded ? expanded_copy(node) : Tree(pfdup(node));
    if (copy != nullptr) print(normal_form(copy.get()));
    return finish(kDone);
}

}  // namespace tool
