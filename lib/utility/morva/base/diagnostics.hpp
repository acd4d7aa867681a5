// How every family reports: through the register's own calls, declared here so that floor 1 and
// below need nothing of the register but these names. The register defines them.
//
// A family registers its reason and returns, in two plain lines:
//     elog_log(1, "Can't open %s to write tbl.\n", path);
//     return -1;
// It holds no lock of its own while it logs: the first message of a process reads the settings of
// the register, which uses other families.
#pragma once

#include "morva/elog.h"
