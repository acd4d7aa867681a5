// The register's settings from the parameter file `elog`.
//
// They are read for the first message of the process, or before the first lock that such a reading
// may want (see log_ready), by one thread, which holds the register: what it logs meanwhile is
// taken with the settings as they are so far, and other threads' messages wait. What is wrong with
// the file is registered, and the rest of it counts.
#include "base/diagnostics.hpp"
#include "base/ports.hpp"
#include "containers/tbl.hpp"
#include "morva/arr.h"
#include "morva/pfread.h"
#include "pf/pf.hpp"

namespace morva {
namespace {

using port::TakeSetting;

struct Key {
    const char* name;
    int type;
};
constexpr Key kKeys[] = {
    {"ELOG_MAXMSG", PFSTRING}, {"ELOG_WAIT", PFSTRING}, {"ELOG_SIGNALS", PFSTRING},
    {"t_format", PFSTRING},    {"u_format", PFSTRING},  {"ELOG_DELIVER", PFARR},
    {"ELOG_TAG", PFARR},       {"ELOG_DEBUG", PFARR},
};

struct Found {
    int type;
    void* value;  // the text of a string, the node of anything else
    explicit operator bool() const { return type != PFINVALID && value != nullptr; }
};

Found find(Pf* pf, const char* key) {
    Found found{};
    found.type = pfget(pf, const_cast<char*>(key), &found.value);
    return found;
}

void hand_over_text(const char* key, const char* entry, const Found& found, TakeSetting take,
                    void* taker) {
    if (found.type == PFSTRING)
        take(taker, key, entry, static_cast<const char*>(found.value));
    else
        elog_log(0, "%s%s%s in parameter file elog is no text\n", key, entry ? " " : "",
                 entry ? entry : "");
}

void hand_over_array(const char* key, const Found& found, TakeSetting take, void* taker) {
    if (found.type != PFARR) return elog_log(0, "%s in parameter file elog is no array\n", key);
    take(taker, key, "", nullptr);
    Pf* array = static_cast<Pf*>(found.value);
    Tbl* entries = pfkeys(array);
    for (const char* entry : tbl_pointers<char>(entries))
        if (const Found value = find(array, entry)) hand_over_text(key, entry, value, take, taker);
    freetbl(entries, nullptr);
}

}  // namespace

bool port::read_register_settings(TakeSetting take, void* taker) {
    Pf* pf = nullptr;
    pfread("elog", &pf);
    const bool exists = cntarr(pf->value.arr) > 0;
    for (const Key& key : kKeys) {
        const Found found = find(pf, key.name);
        if (!found) continue;
        if (key.type == PFARR)
            hand_over_array(key.name, found, take, taker);
        else
            hand_over_text(key.name, nullptr, found, take, taker);
    }
    pffree(pf);
    return exists;
}

}  // namespace morva
