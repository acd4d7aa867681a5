// What follows a fatal message: the debugger, the burial, the exit.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/ports.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"

namespace morva::log {
namespace {

// How far this thread has come in ending the process. A second fatal message on the way, from the
// burial or from an exit handler, continues behind the step that raised it.
enum class Stage { kAlive, kBurying, kExiting };
[[gnu::tls_model("initial-exec")]] constinit thread_local Stage t_stage = Stage::kAlive;

// True once some thread is ending the process.
constinit std::atomic<bool> g_ending{false};

// The first thread that dies ends the process; the others have said why they would, and wait. Not
// for ever: an exit handler of the first may be waiting for one of them.
void wait_unless_first() {
    if (t_stage != Stage::kAlive || !g_ending.exchange(true)) return;
    timespec left{10, 0};
    while (::nanosleep(&left, &left) != 0) {
    }
    ::_exit(1);
}

// Flushing everything waits for every stream, and for ever for standard input while another thread
// waits for the next line there. Then exit flushes all but the two streams that matter most.
bool flush_streams() {
    if (::ftrylockfile(stdin) != 0) return std::fflush(stdout) == 0 && std::fflush(stderr) == 0;
    const bool flushed = std::fflush(nullptr) == 0;
    const ErrnoSaver keep;
    ::funlockfile(stdin);
    return flushed;
}

void flush_all() {
    if (flush_streams()) return;
    char text[kSysSize];
    const int error = errno;
    system_error(text, error);
    std::fprintf(stderr, "fflush(0) failed: %ld : %s\n", static_cast<long>(error), text);
}

}  // namespace

void forget_other_threads_end() {
    if (t_stage == Stage::kAlive) g_ending = false;
}

void end_program() {
    leave_lock();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    wait_unless_first();
    if (t_stage == Stage::kAlive) {
        t_stage = Stage::kBurying;
        port::bury();
    }
    flush_all();
    if (t_stage == Stage::kExiting) ::_exit(1);
    t_stage = Stage::kExiting;
    std::exit(1);
}

void run_debugger(int severity) {
    char command[8192];
    {
        Locked lock;
        if (lock.disturbed()) return;
        const char* setting = state().severities[severity].debug;
        if (*setting == '\0') return;
        expand(setting, command, sizeof command, Purpose::kCommand);
    }
    if (std::system(command) == -1) std::perror(command);
    errno = 0;
}

}  // namespace morva::log
