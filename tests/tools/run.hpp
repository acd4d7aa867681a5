// Runs the command `morva` as a user runs it.
#pragma once

#include <sys/wait.h>

#include "support/kit.hpp"

namespace kit {

// The exit status of a shell command line in a folder, a blank, and the output; complaints are part
// of it.
inline std::string run(const TempDir& folder, const std::string& command) {
    const std::string line = "cd '" + folder.path() +
                             "'; PATH='" MORVA_BINARY_DIR
                             "/bin':$PATH; PFPATH=.; export PFPATH; { " +
                             command + "; } 2>&1";
    FILE* pipe = ::popen(line.c_str(), "r");
    std::string out;
    for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
    const int status = ::pclose(pipe);
    return std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + " " + out;
}

}  // namespace kit
