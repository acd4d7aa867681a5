// The walk along a search path, for routines that look for files often: nothing is allocated, and
// in the usual case every element costs one system call, the one that its visitor makes.
//
//     visit_readable(path, "", "site.pf", [&](const Path& candidate) {
//         struct stat status;
//         if (::stat(candidate.c_str(), &status) != 0) return errno;
//         ...
//         return 0;
//     });
//
// The environment is not looked at: SearchPath expands references to it.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <string_view>

#include "base/memory.hpp"
#include "base/posix.hpp"
#include "paths/path.hpp"

namespace morva::paths {

// What a visitor returns besides 0 and errors.
inline constexpr int kStop = -1;

// Whether the process may read a file, with errno.
inline bool is_readable(const Path& path) {
    return retry([&] { return ::access(path.c_str(), R_OK); }) == 0;
}

// The directory (or file) that an element of a search path names: with its "~" replaced and the
// subdirectory behind it. False when that gives no path that fits.
bool place_of_element(std::string_view element, std::string_view subdir, Path* place);

// A search path with or without its references to the environment expanded. When `path` is empty:
// the value of DATAPATH, or the root's folder "data". What is neither expanded nor made up belongs
// to the caller or the environment.
class SearchPath {
  public:
    SearchPath(const char* path, bool expand);
    std::string_view view() const { return text_; }

  private:
    malloced<char> made_;
    std::string_view text_;
};

// Calls `visit(place)` with every element of `path` until it returns kStop.
template <class Visit>
void visit_places(std::string_view path, std::string_view subdir, Visit visit) {
    while (!path.empty()) {
        const std::size_t colon = path.find(':');
        const std::string_view element = path.substr(0, colon);
        path.remove_prefix(colon != path.npos ? colon + 1 : path.size());
        Path place;
        if (element.empty() || !place_of_element(element, subdir, &place)) continue;
        if (visit(place) == kStop) return;
    }
}

// The candidate "place/name". False when it does not fit.
inline bool candidate_in(const Path& place, std::string_view name, Path* candidate) {
    return candidate->assign(place.view()) && candidate->append("/") && candidate->append(name);
}

// What follows the last slash of a name that has one.
struct BaseName {
    explicit BaseName(std::string_view name)
        : given(name.find('/') != name.npos), text(name.substr(name.rfind('/') + 1)) {}
    bool given;
    std::string_view text;
};

// Calls `visit(candidate)` with every candidate for `name`, in search order. The visitor tries the
// file: 0 when it can be used, else errno, which tells places that are files themselves from
// directories without the file; or kStop to end the walk. What it does not find it is not asked
// about again.
template <class Visit>
void visit_readable(std::string_view path, std::string_view subdir, std::string_view name,
                    Visit visit) {
    const BaseName base(name);
    visit_places(path, subdir, [&](const Path& place) {
        Path candidate;
        int result = candidate_in(place, name, &candidate) ? visit(candidate) : ENAMETOOLONG;
        if (result == kStop) return kStop;
        if (result != 0 && result != ENOENT) {
            struct stat status;
            if (retry([&] { return ::stat(place.c_str(), &status); }) != 0) return 0;
            if (!S_ISDIR(status.st_mode)) return place.is_absolute() ? visit(place) : 0;
        }
        if (!base.given || !candidate_in(place, base.text, &candidate)) return 0;
        return visit(candidate);
    });
}

}  // namespace morva::paths
