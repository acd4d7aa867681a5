// Whether a file lies on a network file system, where locks are not to be relied on.
#if defined(__linux__)
#include <linux/magic.h>
#include <sys/vfs.h>
#else
#include <sys/mount.h>
#include <sys/param.h>
#endif

#include <cstring>

#include "base/posix.hpp"
#include "skerrows.h"

namespace {

// 1 or 0, or -1 when the system does not tell.
int on_nfs(const char* path) {
    struct statfs status;
    if (morva::retry([&] { return ::statfs(path, &status); }) != 0) return -1;
#if defined(__linux__)
    return status.f_type == NFS_SUPER_MAGIC;
#else
    return std::strcmp(status.f_fstypename, "nfs") == 0;
#endif
}

// The folder that a file would be created in.
int folder_on_nfs(const char* path) {
    const char* slash = std::strrchr(path, '/');
    if (slash == nullptr) return on_nfs(".");
    if (slash == path) return on_nfs("/");
    char folder[1024];
    const auto length = static_cast<std::size_t>(slash - path);
    if (length >= sizeof folder) return -1;
    std::memcpy(folder, path, length);
    folder[length] = '\0';
    return on_nfs(folder);
}

}  // namespace

extern "C" int is_nfs(const char* path) {
    if (path == nullptr || *path == '\0') return 0;
    const morva::ErrnoSaver keep;
    int result = on_nfs(path);
    if (result == -1 && errno == ENOENT) result = folder_on_nfs(path);
    return result == 1;
}
