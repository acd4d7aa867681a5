// elog_query and elog_set: the register's state by code.
#include <cstring>
#include <iterator>

#include "base/memory.hpp"
#include "log/elog.hpp"

#define MORVA_XLAT(symbol) \
    { #symbol, symbol }
const Xlat Elog_xlat[ELOG_XLAT_COUNT] = {
    MORVA_XLAT(ELOG_LOG),    MORVA_XLAT(ELOG_DEBUGGING), MORVA_XLAT(ELOG_NOTIFY),
    MORVA_XLAT(ELOG_ALERT),  MORVA_XLAT(ELOG_COMPLAIN),  MORVA_XLAT(ELOG_DIE),
    MORVA_XLAT(ELOG_FAULT),  MORVA_XLAT(ELOG_NSEVERITY), MORVA_XLAT(ELOG_TBL),
    MORVA_XLAT(ELOG_TBLCP),  MORVA_XLAT(ELOG_TBLCPCL),   MORVA_XLAT(ELOG_ARGV),
    MORVA_XLAT(ELOG_ARGC),   MORVA_XLAT(ELOG_COUNT),     MORVA_XLAT(ELOG_VERSION),
    MORVA_XLAT(ELOG_MAXMSG), MORVA_XLAT(ELOG_TAG),       MORVA_XLAT(ELOG_DELIVER),
    MORVA_XLAT(ELOG_DEBUG),  MORVA_XLAT(ELOG_SIGNALS),   MORVA_XLAT(ELOG_CALLBACK),
    MORVA_XLAT(ELOG_STRING),
};

namespace morva::log {
namespace {

bool is_severity(int severity) {
    return severity >= 0 && severity < ELOG_NSEVERITY;
}

template <class T>
int give(void* result, T value) {
    std::memcpy(result, &value, sizeof value);
    return 0;
}

Tbl* the_register() {
    Busy busy;
    if (state().messages == nullptr) state().messages = newtbl(0);
    return state().messages;
}

// Copies every message, or nothing: what was copied is freed again when memory runs out.
Tbl* try_copies() {
    Busy busy;
    Tbl* copies = newtbl(register_count());
    for (long i = 0; i < register_count(); ++i) {
        const Elog_msg* message = register_item(i);  // null in a gap of a list from elog_set
        Elog_msg* copy = message != nullptr ? try_copy(*message) : nullptr;
        if (copy == nullptr && message != nullptr) {
            freetbl(copies, free_message);
            return nullptr;
        }
        pushtbl(copies, copy);
    }
    return copies;
}

int give_copies(void* result) {
    Tbl* copies = try_copies();
    return copies != nullptr ? give(result, copies) : -1;
}

// A row of the table of codes; null: the code cannot do that.
struct Code {
    int (*query)(int severity, void* result);
    int (*set)(int severity, void* value);
};

int by_value(void* value) {
    return static_cast<int>(reinterpret_cast<intptr_t>(value));
}

int set_field(Setting Severity::*field, int severity, void* value) {
    if (!is_severity(severity) || value == nullptr) return -1;
    copy_setting(state().severities[severity].*field, static_cast<const char*>(value));
    return 0;
}

int give_field(Setting Severity::*field, int severity, void* result) {
    if (!is_severity(severity)) return -1;
    return give(result, static_cast<char*>(state().severities[severity].*field));
}

int replace_register(int, void* value) {
    if (value != state().messages) {
        for (Span* span = state().spans; span != nullptr; span = span->next)
            span->end = span->start;
        state().messages = static_cast<Tbl*>(value);
    }
    the_register();
    return 0;
}

int set_tag(int severity, void* value) {
    if (is_severity(severity)) return set_field(&Severity::tag, severity, value);
    int result = 0;
    for (int i = 0; i < ELOG_NSEVERITY; ++i) result = set_field(&Severity::tag, i, value);
    return result;
}

int set_callback(int, void* value) {
    the_register();
    state().callback = reinterpret_cast<Elog_callback>(value);
    return 0;
}

constexpr Code kCodes[] = {
    /* ELOG_TBL */ {[](int, void* r) { return give(r, the_register()); }, replace_register},
    /* ELOG_TBLCP */ {[](int, void* r) { return give_copies(r); }, nullptr},
    /* ELOG_TBLCPCL */
    {[](int, void* r) {
         const int result = give_copies(r);
         if (result == 0) cut_register(0);
         return result;
     },
     nullptr},
    /* ELOG_ARGV */
    {[](int, void* r) { return give(r, Argv); },
     [](int, void* v) {
         Argv = static_cast<char**>(v);
         return 0;
     }},
    /* ELOG_ARGC */
    {[](int, void* r) { return give(r, Argc); },
     [](int, void* v) {
         Argc = by_value(v);
         return 0;
     }},
    /* ELOG_COUNT */
    {[](int, void* r) { return give(r, static_cast<int>(register_count())); },
     [](int, void* v) {
         cut_register(by_value(v));
         return 0;
     }},
    /* ELOG_VERSION */ {nullptr, nullptr},
    /* ELOG_MAXMSG */
    {[](int, void* r) { return give(r, Max_msg); },
     [](int, void* v) {
         Max_msg = by_value(v);
         return 0;
     }},
    /* ELOG_TAG */ {[](int s, void* r) { return give_field(&Severity::tag, s, r); }, set_tag},
    /* ELOG_DELIVER */
    {[](int s, void* r) { return give_field(&Severity::delivery, s, r); },
     [](int s, void* v) { return set_field(&Severity::delivery, s, v); }},
    /* ELOG_DEBUG */
    {[](int s, void* r) { return give_field(&Severity::debug, s, r); },
     [](int s, void* v) { return set_field(&Severity::debug, s, v); }},
    /* ELOG_SIGNALS */
    {[](int, void* r) { return give(r, static_cast<char*>(state().signals)); },
     [](int, void* v) {
         return v != nullptr ? intercept_signals(static_cast<const char*>(v), true) : -1;
     }},
    /* ELOG_CALLBACK */ {[](int, void* r) { return give(r, state().callback); }, set_callback},
    /* ELOG_STRING */ {[](int start, void* r) { return give(r, elog_string(start)); }, nullptr},
    /* the reference time */
    {[](int, void* r) { return give(r, state().reference_time); },
     [](int, void* v) {
         if (v == nullptr) return -1;
         std::memcpy(&state().reference_time, v, sizeof(double));
         return 0;
     }},
    /* the program name */ {[](int, void* r) { return give(r, Program_Name); }, nullptr},
};

}  // namespace
}  // namespace morva::log

extern "C" {

using namespace morva::log;

int elog_query(int code, int severity, void* result) {
    initialise_if_needed();
    if (code < 0 || code >= static_cast<int>(std::size(kCodes)) || result == nullptr) return -1;
    Locked lock;
    if (lock.disturbed() || kCodes[code].query == nullptr) return -1;
    return kCodes[code].query(severity, result);
}

int elog_set(int code, int severity, void* value) {
    initialise_if_needed();
    if (code < 0 || code >= static_cast<int>(std::size(kCodes))) return -1;
    Locked lock;
    if (lock.disturbed() || kCodes[code].set == nullptr) return -1;
    return kCodes[code].set(severity, value);
}

}  // extern "C"
