// The settings of the register: built-in defaults, then the parameter file, then the environment.
#include <cstdlib>
#include <cstring>

#include "base/memory.hpp"
#include "base/ports.hpp"
#include "log/elog.hpp"

constinit int Max_msg = 50;

namespace morva::log {
namespace {

struct Defaults {
    const char* delivery;
    const char* tag;
    const char* debug;
};
constexpr Defaults kDefaults[ELOG_NSEVERITY] = {
    {"", "%P", ""},
    {"stderr", "%P *debug*", ""},
    {"stderr", "%P", ""},
    {"stderr", "%P *alert*", ""},
    {"stderr", "%P", ""},
    {"stderr", "%P *fatal*", "gdb %r %p"},
    {"stderr", "%P *fault*", "gdb %r %p"},
};

// One of the three settings that each severity has.
struct Kind {
    const char* variable;
    Setting Severity::*field;
    const char* Defaults::*builtin;
};
constexpr Kind kDeliver = {"ELOG_DELIVER", &Severity::delivery, &Defaults::delivery};
constexpr Kind kTag = {"ELOG_TAG", &Severity::tag, &Defaults::tag};
constexpr Kind kDebug = {"ELOG_DEBUG", &Severity::debug, &Defaults::debug};

void set(const Kind& kind, int severity, std::string_view value) {
    copy_setting(state().severities[severity].*kind.field, value);
}

void set_builtin(const Kind& kind, int severity) {
    set(kind, severity, kDefaults[severity].*kind.builtin);
}

void fill_empty(const Kind& kind) {
    for (int i = 0; i < ELOG_NSEVERITY; ++i)
        if (*(state().severities[i].*kind.field) == '\0') set_builtin(kind, i);
}

// The severity that a letter after "@" names, or -1.
int severity_of(char letter) {
    constexpr std::string_view kLetters = "lDnacdf";
    const std::size_t at = kLetters.find(letter);
    return at == kLetters.npos ? -1 : static_cast<int>(at);
}

// A value being read: what goes beyond a setting's length is not kept.
struct Value {
    char text[kSettingLength];
    std::size_t length = 0;
    void put(char c) {
        if (length < sizeof text) text[length++] = c;
    }
    std::string_view view() const { return {text, length}; }
};

// Reads a value up to "@" or the end of the text and returns the place after it. A backslash makes
// the next character an ordinary one.
const char* read_value(const char* p, Value& value) {
    value.length = 0;
    for (; *p != '\0' && *p != '@'; ++p) {
        if (*p == '\\' && p[1] != '\0') ++p;
        value.put(*p);
    }
    return p;
}

// Gives the value to the severities that the letters name, up to the separator of the next group.
// Returns the place after it, or null after the end of the text. `bad` receives the place of a
// letter that names no severity, which ends the reading.
const char* read_letters(const char* p, const Kind& kind, const Value& value, const char** bad) {
    for (; *p != '\0'; ++p) {
        if (*p == ' ' || *p == '@') return p + 1;
        const int severity = severity_of(*p);
        if (severity < 0) {
            *bad = p;
            return nullptr;
        }
        value.length > 0 ? set(kind, severity, value.view()) : set_builtin(kind, severity);
    }
    return nullptr;
}

// Returns the place where the text stops to make sense, or null.
const char* read_groups(const char* p, const Kind& kind) {
    Value value;
    const char* bad = nullptr;
    while (p != nullptr && *p != '\0') {
        p = read_value(p, value);
        if (*p == '@') {
            p = read_letters(p + 1, kind, value, &bad);
        } else {
            for (int i = 0; i < ELOG_NSEVERITY; ++i) set(kind, i, value.view());
        }
    }
    return bad;
}

// The letters of ELOG_STACK are not quite those of the groups: "a" means fault here, and has since
// programs began to rely on it.
void read_stack_letters(const char* letters) {
    constexpr struct {
        char letter;
        int severity;
    } kFlags[] = {{'l', ELOG_LOG}, {'D', ELOG_DEBUGGING}, {'n', ELOG_NOTIFY}, {'c', ELOG_COMPLAIN},
                  {'d', ELOG_DIE}, {'a', ELOG_FAULT},     {'f', ELOG_FAULT}};
    for (; *letters != '\0'; ++letters)
        for (const auto& flag : kFlags)
            if (flag.letter == *letters) state().severities[flag.severity].show_stack = true;
}

void take_long(LongSetting& to, const char* value) {
    std::snprintf(to, sizeof to, "%s", value);
}

void take_entry(const Kind& kind, const char* entry, const char* value) {
    for (int i = 0; i < ELOG_NSEVERITY; ++i) {
        if (value == nullptr)
            set_builtin(kind, i);
        else if (std::strcmp(entry, elog_severity(i)) == 0)
            set(kind, i, value);
    }
}

void take_text(const char* key, const char* value) {
    State& now = state();
    if (std::strcmp(key, "ELOG_MAXMSG") == 0) Max_msg = std::atoi(value);
    if (std::strcmp(key, "ELOG_WAIT") == 0) take_long(now.wait, value);
    if (std::strcmp(key, "ELOG_SIGNALS") == 0) take_long(now.signals, value);
    if (std::strcmp(key, "t_format") == 0) take_long(now.t_format, value);
    if (std::strcmp(key, "u_format") == 0) take_long(now.u_format, value);
}

Complaints read_environment() {
    Complaints complaints;
    const auto get = state().environment;
    if (const char* limit = get("ELOG_MAXMSG")) Max_msg = std::atoi(limit);
    if (const char* letters = get("ELOG_STACK")) read_stack_letters(letters);
    if (const char* names = get("ELOG_SIGNALS")) take_long(state().signals, names);
    intercept_signals(state().signals, false);
    for (const Kind* kind : {&kDeliver, &kTag, &kDebug})
        if (const char* groups = get(kind->variable))
            if (const char* bad = read_groups(groups, *kind)) complaints.add(bad);
    return complaints;
}

}  // namespace

void copy_setting(Setting& to, std::string_view text) {
    const std::size_t n = std::min(text.size(), kSettingLength);
    std::memmove(to, text.data(), n);
    to[n] = '\0';
}

void take_setting(void*, const char* key, const char* entry, const char* value) {
    if (entry == nullptr) return take_text(key, value);
    for (const Kind* kind : {&kDeliver, &kTag, &kDebug})
        if (std::strcmp(key, kind->variable) == 0) take_entry(*kind, entry, value);
}

Complaints load_configuration(bool first_time) {
    fill_empty(kDeliver);
    fill_empty(kTag);
    if (first_time && !memory_has_run_out()) port::read_register_settings(take_setting, nullptr);
    return read_environment();
}

}  // namespace morva::log
