// Paths without detours: home directories put in, "." and ".." worked off, links followed.
//
// The cleaner takes one component after the other from the rest of the path and puts it behind the
// result. A link replaces its component: its target comes before the rest.
#include "paths/cleanpath.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"

namespace morva::paths {
namespace {

constexpr int kMostLinks = 32;

// The reading of one symbolic link.
enum class Link { kNone, kRead, kTooLong, kUnreadable };

bool is_link(const char* path) {
    const ErrnoSaver keep;
    struct stat status;
    return retry([&] { return ::lstat(path, &status); }) == 0 && S_ISLNK(status.st_mode);
}

Link read_link(const char* path, Path* target) {
    char text[kPathSize];
    const ssize_t length = retry([&] { return ::readlink(path, text, sizeof text); });
    // Anything but a link, and names that lead nowhere, are components as they stand.
    if (length < 0) {
        const bool none = errno == EINVAL || errno == ENOENT || errno == ENOTDIR;
        return none || !is_link(path) ? Link::kNone : Link::kUnreadable;
    }
    const bool fits = target->assign({text, static_cast<std::size_t>(length)});
    return fits ? Link::kRead : Link::kTooLong;
}

class Cleaner {
  public:
    Cleaner(bool follow_links, Path* result) : follow_(follow_links), result_(*result) {}

    Cleaned run(std::string_view path) {
        result_.cut(0);
        const Cleaned begun = begin(path);
        return begun == Cleaned::kDone ? go_on() : begun;
    }

    // For a relative path, seen from a clean directory.
    Cleaned run_in(std::string_view directory, std::string_view path) {
        if (path.size() >= kPathSize) return Cleaned::kTooLong;
        restart(directory);
        if (!result_.assign(directory)) return Cleaned::kTooLong;
        rest_ = path;
        return go_on();
    }

  private:
    Cleaned go_on() {
        while (!rest_.empty()) {
            const Cleaned taken = take(next());
            if (taken != Cleaned::kDone) return taken;
        }
        return settle() ? Cleaned::kDone : Cleaned::kTooLong;
    }

    // Sets what is to be cleaned, with a home directory for the "~" that it may begin with.
    Cleaned begin(std::string_view path) {
        if (path.size() >= kPathSize) return Cleaned::kTooLong;
        if (!path.starts_with('~')) {
            restart(path);
            return Cleaned::kDone;
        }
        const std::string_view user = path.substr(1, std::min(path.find('/'), path.size()) - 1);
        const Cleaned found = append_home(user, &pending_);
        if (found != Cleaned::kDone) return found;
        if (!pending_.append(path.substr(1 + user.size()))) return Cleaned::kTooLong;
        restart(pending_.view());
        return Cleaned::kDone;
    }

    // Goes on with another text, at the root when it is absolute.
    void restart(std::string_view text) {
        rest_ = text;
        if (!text.starts_with('/')) return;
        result_.assign("/");
        floor_ = 1;
        absolute_ = true;
    }

    std::string_view next() {
        std::size_t end = 0;  // components are short: a call of memchr would cost more
        while (end < rest_.size() && rest_[end] != '/') ++end;
        const std::string_view component = rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        return component;
    }

    Cleaned take(std::string_view component) {
        if (component.empty()) return Cleaned::kDone;
        if (component[0] == '.') {
            if (component.size() == 1) return Cleaned::kDone;
            if (component == "..") return step_up() ? Cleaned::kDone : Cleaned::kTooLong;
        }
        const std::size_t before = result_.size();
        if (!result_.append_component(component)) return Cleaned::kTooLong;
        return follow_ ? follow(before) : Cleaned::kDone;
    }

    // The root is its own parent; above a relative path, ".." stays.
    bool step_up() {
        if (result_.size() <= floor_) return absolute_ || add_parent();
        const std::string_view so_far = result_.view();
        std::size_t end = so_far.size();
        while (end > floor_ && so_far[end - 1] != '/') --end;
        result_.cut(end > floor_ ? end - 1 : floor_);
        return true;
    }

