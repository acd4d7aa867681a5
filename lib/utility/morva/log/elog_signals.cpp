// Fault signals: each is reported as a message of fault severity, then takes its usual course, so
// that the core file and the exit status show the signal itself.
//
// The fault may have hit anything: the register at work, or the allocator with its lock held. So
// nothing is allocated or freed here, stdio is left alone, and the register's lock is only waited
// for a moment; without it the report goes to standard error alone.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/fault_guard.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"
#include "skerrows.h"

namespace morva::log {
namespace {

constexpr int kSignals = 65;
constexpr std::size_t kHandlerStack = 128 * 1024;

// What is said of a signal: made when it is intercepted, since strsignal may allocate.
struct Intercepted {
    bool ours;
    char text[96];
};
constinit Intercepted g_intercepted[kSignals] = {};

void describe(Draft& draft, int signo, const siginfo_t* info) {
    const bool at_address = info != nullptr && info->si_code > 0 && signo != SIGSYS;
    const int n = at_address ? std::snprintf(draft.text, sizeof draft.text, "%s at address %p\n",
                                             g_intercepted[signo].text, info->si_addr)
                             : std::snprintf(draft.text, sizeof draft.text, "%s\n",
                                             g_intercepted[signo].text);
    draft.length = static_cast<std::size_t>(n);
    complete(draft, ELOG_FAULT, 0);
}

void report_fault(int signo, const siginfo_t* info) {
    Draft draft;
    describe(draft, signo, info);
    Grabbed lock;
    if (!lock) {
        write_batch(STDERR_FILENO, Batch{0, 0, &draft.message, true});
        return;
    }
    deliver_frugally(state().severities[ELOG_FAULT].delivery,
                     Batch{0, register_count(), &draft.message, true});
    if (wants_stack(draft)) show_stack_trace(stderr);
    run_debugger(ELOG_FAULT);
}

// The signal is blocked while it is handled: raised again, it strikes when the handler returns.
void on_fault(int signo, siginfo_t* info, void*) {
    ErrnoSaver keep;
    if (signo == SIGBUS && info->si_code > 0 && absorb_fault(info->si_addr)) return;
    report_fault(signo, info);
    ::signal(signo, SIG_DFL);
    ::raise(signo);
}

// A stack overflow leaves no room for a handler. The thread that initialises the register, which is
// nearly always the main thread, gets a stack for it unless it has one.
void provide_stack() {
    alignas(64) static char stack[kHandlerStack];
    static bool given = false;
    stack_t current{};
    if (given || ::sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0)
        return;
    current = stack_t{};
    current.ss_sp = stack;
    current.ss_size = sizeof stack;
    given = ::sigaltstack(&current, nullptr) == 0;
}

int signal_number(const char* name) {
    int signo = 0;
    const bool prefixed = std::strncmp(name, "SIG", 3) == 0;
    if (str2sig(prefixed ? name + 3 : name, &signo) != 0) return -1;
    return signo > 0 && signo < kSignals ? signo : -1;
}

bool is_free(int signo, bool insist) {
    struct sigaction current {};
    if (::sigaction(signo, nullptr, &current) != 0) return false;
    const bool plain = (current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_DFL;
    return insist || plain || g_intercepted[signo].ours || is_fault_guard(current);
}

bool intercept(int signo) {
    char name[SIG2STR_MAX] = "";
    sig2str(signo, name);
    std::snprintf(g_intercepted[signo].text, sizeof g_intercepted[signo].text,
                  "received signal %s: %s", name, ::strsignal(signo));
    struct sigaction action {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    g_intercepted[signo].ours = ::sigaction(signo, &action, nullptr) == 0;
    return g_intercepted[signo].ours;
}

void release_others(const bool (&wanted)[kSignals]) {
    for (int signo = 1; signo < kSignals; ++signo) {
        if (!g_intercepted[signo].ours || wanted[signo]) continue;
        g_intercepted[signo].ours = false;
        signo == SIGBUS ? restore_fault_guard() : static_cast<void>(::signal(signo, SIG_DFL));
    }
}

}  // namespace

int intercept_signals(const char* names, bool insist) {
    int result = 0;
    bool wanted[kSignals] = {};
    LongSetting list;
    std::snprintf(list, sizeof list, "%s", names);
    char* rest = nullptr;
    for (char* name = ::strtok_r(list, ":", &rest); name; name = ::strtok_r(nullptr, ":", &rest)) {
        const int signo = signal_number(name);
        if (signo > 0 && !is_free(signo, insist)) continue;
        if (signo > 0 && intercept(signo)) {
            wanted[signo] = true;
        } else {
            elog_log(0, "Can't intercept signal '%s'\n", name);
            result = -1;
        }
    }
    release_others(wanted);
    provide_stack();
    if (names != state().signals) std::snprintf(state().signals, sizeof list, "%s", names);
    return result;
}

}  // namespace morva::log
