// morva pf: the table of what it can do with parameter files.
#include "command.hpp"

namespace tool {

const Group pf_group = {"pf", "parameter files", "", {}};

}  // namespace tool
