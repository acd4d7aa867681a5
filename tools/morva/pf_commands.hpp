// The commands of the group pf, one function each.
#pragma once

#include "command.hpp"

namespace tool {

int pf_get(const Arguments&);
int pf_keys(const Arguments&);
int pf_show(const Arguments&);
int pf_set(const Arguments&);
int pf_explain(const Arguments&);
int pf_check(const Arguments&);
int pf_diff(const Arguments&);
int pf_fmt(const Arguments&);
int pf_files(const Arguments&);
int pf_watch(const Arguments&);

}  // namespace tool
