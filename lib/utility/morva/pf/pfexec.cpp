// &exec(command): a shell's standard output.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "pf/evaluation.hpp"
#include "pf/pfinterpret.hpp"
#include "skerrows.h"

extern char** environ;

namespace morva::pf {
namespace {

// Keeps the program's own handler from hearing of the shell before it has been waited for.
class ChildSignalHeld {
  public:
    ChildSignalHeld() {
        sigset_t child;
        ::sigemptyset(&child);
        ::sigaddset(&child, SIGCHLD);
        ::pthread_sigmask(SIG_BLOCK, &child, &before_);
    }
    ~ChildSignalHeld() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    ChildSignalHeld(const ChildSignalHeld&) = delete;
    ChildSignalHeld& operator=(const ChildSignalHeld&) = delete;
    const sigset_t* before() const { return &before_; }

  private:
    sigset_t before_;
};

// How the shell is started: output into the pipe, nothing to read, signals as in a fresh program.
class SpawnSettings {
  public:
    SpawnSettings(int output, const sigset_t* mask) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawnattr_init(&attributes_);
        sigset_t defaults;
        ::sigemptyset(&defaults);
        for (int signal : {SIGCHLD, SIGPIPE}) ::sigaddset(&defaults, signal);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setsigmask(&attributes_, mask);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // The shell's process number, or -1 with errno.
    pid_t start(const char* command) const {
        char shell[] = "sh", option[] = "-c";
        char* const arguments[] = {shell, option, const_cast<char*>(command), nullptr};
        pid_t shell_id = -1;
        const int error =
            ::posix_spawn(&shell_id, "/bin/sh", &actions_, &attributes_, arguments, environ);
        if (error == 0) return shell_id;
        errno = error;
        return -1;
    }

  private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// The wait status. 0 as well where the program has its children reaped by somebody else, so that
// nobody can tell.
int wait_for(pid_t shell) {
    int status = 0;
    return retry([&] { return ::waitpid(shell, &status, 0); }) == shell ? status : 0;
}

bool ended_well(const Call& call, int status) {
    if (status == 0) return true;
    const bool signalled = WIFSIGNALED(status);
    elog_log(0, "'%s' ended with %s %d\n", call.argument.c_str(), signalled ? "signal" : "status",
             signalled ? WTERMSIG(status) : WEXITSTATUS(status));
    return false;
}

bool run(const Call& call, String* output) {
    int ends[2];
    if (::std_pipe(ends) != 0) {
        elog_log(1, "can't make a pipe to run '%s'\n", call.argument.c_str());
        return false;
    }
    const Descriptor from(ends[0]);
    Descriptor to(ends[1]);
    const ChildSignalHeld held;
    const pid_t shell = SpawnSettings(to.get(), held.before()).start(call.argument.c_str());
    if (shell == -1) {
        elog_log(1, "can't run '%s'\n", call.argument.c_str());
        return false;
    }
    to = Descriptor();
    const bool complete = read_text(call, from.get(), output);
    if (!complete) ::kill(shell, SIGKILL);
    const int status = wait_for(shell);
    return complete && ended_well(call, status);
}

}  // namespace

bool evaluate_exec(const Call& call, Pf** result) {
    if (!g_exec_allowed) return fail_evaluation(call.node, "commands are switched off");
    if (std_is_secure())
        return fail_evaluation(call.node, "this process has more rights than its user");
    String output;
    if (!run(call, &output)) return false;
    while (!output.empty() && output.back() == '\n') output.pop_back();
    *result = new_string_node(output);
    return true;
}

}  // namespace morva::pf
