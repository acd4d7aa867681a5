// What the families above the reader use of it.
#pragma once

#include "pf/pf.hpp"

namespace morva::pf {

// As pfinfd, for a source that has a name, which stands in messages ("... in parameter file NAME
// ...") and becomes the nodes' filename.
int read_descriptor(int fd, const char* source_name, Pf** pf);

// A copy of the name that lives as long as the process, the same one for equal names: what the
// filename of a node points to. Threads may call it at once.
char* lasting_name(const char* name);

}  // namespace morva::pf
