// The running executable.
#include <limits.h>
#include <unistd.h>

#include <cstring>
#if defined(__linux__)
#include <sys/auxv.h>
#else
#include <mach-o/dyld.h>
#endif

#include "base/posix.hpp"
#include "skerrows.h"

namespace {

struct Path {
    char text[PATH_MAX + 1] = "";
};

#if defined(__linux__)

// The kernel marks the name of a file that has been replaced or removed since the start, as an
// upgrade does: callers want the name it had.
void strip_mark(char* path) {
    constexpr char kMark[] = " (deleted)";
    constexpr std::size_t kLength = sizeof kMark - 1;
    const std::size_t length = std::strlen(path);
    if (length > kLength && std::strcmp(path + length - kLength, kMark) == 0 &&
        ::access(path, F_OK) != 0)
        path[length - kLength] = '\0';
}

void find(Path* path) {
    const ssize_t length = ::readlink("/proc/self/exe", path->text, PATH_MAX);
    if (length > 0 && length < PATH_MAX) {
        path->text[length] = '\0';
        strip_mark(path->text);
        return;
    }
    // Without /proc: the name that the program was started by.
    const auto* given = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
    if (given != nullptr && std::strlen(given) < sizeof path->text)
        std::memcpy(path->text, given, std::strlen(given) + 1);
}

#else

void find(Path* path) {
    uint32_t size = sizeof path->text;
    if (::_NSGetExecutablePath(path->text, &size) != 0) path->text[0] = '\0';
}

#endif

}  // namespace

extern "C" const char* getexecname(void) {
    static const Path path = [] {
        const morva::ErrnoSaver keep;
        Path found;
        find(&found);
        return found;
    }();
    return path.text[0] != '\0' ? path.text : nullptr;
}
