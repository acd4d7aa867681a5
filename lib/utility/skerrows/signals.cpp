// Names of signals.
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string_view>

#include "skerrows.h"

namespace {

struct Row {
    int signo;
    std::string_view name;
};

// A number's first row gives its name; the others are accepted, too.
constexpr Row kRows[] = {
    {0, "EXIT"},           {SIGHUP, "HUP"},   {SIGINT, "INT"},       {SIGQUIT, "QUIT"},
    {SIGILL, "ILL"},       {SIGTRAP, "TRAP"}, {SIGABRT, "ABRT"},     {SIGBUS, "BUS"},
    {SIGFPE, "FPE"},       {SIGKILL, "KILL"}, {SIGUSR1, "USR1"},     {SIGSEGV, "SEGV"},
    {SIGUSR2, "USR2"},     {SIGPIPE, "PIPE"}, {SIGALRM, "ALRM"},     {SIGTERM, "TERM"},
    {SIGCHLD, "CHLD"},     {SIGCONT, "CONT"}, {SIGSTOP, "STOP"},     {SIGTSTP, "TSTP"},
    {SIGTTIN, "TTIN"},     {SIGTTOU, "TTOU"}, {SIGURG, "URG"},       {SIGXCPU, "XCPU"},
    {SIGXFSZ, "XFSZ"},     {SIGPROF, "PROF"}, {SIGVTALRM, "VTALRM"}, {SIGSYS, "SYS"},
    {SIGWINCH, "WINCH"},
#ifdef SIGPOLL
    {SIGPOLL, "POLL"},
#endif
#ifdef SIGIO
    {SIGIO, "IO"},
#endif
#ifdef SIGPWR
    {SIGPWR, "PWR"},
#endif
#ifdef SIGSTKFLT
    {SIGSTKFLT, "STKFLT"},
#endif
#ifdef SIGEMT
    {SIGEMT, "EMT"},
#endif
#ifdef SIGINFO
    {SIGINFO, "INFO"},
#endif
    {SIGABRT, "IOT"},      {SIGCHLD, "CLD"},
};

// The numbers of the real-time signals; empty where there are none.
struct Range {
    int first, last;
};
Range real_time() {
#ifdef SIGRTMIN
    return {SIGRTMIN, SIGRTMAX};
#else
    return {1, 0};
#endif
}

int fail() {
    errno = EINVAL;
    return -1;
}

// `text` and the number, if not 0. Without stdio, for signal handlers.
void write_name(char* name, std::string_view text, int number) {
    char* end = name + text.copy(name, text.size());
    if (number != 0) end = std::to_chars(end, name + SIG2STR_MAX - 1, number).ptr;
    *end = '\0';
}

int name_real_time(int signo, Range range, char* name) {
    if (signo < range.first || signo > range.last) return fail();
    const int up = signo - range.first, down = range.last - signo;
    if (up == 0 || down == 0)
        write_name(name, up == 0 ? "RTMIN" : "RTMAX", 0);
    else
        write_name(name, up <= down ? "RTMIN+" : "RTMAX-", std::min(up, down));
    return 0;
}

// All of `text` as a number without a sign, or -1.
int number(std::string_view text) {
    int value = -1;
    if (text.empty() || text.front() == '-') return -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : -1;
}

// The number of "RTMIN", "RTMIN+n", "RTMAX" and "RTMAX-n", or -1.
int real_time_number(std::string_view name, Range range) {
    const bool up = name.substr(0, 5) == "RTMIN";
    if (!up && name.substr(0, 5) != "RTMAX") return -1;
    const std::string_view rest = name.substr(5);
    int offset = 0;
    if (!rest.empty()) {
        if (rest.front() != (up ? '+' : '-')) return -1;
        offset = number(rest.substr(1));
    }
    if (offset < 0 || offset > range.last - range.first) return -1;
    return up ? range.first + offset : range.last - offset;
}

}  // namespace

extern "C" {

int sig2str(int signo, char* name) {
    for (const Row& row : kRows)
        if (row.signo == signo) {
            write_name(name, row.name, 0);
            return 0;
        }
    return name_real_time(signo, real_time(), name);
}

int str2sig(const char* name, int* signo) {
    if (name == nullptr) return fail();
    const std::string_view wanted(name);
    for (const Row& row : kRows)
        if (row.name == wanted) {
            *signo = row.signo;
            return 0;
        }
    int found = real_time_number(wanted, real_time());
    if (char known[SIG2STR_MAX]; found < 0 && sig2str(number(wanted), known) == 0)
        found = number(wanted);
    if (found < 0) return fail();
    *signo = found;
    return 0;
}

}  // extern "C"
