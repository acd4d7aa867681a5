// Programs behind a socket.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "morva/sockets.h"

namespace morva::net {
namespace {

// What a program says when it is asked to; put together before the fork, where memory may be had.
String greeting(char* const* argv) {
    const char* option = argv[1];
    if (option == nullptr || *option != '-' || std::strchr(option, 'V') == nullptr) return {};
    String said("(");
    for (const char* word : {static_cast<const char*>(argv[0]), option})
        said.append(word).append(" ");
    if (argv[2] != nullptr) said.append(argv[2]);
    return said.append(") spawned\n");
}

// Becomes the program. The descriptor moves out of the way first: a copy onto itself would still be
// closed by the program's start.
[[noreturn]] void become(char* const* argv, int fd, const String& said) {
    const int end = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (end < 0 || ::dup2(end, STDIN_FILENO) < 0 || ::dup2(end, STDOUT_FILENO) < 0) ::_exit(1);
    if (!said.empty()) write_all(STDERR_FILENO, said.data(), said.size());
    ::execvp(argv[0], argv);
    ::_exit(1);
}

}  // namespace
}  // namespace morva::net

using namespace morva::net;
using morva::String;

int vk_spawn(char** argv) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        elog_log(1, "Couldn't open socketpair for subprocess '%s'\n", argv[0]);
        return -1;
    }
    morva::Descriptor ours(ends[0]), theirs(ends[1]);
    const String said = greeting(argv);
    const pid_t child = ::fork();
    if (child == 0) become(argv, theirs.get(), said);
    if (child > 0) return ours.release();
    elog_log(1, "Couldn't fork subprocess '%s'\n", argv[0]);
    return -1;
}

int vk_exec_subprogram(const char* program, const char* argument) {
    constexpr std::size_t kLongestOption = 1023;
    const morva::malloced<char> path(*program == '/'
                                         ? morva::must_strdup(program, "path", MORVA_HERE)
                                         : concatpaths(getkorvalin(), "bin", program, nullptr));
    String file(argument), option;
    const std::size_t at = file.rfind('@');
    if (at != String::npos) {
        option.assign("-").append(file, at + 1, kLongestOption);
        file.resize(at);
    }
    char* with[] = {path.get(), option.data(), file.data(), nullptr};
    char* without[] = {path.get(), file.data(), nullptr};
    return vk_spawn(option.empty() ? without : with);
}
