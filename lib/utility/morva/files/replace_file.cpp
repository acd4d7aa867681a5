#include "files/replace_file.hpp"

#include <limits.h>
#include <sys/random.h>

#include <cstdint>

#include "base/diagnostics.hpp"

namespace morva {
namespace {

constexpr int kMostLinks = 40;

// Replaces a path that names a link by what the link leads to, which need not exist.
int follow_links(String& path) {
    char target[PATH_MAX];
    for (int links = 0; links <= kMostLinks; ++links) {
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return errno == EINVAL || errno == ENOENT ? 0 : -1;
        const std::size_t name = target[0] == '/' ? 0 : path.rfind('/') + 1;
        path.replace(name, String::npos, target, static_cast<std::size_t>(length));
    }
    errno = ELOOP;
    return -1;
}

// The folder part of a path, in a form that can be opened.
String folder_of(const String& path) {
    const std::size_t slash = path.rfind('/');
    return slash == String::npos ? String(".") : path.substr(0, slash + 1);
}

// A hidden name that begins like `name`, with a random end.
int random_name(const String& name, String& result) {
    static constexpr char kLetters[] = "0123456789abcdefghijklmnopqrstuv";
    constexpr std::size_t kKept = 200;  // of the most 255 bytes of a name
    std::uint8_t random[16];
    if (::getentropy(random, sizeof random) != 0) return -1;
    result.assign(1, '.');
    result.append(name, 0, kKept).append(1, '.');
    for (const std::uint8_t byte : random) result.push_back(kLetters[byte % 32]);
    return 0;
}

// Not being allowed to give a file away is no failure.
int change_owner(int fd, uid_t owner, gid_t group, bool* changed) {
    *changed = retry([&] { return ::fchown(fd, owner, group); }) == 0;
    return *changed || errno == EPERM || errno == EINVAL ? 0 : -1;
}

// Gives the new file what the old one had. Whoever comes into a right by a different owner or group
// does not get it.
int take_over(int fd, const struct stat& old) {
    struct stat now;
    if (::fstat(fd, &now) != 0) return -1;
    bool group_kept = now.st_gid == old.st_gid;
    bool owner_kept = now.st_uid == old.st_uid;
    if (!owner_kept) {
        if (change_owner(fd, old.st_uid, old.st_gid, &owner_kept) != 0) return -1;
        group_kept |= owner_kept;
    }
    if (!group_kept && change_owner(fd, static_cast<uid_t>(-1), old.st_gid, &group_kept) != 0)
        return -1;
    mode_t mode = old.st_mode & 07777;
    if (!owner_kept) mode &= ~static_cast<mode_t>(S_ISUID);
    if (!group_kept) mode &= ~static_cast<mode_t>(S_ISGID | S_IRWXG) | (mode & S_IRWXO) << 3;
    return retry([&] { return ::fchmod(fd, mode); });
}

}  // namespace

Replacement::~Replacement() {
    if (temporary_name_.empty()) return;
    const ErrnoSaver keep;
    ::unlinkat(folder_.get(), temporary_name_.c_str(), 0);
}

// What is to be replaced: nothing, or a regular file that this process may write.
int Replacement::examine_old(struct stat* old, bool* exists) const {
    *exists = ::fstatat(folder_.get(), name_.c_str(), old, AT_SYMLINK_NOFOLLOW) == 0;
    if (!*exists) return errno == ENOENT ? 0 : -1;
    errno = S_ISDIR(old->st_mode) ? EISDIR : EINVAL;
    if (!S_ISREG(old->st_mode)) return -1;
    return ::faccessat(folder_.get(), name_.c_str(), W_OK, AT_EACCESS);
}

int Replacement::make_new(mode_t mode) {
    constexpr int kTries = 100;
    for (int i = 0; i < kTries; ++i) {
        String name;
        if (random_name(name_, name) != 0) return -1;
        file_ = Descriptor(retry([&] {
            return ::openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC,
                            mode);
        }));
        if (file_) temporary_name_ = std::move(name);
        if (file_ || errno != EEXIST) break;
    }
    return file_ ? 0 : -1;
}

int Replacement::open(const char* path) {
    errno = ENOENT;
    if (path == nullptr || *path == '\0') return -1;
    String target(path);
    if (follow_links(target) != 0) return -1;
    const String folder = folder_of(target);
    name_ = target.substr(target.rfind('/') + 1);
    errno = EISDIR;
    if (name_.empty()) return -1;
    folder_ = Descriptor(
        retry([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct stat old;
    bool exists;
    if (!folder_ || examine_old(&old, &exists) != 0) return -1;
    // A file that is new gets what the umask leaves; otherwise nobody else looks in meanwhile.
    if (make_new(exists ? 0600 : 0666) != 0) return -1;
    return exists ? take_over(file_.get(), old) : 0;
}

int Replacement::commit() {
    if (retry([&] { return ::fsync(file_.get()); }) != 0) return -1;
    if (retry([&] {
            return ::renameat(folder_.get(), temporary_name_.c_str(), folder_.get(), name_.c_str());
        }) != 0)
        return -1;
    temporary_name_.clear();
    in_place_ = true;
    const int synced = retry([&] { return ::fsync(folder_.get()); });
    return synced == 0 || errno == EINVAL ? 0 : -1;  // EINVAL: folders here need no sync
}

int replace_file(const char* path, std::string_view bytes) {
    Replacement file;
    if (file.open(path) == 0 && write_all(file.descriptor(), bytes.data(), bytes.size()) == 0 &&
        file.commit() == 0)
        return 0;
    const char* shown = path != nullptr ? path : "";
    if (file.in_place())
        elog_log(1, "Can't sync the folder of '%s' after replacing the file\n", shown);
    else
        elog_log(1, "Can't replace file '%s'\n", shown);
    return -1;
}

}  // namespace morva
