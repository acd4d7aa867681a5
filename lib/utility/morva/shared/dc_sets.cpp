// Sets of controls: whose they are.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/epoch.h"
#include "shared/dynamic_controls.hpp"

namespace morva::dc {
namespace {

using ProgramName = char[DC_NAME_SIZE];

bool carries(const Dcset& set, const char* name) {
    return std::strncmp(set.program, name, DC_NAME_SIZE - 1) == 0;
}

// The name that a set of the program carries.
void name_of(const char* program, ProgramName& name) {
    if (program == nullptr || *program == '\0') {
        program = Program_Name;
        if (const char* slash = std::strrchr(program, '/')) program = slash + 1;
    }
    std::memset(name, 0, sizeof name);
    std::memcpy(name, program, ::strnlen(program, sizeof name - 1));
}

Dcset* find_set(const Config& dc, const char* name) {
    for (int i = 1; i < dc.count; ++i)
        if (carries(dc.first[i], name)) return &dc.first[i];
    return nullptr;
}

// The set of the name, a free one that becomes it, or the common set.
Dcset* claim_set(const Config& dc, const ProgramName& name) {
    if (*name == '\0') return dc.first;
    if (Dcset* set = find_set(dc, name)) return set;
    const Claim claim;
    if (Dcset* set = find_set(dc, name)) return set;
    Dcset* free = find_set(dc, "");
    if (free == nullptr) return dc.first;
    // With its first letter the set is taken: no part of a name is ever seen.
    std::memcpy(free->program + 1, name + 1, sizeof name - 1);
    shared(free->program[0]).store(name[0], std::memory_order_release);
    return free;
}

}  // namespace

Dcset* set_of(const Config& dc, const char* program) {
    ProgramName name;
    name_of(program, name);
    return claim_set(dc, name);
}

}  // namespace morva::dc

using namespace morva::dc;

int dcselect(const char* program) {
    Config& dc = config();
    dcopen(0);
    dc.selected.store(set_of(dc, program), std::memory_order_release);
    return 0;
}

Dcset* dcselected() {
    dcopen(0);
    return config().selected.load(std::memory_order_acquire);
}

int dcmaxcontrols() {
    dcopen(0);
    return config().count;
}

Tbl* dcprograms() {
    dcopen(0);
    const Config& dc = config();
    Tbl* programs = newtbl(dc.count);
    for (int i = 0; i < dc.count; ++i)
        if (dc.first[i].program[0] != '\0') pushtbl(programs, dc.first[i].program);
    return programs;
}

int dcexists(const char* program) {
    if (::access(kFile, F_OK) != 0) return 0;
    dcopen(0);
    if (program == nullptr || *program == '\0') return 1;
    const Config& dc = config();
    ProgramName name;
    name_of(program, name);
    return carries(dc.first[0], name) || find_set(dc, name) != nullptr;
}

int dcremove(const char* program) {
    dcopen(0);
    if (program == nullptr || *program == '\0') {
        if (::unlink(kFile) == 0) return 0;
        elog_log(1, "Can't remove dynamic controls file %s", kFile);
        return -1;
    }
    const Config& dc = config();
    const Claim claim;
    ProgramName name;
    name_of(program, name);
    int result = -1;
    for (Dcset* set = find_set(dc, name); set != nullptr; set = find_set(dc, name)) {
        reset(set);
        result = 0;
    }
    return result;
}

int dcdump(int) {
    dcopen(0);
    const Config& dc = config();
    if (dc.fd >= 0) {
        std::fprintf(stderr, "%d sets of controls in %s\n", dc.count, kFile);
    } else {
        std::fprintf(stderr, "%d sets of controls in memory\n", dc.count);
    }
    std::fprintf(stderr, "controls are mapped into memory at %p\n", static_cast<void*>(dc.first));
    for (int i = 0; i < dc.count; ++i) {
        Dcset* set = &dc.first[i];
        if (set->program[0] == '\0') continue;
        const morva::malloced<char> time(strydtime(set->timestamp));
        std::printf("\t%2d %12p %5d %-25s %s\n", i, static_cast<void*>(set), set->pid, set->program,
                    time.get());
    }
    return dc.count;
}