    bool add_parent() {
        const bool added = result_.append_component("..");
        floor_ = result_.size();
        return added;
    }

    // A relative result is never empty, and never begins with a "~" that would be replaced.
    bool settle() {
        if (result_.empty()) return result_.assign(".");
        if (!result_.view().starts_with('~')) return true;
        const Path relative = result_;
        return result_.assign("./") && result_.append(relative.view());
    }

    // Replaces the last component of the result by its target when it is a link.
    Cleaned follow(std::size_t before) {
        Path target;
        switch (read_link(result_.c_str(), &target)) {
            case Link::kNone:
                return Cleaned::kDone;
            case Link::kTooLong:
                return Cleaned::kTooLong;
            case Link::kUnreadable:
                return Cleaned::kUnreadableLink;
            case Link::kRead:
                break;
        }
        if (++links_ > kMostLinks) return Cleaned::kTooManyLinks;
        result_.cut(before);
        if (!rest_.empty() && !(target.append("/") && target.append(rest_)))
            return Cleaned::kTooLong;
        pending_.assign(target.view());
        restart(pending_.view());
        return Cleaned::kDone;
    }

    const bool follow_;
    Path& result_;
    Path pending_;           // what a home directory or a link has put in
    std::string_view rest_;  // what is still to be cleaned
    std::size_t floor_ = 0;  // length of what ".." cannot remove: the root, or ".." themselves
    bool absolute_ = false;
    int links_ = 0;
};

}  // namespace

Cleaned clean(std::string_view path, bool follow_links, Path* result) {
    return Cleaner(follow_links, result).run(path);
}

Cleaned make_absolute(std::string_view path, bool follow_links, Path* result) {
    if (path.starts_with('/') || path.starts_with('~')) return clean(path, follow_links, result);
    char directory[kPathSize];
    if (::getcwd(directory, sizeof directory) == nullptr) return Cleaned::kNoDirectory;
    return Cleaner(follow_links, result).run_in(directory, path);
}

void register_failure(Cleaned failure, const char* path, const Path& result) {
    switch (failure) {
        case Cleaned::kTooLong:
            return elog_log(0, "path is longer than %zu characters: %s\n", kPathSize - 1, path);
        case Cleaned::kNoHome:
            return elog_log(0, "can't find the home directory for %s\n", path);
        case Cleaned::kTooManyLinks:
            return elog_log(0, "too many symbolic links (>%d) for %s", kMostLinks, path);
        case Cleaned::kUnreadableLink:
            return elog_log(1, "can't read link for %s", result.c_str());
        case Cleaned::kNoDirectory:
            return elog_log(1, "Can't discover current directory: getcwd(3) fails\n");
        case Cleaned::kDone:
            return;
    }
}

}  // namespace morva::paths

using morva::paths::clean;
using morva::paths::Cleaned;
using morva::paths::make_absolute;
using morva::paths::Path;
using morva::paths::register_failure;
using morva::paths::view;

namespace {

int hand_over(Cleaned cleaned, const char* path, const Path& found, char* result) {
    if (cleaned == Cleaned::kDone) {
        found.copy_to(result);
        return 0;
    }
    register_failure(cleaned, path, found);
    *result = '\0';
    return -1;
}

}  // namespace

extern "C" {

int cleanpath(const char* path, int follow_links, char* result) {
    Path found;
    return hand_over(clean(view(path), follow_links != 0, &found), path, found, result);
}

int abspath(const char* path, char* result) {
    Path found;
    const Cleaned cleaned = make_absolute(view(path), false, &found);
    Path copy;
    const bool copied = cleaned == Cleaned::kNoDirectory && copy.assign(view(path));
    if (hand_over(cleaned, path, found, result) == 0) return 0;
    if (copied) copy.copy_to(result);
    return -1;
}

int samepath(const char* a, const char* b) {
    char first[morva::paths::kPathSize], second[sizeof first];
    if (abspath(a, first) != 0 || abspath(b, second) != 0) return 0;
    return std::strcmp(first, second) == 0;
}

}  // extern "C"
