// The process-wide settings of the family.
#include <string_view>

#include "base/diagnostics.hpp"
#include "morva/strings.h"
#include "pf/pf.hpp"

namespace morva::pf {

constinit std::atomic<bool> g_exec_allowed{true};

namespace {

struct Setting {
    std::string_view code;
    void (*set)(void* value);
};
constexpr Setting kSettings[] = {
    {"ask", [](void* value) { Pfprompt = reinterpret_cast<Pfprompter>(value); }},
    {"die", [](void* value) { pfdie = value ? reinterpret_cast<Pfdie>(value) : _pfdie; }},
    {"exec", [](void* value) { g_exec_allowed = value != nullptr; }},
};

}  // namespace
}  // namespace morva::pf

extern "C" {

constinit Pfdie pfdie = _pfdie;
constinit Pfprompter Pfprompt = nullptr;

int pfconfig(const char* code, void* value) {
    for (const morva::pf::Setting& setting : morva::pf::kSettings) {
        if (code == nullptr || setting.code != code) continue;
        setting.set(value);
        return 0;
    }
    elog_log(0, "pfconfig: unrecognized code '%s'", okstr(code));
    return -1;
}

}  // extern "C"
