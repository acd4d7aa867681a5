// What happens when a getter does not find what the program needs.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "morva/strings.h"
#include "pf/pf.hpp"

namespace {

// By type; the types behind the last are reported as the last.
constexpr const char* kTypeNames[] = {
    "scalar", "scalar", "table", "array", "undefined", "invalid", "pf-function",
};
constexpr int kLastName = 6;

const char* type_name(int type) {
    return type < 0 ? "invalid" : kTypeNames[std::min(type, kLastName)];
}

}  // namespace

extern "C" void _pfdie(Pf* pf, char* key, int expected, int found, void*) {
    const char* filename = pf == nullptr ? "" : morva::pf::filename_of(pf);
    switch (pf == nullptr ? PFFILE : pf->type) {
        case PFFILE:
        case PFSTRING:
        case PFARR:
        case PFFUNCTION:
            if (found == PFINVALID)
                elog_die(0, "program needs value for '%s', not found in parameter file '%s'",
                         okstr(key), filename);
            elog_die(0, "wrong parameter type for '%s' : expected %s but got %s in '%s'",
                     okstr(key), type_name(expected), type_name(found), filename);
        case PFTBL:
            if (found == PFINVALID)
                elog_die(0, "wrong parameter type for #%ld : expected %s but got %s in '%s'",
                         morva::pf::index_in(key), type_name(expected), "invalid", filename);
            return;
        default:
            return;
    }
}
