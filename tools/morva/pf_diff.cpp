// morva pf diff: two merged trees, value by value.
#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

int pf_diff(const Arguments& arguments) {
    const Tree a = read_tree(arguments.text("A")), b = read_tree(arguments.text("B"));
    if (a == nullptr || b == nullptr) return kUnusable;
    const std::vector<Leaf> was = leaves_of(a.get()), is = leaves_of(b.get());
    if (arguments.has("--json"))
        print(difference_json(was, is) + "\n");
    else
        print_difference(was, is);
    return finish(pfcmp(a.get(), b.get()) == 0 ? kDone : kFindings);
}

}  // namespace tool
