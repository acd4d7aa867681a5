// Names of the zone database.
//
// The name comes from outside (a time string, a parameter file) and becomes part of a path: only
// what can be a zone's name gets that far, and only a file that begins as zone files do counts.
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/posix.hpp"
#include "skerrows.h"

namespace {

using std::string_view;

constexpr std::size_t kLongestName = 255;
constexpr std::array kFolders{"/usr/share/zoneinfo", "/usr/lib/zoneinfo", "/usr/share/lib/zoneinfo",
                              "/etc/zoneinfo", "/var/db/timezone/zoneinfo"};
constexpr string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr string_view kOthers = "0123456789_+-/";

// Letters first; no dots at all, so that no name leads out of the folder; no empty component.
bool can_be_a_name(string_view name) {
    if (name.empty() || name.size() > kLongestName) return false;
    if (kLetters.find(name.front()) == string_view::npos || name.back() == '/') return false;
    for (const char c : name)
        if (kLetters.find(c) == string_view::npos && kOthers.find(c) == string_view::npos)
            return false;
    return name.find("//") == string_view::npos;
}

using morva::Descriptor;

Descriptor open_zone_file(const char* path) {
    // Not blocking, in case somebody put a pipe there.
    Descriptor fd(
        morva::retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    struct stat status;
    if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return Descriptor();
    char magic[4];
    const bool begins_well =
        morva::retry([&] { return ::pread(fd.get(), magic, sizeof magic, 0); }) == sizeof magic &&
        std::memcmp(magic, "TZif", sizeof magic) == 0;
    return begins_well ? std::move(fd) : Descriptor();
}

Descriptor open_in(const char* folder, const char* name) {
    char path[1024];
    const int length = std::snprintf(path, sizeof path, "%s/%s", folder, name);
    if (length <= 0 || length >= static_cast<int>(sizeof path)) return Descriptor();
    return open_zone_file(path);
}

bool can_be_a_name(const char* name) {
    return name != nullptr && can_be_a_name(string_view(name, ::strnlen(name, kLongestName + 1)));
}

}  // namespace

extern "C" int open_timezone(const char* name) {
    const morva::ErrnoSaver keep;
    if (name != nullptr && *name == '/') return open_zone_file(name).release();
    if (!can_be_a_name(name)) return -1;
    const char* chosen = std_getenv("TZDIR");
    if (chosen != nullptr && *chosen != '\0') return open_in(chosen, name).release();
    for (const char* folder : kFolders)
        if (Descriptor fd = open_in(folder, name)) return fd.release();
    return -1;
}

extern "C" int is_timezone(const char* name) {
    if (!can_be_a_name(name)) return 0;
    if (std::strcmp(name, "UTC") == 0 || std::strcmp(name, "GMT") == 0) return 1;
    return Descriptor(open_timezone(name)) ? 1 : 0;
}
