// Runs a body in a child process that has a deadline.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include "support/kit.hpp"

namespace kit {

struct Ended {
    int status;          // exit status, or 128 and the signal's number
    std::string errors;  // what went to standard error
};

// The child leaves with the body's result, past all exit handlers. One that hangs is killed by
// SIGALRM.
inline Ended in_child(const std::function<int()>& body) {
    Ended ended{};
    ended.errors = captured(2, [&] {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60);
            ::_exit(body());
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    });
    return ended;
}

}  // namespace kit
