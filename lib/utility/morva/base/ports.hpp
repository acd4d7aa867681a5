// Ports: what a lower family needs from a higher one. Each is declared here and defined in a source
// of the upper family, so that no include runs upward.
#pragma once

namespace morva::port {

// Creates the missing folders of a file path. 0, or -1 with the reason registered. (paths/)
int make_pathdirs(const char* path);

}  // namespace morva::port
