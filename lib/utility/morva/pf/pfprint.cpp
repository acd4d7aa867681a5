// pfprint: a value for people and shell scripts.
#include <cstdio>

#include "base/diagnostics.hpp"
#include "morva/pfread.h"

namespace {

int print_string(Pf* pf, const char* key, const char* filename) {
    const char* text = pfget_string(pf, key);
    if (text == nullptr) {
        elog_complain(0, "no entry '%s' in parameter file %s", key, filename);
        return -1;
    }
    std::printf("%s\n", text);
    return 0;
}

}  // namespace

extern "C" int pfprint(const char* filename, const char* key) {
    Pf* pf = nullptr;
    int result = -1;
    if (pfread(filename, &pf) < 0)
        elog_complain(0, "Can't read parameter file %s", filename);
    else
        result = print_string(pf, key, filename);
    pffree(pf);
    return result;
}
