// The register itself: the worker, the severity functions, and what callers do with the messages.
#include "morva/elog.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/memory.hpp"
#include "log/elog.hpp"
#include "skerrows.h"

namespace morva::log {
namespace {

constexpr const char* kNames[ELOG_NSEVERITY] = {"log",      "debug", "notify", "alert",
                                                "complain", "die",   "fault"};

// Counts a reason that was just registered once more; true when it was.
bool count_repeat(const Draft& draft) {
    Busy busy;
    Elog_msg* last = register_item(register_count() - 1);
    if (last == nullptr || !repeats(*last, draft)) return false;
    if (last->count < INT32_MAX) ++last->count;
    return true;
}

void deliver_or_keep(int severity, const Elog_msg* message) {
    const Setting& current = state().severities[severity].delivery;
    if (*current != '\0') {
        Setting delivery;  // a copy: it may be set while the lock is free
        copy_setting(delivery, current);
        if (deliver(delivery, 0, message)) return;
    }
    if (message != nullptr) keep(*message);
}

// True when the severity's debugger is to run.
bool register_message(Draft& draft, int severity, int error) {
    if (severity == ELOG_LOG && count_repeat(draft)) return false;
    complete(draft, severity, error);
    const bool stack = wants_stack(draft);
    const Elog_msg* message = &draft.message;
    if (offer(severity, Batch{0, register_count(), message})) {
        cut_register(0);
        message = nullptr;
    }
    deliver_or_keep(severity, message);
    if (stack) {
        Busy busy;
        show_stack_trace(stderr);
    }
    return *state().severities[severity].debug != '\0';
}

// The register cannot be touched: the message goes out at once, and nothing is allocated for it.
void write_at_once(Draft& draft, int severity, int error) {
    complete(draft, severity, error);
    write_batch(STDERR_FILENO, Batch{0, 0, &draft.message, true});
}

void follow_up(int severity) {
    if (severity == ELOG_DIE) end_program();
    if (severity == ELOG_FAULT) std::abort();
}

}  // namespace

long register_count() {
    Tbl* messages = state().messages;
    return messages != nullptr ? maxtbl(messages) : 0;
}

Elog_msg* register_item(long i) {
    Tbl* messages = state().messages;
    return messages != nullptr ? static_cast<Elog_msg*>(gettbl(messages, i)) : nullptr;
}

void cut_register(long n) {
    Busy busy;
    n = std::max(n, 0L);
    for (Span* span = state().spans; span != nullptr; span = span->next)
        span->end = std::min(span->end, std::max(n, span->start));
    if (n < register_count()) trunctbl(state().messages, n, spare_message);
}

void remove_span(const Span& span) {
    Busy busy;
    const long shown = span.end - span.start;
    if (shown <= 0) return;
    if (span.end >= register_count()) return cut_register(span.start);
    for (Span* other = state().spans; other != nullptr; other = other->next)
        other->end = std::min(other->end, std::max(span.start, other->start));
    for (long i = 0; i < shown; ++i) spare_message(deltbl(state().messages, span.start));
}

}  // namespace morva::log

extern "C" {

using namespace morva::log;

void elog(int severity, int flag, const char* format, va_list arguments) {
    const int error = flag != 0 ? errno : 0;
    severity = known_severity(severity);
    initialise_if_needed();
    Draft draft;
    format_text(draft, format, arguments);
    bool debug = false;
    {
        Locked lock;
        if (lock.disturbed())
            write_at_once(draft, severity, error);
        else
            debug = register_message(draft, severity, error);
    }
    errno = 0;
    if (debug) run_debugger(severity);
    follow_up(severity);
}

#define MORVA_SAY(severity)                  \
    va_list arguments;                       \
    va_start(arguments, format);             \
    elog(severity, flag, format, arguments); \
    va_end(arguments)

void elog_log(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_LOG);
}
void elog_debug(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_DEBUGGING);
}
void elog_notify(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_NOTIFY);
}
void elog_alert(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_ALERT);
}
void elog_complain(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_COMPLAIN);
}
void elog_die(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_DIE);
    end_program();
}
void elog_fault(int flag, const char* format, ...) {
    MORVA_SAY(ELOG_FAULT);
    std::abort();
}

char* elogs(int severity, int flag, const char* format, ...) {
    const int error = flag != 0 ? errno : 0;
    initialise_if_needed();
    Draft draft;
    va_list arguments;
    va_start(arguments, format);
    format_text(draft, format, arguments);
    va_end(arguments);
    Locked lock;
    complete(draft, known_severity(severity), error);
    const Batch batch{0, 0, &draft.message, lock.disturbed()};
    char* result = try_layout(batch);
    if (result == nullptr) morva::out_of_memory(layout_size(batch), "result", MORVA_HERE);
    return result;
}

int elog_mark(void) {
    initialise_if_needed();
    Locked lock;
    return static_cast<int>(register_count());
}

int elog_flush(int print, int mark) {
    initialise_if_needed();
    Locked lock;
    if (lock.disturbed()) return -1;
    const long start = std::max(mark, 0);
    if (print != 0 && start < register_count() &&
        !offer(ELOG_NOTIFY, Batch{start, register_count(), nullptr})) {
        Setting delivery;
        copy_setting(delivery, state().severities[ELOG_COMPLAIN].delivery);
        deliver(delivery, start, nullptr);
    }
    return elog_truncate(mark);
}

int elog_truncate(int n) {
    initialise_if_needed();
    Locked lock;
    if (lock.disturbed()) return -1;
    cut_register(n);
    return 0;
}

int elog_clear(void) {
    const int result = elog_truncate(0);
    errno = 0;
    return result;
}

int elog_clear_register(int print) {
    elog_flush(print, 0);
    return elog_clear();
}

char* elog_severity(int severity) {
    const bool known = severity >= 0 && severity < ELOG_NSEVERITY;
    return const_cast<char*>(known ? kNames[severity] : "unknown");
}

}  // extern "C"
