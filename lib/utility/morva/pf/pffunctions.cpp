// The functions that take their values from the tree, the environment, the user or the names of
// files.
#include <glob.h>

#include <cstdlib>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "containers/redblack.hpp"
#include "pf/evaluation.hpp"
#include "pf/pfexpand.hpp"
#include "pf/pfinterpret.hpp"
#include "pf/pfresolve.hpp"
#include "skerrows.h"

namespace morva::pf {
namespace {

constexpr int kDeepestCopy = 32;  // containers in containers

void adopt(Pf* container, Pf* node) {
    node->parent = container;
    node->filename = container->filename;
}

// Copies a tree for `function`, with everything in it replaced by what it stands for now.
class Copy {
  public:
    explicit Copy(const Pf* function) : function_(function) {}
    // Null in `*copy` for a node that gives nothing.
    bool make(Pf* node, Pf** copy);

  private:
    bool make_string(Pf* node, Pf** copy);
    bool make_list(Pf* list, Pf** copy);
    bool make_array(Pf* array, Pf** copy);
    Pf* named(Pf* node) {
        node->filename = function_->filename;
        return node;
    }

    const Pf* function_;
    int depth_ = 0;
};

bool Copy::make_string(Pf* node, Pf** copy) {
    if (!has_string(node)) return true;
    String text;
    if (!append_expanded(node, &text) || !Evaluation::charge(text.size())) return false;
    *copy = named(new_string_node(text));
    return true;
}

bool Copy::make_list(Pf* list, Pf** copy) {
    *copy = named(new_list_node());
    for (long i = 0; i < tbl_count(list->value.tbl); ++i) {
        Pf* item = nullptr;
        if (!make(found_in(list, tbl_item(list->value.tbl, i)), &item)) return false;
        if (item == nullptr) continue;
        adopt(*copy, item);
        pushtbl((*copy)->value.tbl, item);
    }
    return true;
}

bool Copy::make_array(Pf* array, Pf** copy) {
    *copy = named(new_array_node());
    bool complete = true;
    for_each_pair(tree_of(array->value.arr), [&](void* key, void* value) {
        Pf* entry = nullptr;
        complete = complete && make(found_in(array, value), &entry);
        if (entry == nullptr) return;
        adopt(*copy, entry);
        setarr((*copy)->value.arr, static_cast<const char*>(key), entry);
    });
    return complete;
}

bool Copy::make(Pf* node, Pf** copy) {
    *copy = nullptr;
    if (node == nullptr) return true;
    if (!Evaluation::charge(kNodeCost) || !interpret(node, &node)) return false;
    if (node == nullptr) return true;
    const bool list = node->type == PFTBL && node->value.tbl != nullptr;
    if (!list && !is_array(node)) return make_string(node, copy);
    if (depth_ == kDeepestCopy) return fail_evaluation(function_, "the tree is too deep");
    ++depth_;
    const bool made = list ? make_list(node, copy) : make_array(node, copy);
    --depth_;
    if (!made) {
        pffree(*copy);
        *copy = nullptr;
    }
    return made;
}

}  // namespace

bool evaluate_env(const Call& call, Pf** result) {
    const char* value = std_getenv(call.argument.c_str());
    if (value != nullptr) *result = new_string_node(value);
    return true;
}

bool evaluate_ref(const Call& call, Pf** result) {
    Pf* found = nullptr;
    const int type = look_up(call.node, call.argument, true, &found);
    if (type == kRefused) return false;
    if (found == nullptr) return fail_evaluation(call.node, "there is no such value");
    return Copy(call.node).make(found, result);
}

bool evaluate_glob(const Call& call, Pf** result) {
    glob_t matches{};
    // The home folder comes from the environment.
    const int flags = std_is_secure() ? 0 : GLOB_TILDE;
    const int status = ::glob(call.argument.c_str(), flags, nullptr, &matches);
    if (status == GLOB_NOSPACE) out_of_memory(call.argument.size(), "glob", MORVA_HERE);
    *result = new_list_node();
    (*result)->filename = call.node->filename;
    for (std::size_t i = 0; i < matches.gl_pathc; ++i) {
        Pf* name = new_string_node(matches.gl_pathv[i]);
        adopt(*result, name);
        pushtbl((*result)->value.tbl, name);
    }
    ::globfree(&matches);
    return true;
}

bool evaluate_ask(const Call& call, Pf** result) {
    if (Pfprompt == nullptr) return fail_evaluation(call.node, "there is nobody to ask");
    const malloced<char> answer(Pfprompt(call.argument.c_str()));
    if (answer != nullptr) *result = new_string_node(answer.get());
    return true;
}

bool evaluate_undef(const Call&, Pf**) {
    return true;
}

}  // namespace morva::pf
