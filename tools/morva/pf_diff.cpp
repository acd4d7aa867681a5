// morva pf diff: two merged trees, value by value.
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

int pf_diff(const Arguments& arguments) {
    return tell_difference(read_tree(arguments.text("A")), read_tree(arguments.text("B")),
                           arguments.has("--json"));
}

}  // namespace tool
