// The command line as text.
#include <cstdio>
#include <cstring>

#include "base/memory.hpp"
#include "morva/banner.h"
#include "skerrows.h"
#include "text/strings.hpp"

namespace {

const char* program_path(int argc, char** argv) {
    if (const char* path = getexecname()) return path;
    return argc > 0 && argv != nullptr && argv[0] != nullptr ? argv[0] : "?program?";
}

}  // namespace

extern "C" {

char* cmdline(int argc, char** argv, int full) {
    const char* path = program_path(argc, argv);
    const char* slash = full ? nullptr : std::strrchr(path, '/');
    morva::StringStack* stack = nullptr;
    morva::push_text(stack, slash != nullptr ? slash + 1 : path);
    for (int i = 1; i < argc && argv != nullptr && argv[i] != nullptr; ++i) {
        morva::push_text(stack, " ");
        morva::push_text(stack, argv[i]);
    }
    return morva::take_text(stack);
}

void echo_cmdline(int argc, char** argv) {
    const morva::malloced<char> text(cmdline(argc, argv, 0));
    std::fprintf(stderr, "command line: %s\n", text.get());
}

}  // extern "C"
