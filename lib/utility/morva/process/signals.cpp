// Handlers that end a program, and the names of signals.
#include "morva/signals.h"

#include <signal.h>

#include <cerrno>

#include <cstdio>
#include <cstring>
#include <memory>

#include "base/diagnostics.hpp"
#include "morva/pf.h"

namespace morva::process {
namespace {

constexpr int kNamedSize = 64;  // the least buffer that gets a signal's name

struct Handled {
    int signo;
    const char* failure;
};
constexpr Handled kHandled[] = {{SIGHUP, "Couldn't intercept signal SIGHUP\n"},
                                {SIGINT, "Couldn't intercept signal SIGINT\n"},
                                {SIGQUIT, "Couldn't intercept signal SIGQUIT\n"},
                                {SIGTERM, "Couldn't intercept signal SIGTERM\n"}};

// The texts of a record.
struct Described {
    Signal record;
    char name[32];
    char description[128];

    Signal* filled(int signo, const char* label, const char* text) {
        std::snprintf(name, sizeof name, "%s", label);
        std::snprintf(description, sizeof description, "%s", text);
        record = {signo, name, description};
        return &record;
    }
};

// The name of a signal, or its number.
void put_name(int signo, char* buf, std::size_t size) {
    char name[SIG2STR_MAX] = "";
    if (sig2str(signo, name) == 0) {
        std::snprintf(buf, size, "%s", name);
    } else {
        std::snprintf(buf, size, "%d", signo);
    }
}

const char* description_of(int signo) {
    const char* text = ::strsignal(signo);
    return text != nullptr ? text : "no description for signal";
}

void last_words() {
    if (Halt_Mortician != nullptr) {
        const std::unique_ptr<Pf, void (*)(Pf*)> pf(pfnew(PFFILE), pffree);
        Halt_Mortician(pf.get());
    }
    elog_die(1, "quitting from resurrection alarm\n");
}

void on_halt(int signo) {
    const int error = errno;
    if (Halt_flag != nullptr) *static_cast<volatile int*>(Halt_flag) = 1;
    if (Halt_In_Seconds > 0 && std_set_timer(last_words, Halt_In_Seconds) != 0)
        elog_die(0, "received signal #%d but failed to set alarm timer", signo);
    errno = error;
}

void quit() {
    elog_die(1, "quitting from die_soon alarm\n");
}

}  // namespace
}  // namespace morva::process

using namespace morva::process;

int setup_signals(int* halt_flag, Mortician mortician, int seconds) {
    Halt_flag = halt_flag;
    Halt_Mortician = mortician;
    Halt_In_Seconds = seconds;
    std_prepare_timer();
    return setup_signal_handlers(on_halt);
}

int setup_signal_handlers(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    for (const Handled& handled : kHandled)
        if (::sigaction(handled.signo, &action, nullptr) != 0) elog_die(1, "%s", handled.failure);
    return 0;
}

int die_soon(double seconds) {
    if (std_set_timer(quit, seconds) == 0) return 0;
    std_sleep(seconds);
    elog_die(0, "failed to setup timer to die");
    return -1;
}

Signal* signal_bysig(int signo) {
    static thread_local Described described;
    char name[32];
    put_name(signo, name, sizeof name);
    return described.filled(signo, name, description_of(signo));
}

Signal* signal_byname(const char* name) {
    static thread_local Described described;
    int signo = -1;
    const bool prefixed = name != nullptr && std::strncmp(name, "SIG", 3) == 0;
    if (name == nullptr || str2sig(prefixed ? name + 3 : name, &signo) != 0)
        return described.filled(-1, name != nullptr ? name : "",
                                "no description for unrecognized signal");
    char label[32];
    put_name(signo, label, sizeof label);
    return described.filled(signo, label, description_of(signo));
}

char* signal_desc(int signo, char* buf, int size) {
    if (size <= 0) return buf;
    const auto room = static_cast<std::size_t>(size);
    buf[0] = '\0';
    if (size >= kNamedSize) put_name(signo, buf, room);
    const std::size_t used = std::strlen(buf);
    std::snprintf(buf + used, room - used, "%s", description_of(signo));
    return buf;
}
