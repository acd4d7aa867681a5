#include <cstdlib>
#include <cstring>

#include "containers/redblack.hpp"
#include "morva/arr.h"

namespace morva {
namespace {

int compare_strings(void* a, void* b, void*) {
    return std::strcmp(static_cast<char*>(a), static_cast<char*>(b));
}

// Values may be null: they are equal to each other and to nothing else.
int compare_values(void* a, void* b, void*) {
    if (a == nullptr || b == nullptr) return a != b;
    return compare_strings(a, b, nullptr);
}

void push_copy(Tbl* list, const Node* node) {
    pushtbl(list, must_strdup(text_of(node), "key", MORVA_HERE));
}

Node* first_of(Tree* tree) {
    return tree == nullptr ? nullptr : first(tree);
}

}  // namespace
}  // namespace morva

using namespace morva;

extern "C" void diffarr(Arr* a, Arr* b, Tbl_compare key_compare, Tbl_compare value_compare,
                        void* private_data, Tbl* only_a, Tbl* only_b, Tbl* changed) {
    if (key_compare == nullptr) key_compare = compare_strings;
    if (value_compare == nullptr) value_compare = compare_values;
    for (Tbl* list : {only_a, only_b, changed}) clrtbl(list, std::free);

    Node* in_a = first_of(tree_of(a));
    Node* in_b = first_of(tree_of(b));
    while (in_a != nullptr || in_b != nullptr) {
        int order = in_b == nullptr ? -1 : 1;
        if (in_a != nullptr && in_b != nullptr)
            order = key_compare(in_a->key, in_b->key, private_data);
        if (order < 0) push_copy(only_a, in_a);
        if (order > 0) push_copy(only_b, in_b);
        if (order == 0 && value_compare(in_a->value, in_b->value, private_data) != 0)
            push_copy(changed, in_a);
        if (order <= 0) in_a = next(tree_of(a), in_a);
        if (order >= 0) in_b = next(tree_of(b), in_b);
    }
}
