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

namespace morva {

// Makes sure that the register has its settings: reads them when nobody has logged yet. Whoever
// takes a lock that the reading of a parameter file may want calls it first; from then on no
// message waits for that lock. Cheap afterwards. The thread that is reading the settings passes
// through. Keeps errno.
void log_ready();

}  // namespace morva
