// Creating directories. No state, no locks.
#include <sys/stat.h>

#include <cstring>
#include <string_view>

#include "base/diagnostics.hpp"
#include "base/ports.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "paths/path.hpp"

namespace {

using morva::paths::kPathSize;

constexpr mode_t kMode = 0775;

int cannot_create(const char* dir, int error) {
    errno = error;
    elog_log(1, "Can't open or create directory %s\n", dir);
    return -1;
}

// Whether the effective user may create files in an existing directory.
int check_writable(const char* dir) {
    if (morva::retry([&] { return ::faccessat(AT_FDCWD, dir, W_OK | X_OK, AT_EACCESS); }) == 0)
        return 0;
    elog_log(1, "can't write to directory %s\n", dir);
    return -1;
}

enum class Found { kDirectory, kMissing, kRefused };

// What stands at `dir`; a reason is registered for kRefused. Beneath a file, everything is missing:
// the search upwards will meet the file and name it.
Found look_at(const char* dir) {
    struct stat status;
    if (morva::retry([&] { return ::stat(dir, &status); }) == 0) {
        if (S_ISDIR(status.st_mode)) return Found::kDirectory;
        elog_log(0, "%s is not a directory\n", dir);
        return Found::kRefused;
    }
    if (errno == ENOENT || errno == ENOTDIR) return Found::kMissing;
    cannot_create(dir, errno);
    return Found::kRefused;
}

// Creates one level. Another thread or process may have been quicker: what counts is that a
// directory stands there.
int create_level(const char* dir) {
    if (morva::retry([&] { return ::mkdir(dir, kMode); }) == 0) return check_writable(dir);
    const int error = errno;
    if (error != EEXIST) return cannot_create(dir, error);
    switch (look_at(dir)) {
        case Found::kDirectory:
            return check_writable(dir);
        case Found::kMissing:  // a symbolic link that leads nowhere
            return cannot_create(dir, error);
        case Found::kRefused:
            break;
    }
    return -1;
}

// Creates `dir`, parents first. The text is cut at its last slash while the parents are made, and
// whole again on return. `length` characters count; each call has fewer, so the depth is bounded.
int make_levels(char* dir, std::size_t length) {
    switch (look_at(dir)) {
        case Found::kDirectory:
            return check_writable(dir);
        case Found::kRefused:
            return -1;
        case Found::kMissing:
            break;
    }
    const std::size_t cut = std::string_view(dir, length).rfind('/');
    if (cut != 0 && cut != std::string_view::npos) {
        dir[cut] = '\0';
        const int result = make_levels(dir, cut);
        dir[cut] = '/';
        if (result != 0) return result;
    }
    return create_level(dir);
}

int make_first(const char* path, std::size_t length) {
    if (length >= kPathSize) return cannot_create(path, ENAMETOOLONG);
    char dir[kPathSize];
    std::memcpy(dir, path, length);
    dir[length] = '\0';
    return make_levels(dir, length);
}

}  // namespace

extern "C" {

int makedir(const char* dir) {
    if (dir == nullptr) return cannot_create("", EINVAL);
    return make_first(dir, std::strlen(dir));
}

int make_pathdirs(const char* path) {
    if (path == nullptr) return cannot_create("", EINVAL);
    const char* slash = std::strrchr(path, '/');
    if (slash == nullptr || slash == path) return 0;
    return make_first(path, static_cast<std::size_t>(slash - path));
}

}  // extern "C"

int morva::port::make_pathdirs(const char* path) {
    return ::make_pathdirs(path);
}
