// Switching the zone of the whole process, for callers that use the C library's local time.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "time/zones.hpp"

namespace morva::time {
namespace {

constexpr std::size_t kLongestName = 61;
constexpr char kEntry[] = "TZ=";

// All guarded by zone_lock.
int ChangedTZ = 0;      // a switch is in force
char* OldTZ = nullptr;  // the entry before the first switch, the environment's
char* NewTZ = nullptr;  // the entry that is installed now, ours

char* new_entry(const char* name) {
    const std::size_t length = ::strnlen(name, kLongestName);
    char* entry = static_cast<char*>(must_calloc(sizeof kEntry + length, 1, "new", MORVA_HERE));
    std::memcpy(entry, kEntry, sizeof kEntry - 1);
    std::memcpy(entry + sizeof kEntry - 1, name, length);
    return entry;
}

void load_zone() {
    errno = 0;
    ::tzset();
}

// False when the environment cannot take the entry.
bool install(const char* name) {
    const std::lock_guard held(zone_lock());
    if (ChangedTZ == 0) {
        OldTZ = mygetTZ();
        ChangedTZ = 1;
    }
    malloced<char> replaced;
    if (*name == '\0') {
        ::unsetenv("TZ");
    } else {
        malloced<char> entry(new_entry(name));
        if (::putenv(entry.get()) != 0) return false;
        replaced.reset(NewTZ);
        NewTZ = entry.release();
    }
    load_zone();
    const ErrnoSaver keep;
    replaced.reset();
    return true;
}

}  // namespace

std::recursive_mutex& zone_lock() {
    static std::recursive_mutex EP_lock;
    return EP_lock;
}

}  // namespace morva::time

using namespace morva::time;

extern "C" {

char* mygetTZ(void) {
    const std::lock_guard held(zone_lock());
    char* value = std::getenv("TZ");
    return value != nullptr && *value != '\0' ? value - (sizeof kEntry - 1) : nullptr;
}

void switchTZ(const char* name) {
    if (install(name != nullptr ? name : "")) return;
    elog_die(1, "*stack*Unexpected failure: %s in file %s, line %d\n", "switchTZ", "str2epoch",
             __LINE__);
}

void restoreTZ(void) {
    const std::lock_guard held(zone_lock());
    if (ChangedTZ == 0) return;
    OldTZ != nullptr ? static_cast<void>(::putenv(OldTZ)) : static_cast<void>(::unsetenv("TZ"));
    OldTZ = nullptr;
    load_zone();
    const morva::ErrnoSaver keep;
    std::free(NewTZ);
    NewTZ = nullptr;
    ChangedTZ = 0;
}

}  // extern "C"
