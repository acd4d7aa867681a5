// The data search: files by name along a path.
#include "paths/datasearch.hpp"

#include <skerrows.h>

#include <algorithm>

#include "base/diagnostics.hpp"
#include "morva/paths.h"
#include "paths/cleanpath.hpp"

namespace morva::paths {
namespace {

constexpr int kExpand = 1, kUnreadableToo = 2;  // flags of datasearch

// As visit_readable, for candidates that need not be readable nor even exist in their place.
template <class Visit>
void visit_all(std::string_view path, std::string_view subdir, std::string_view name, Visit visit) {
    const BaseName base(name);
    visit_places(path, subdir, [&](const Path& place) {
        struct stat status;
        if (retry([&] { return ::stat(place.c_str(), &status); }) != 0) return 0;
        if (!S_ISDIR(status.st_mode)) return visit(place);
        Path candidate;
        if (candidate_in(place, name, &candidate) && visit(candidate) == kStop) return kStop;
        return base.given && candidate_in(place, base.text, &candidate) ? visit(candidate) : 0;
    });
}

char* copy_of(const Path& path) {
    return must_strdup(path.c_str(), "path", MORVA_HERE);
}

// The value of the variable that holds the caller's search path; null without one.
const char* path_from(const char* envname) {
    return envname != nullptr && *envname != '\0' ? std_getenv(envname) : nullptr;
}

// "name.suffix". False when it is too long for any directory.
bool make_name(const char* name, const char* suffix, Path* whole) {
    const std::string_view ending = view(suffix);
    if (!whole->assign(view(name))) return false;
    return ending.empty() || (whole->append(".") && whole->append(ending));
}

// Whether a file could be written under this name.
bool is_writable(const Path& path) {
    if (retry([&] { return ::access(path.c_str(), W_OK); }) == 0) {
        struct stat status;
        return ::stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
    }
    if (errno != ENOENT) return false;
    Path folder = path;
    folder.cut(std::max<std::size_t>(path.view().rfind('/'), 1));
    return retry([&] { return ::access(folder.c_str(), W_OK | X_OK); }) == 0;
}

}  // namespace

bool place_of_element(std::string_view element, std::string_view subdir, Path* place) {
    if (element.front() == '~') {
        if (clean(element, true, place) != Cleaned::kDone) return false;
    } else if (!place->assign(element)) {
        return false;
    }
    return subdir.empty() || place->append_below(subdir);
}

SearchPath::SearchPath(const char* path, bool expand) {
    if (path == nullptr || *path == '\0') path = std_getenv("DATAPATH");
    String standard;
    if (path == nullptr) path = standard.append(getkorvalin()).append("/data").c_str();
    text_ = path;
    if (expand && text_.find('$') != text_.npos)
        made_.reset(expand_env(path));
    else if (!standard.empty())
        made_.reset(must_strdup(path, "path", MORVA_HERE));
    if (made_ != nullptr) text_ = made_.get();
}

}  // namespace morva::paths

using namespace morva::paths;

extern "C" {

Tbl* datasearch(const char* path, const char* subdir, const char* name, int flags) {
    const morva::ErrnoSaver keep;
    Tbl* found = newtbl(0);
    const SearchPath search(path, (flags & kExpand) != 0);
    if (flags & kUnreadableToo) {
        visit_all(search.view(), view(subdir), view(name), [&](const Path& candidate) {
            pushtbl(found, copy_of(candidate));
            return 0;
        });
    } else {
        visit_readable(search.view(), view(subdir), view(name), [&](const Path& candidate) {
            if (!is_readable(candidate)) return errno;
            pushtbl(found, copy_of(candidate));
            return 0;
        });
    }
    return found;
}

char* datapath(const char* envname, const char* subdir, const char* name, const char* suffix) {
    const morva::ErrnoSaver keep;
    Path whole;
    if (!make_name(name, suffix, &whole)) return nullptr;
    const SearchPath search(path_from(envname), true);
    char* found = nullptr;
    visit_readable(search.view(), view(subdir), whole.view(), [&](const Path& candidate) {
        if (!is_readable(candidate)) return errno;
        found = copy_of(candidate);
        return kStop;
    });
    return found;
}

char* datafile(const char* envname, const char* name) {
    return datapath(envname, nullptr, name, nullptr);
}

char* newdata(const char* envname, const char* subdir, const char* name, const char* suffix) {
    Path whole;
    char* found = nullptr;
    if (name != nullptr && *name != '\0' && make_name(name, suffix, &whole)) {
        const SearchPath search(path_from(envname), true);
        visit_all(search.view(), view(subdir), whole.view(), [&](const Path& candidate) {
            if (!is_writable(candidate)) return 0;
            found = copy_of(candidate);
            return kStop;
        });
    }
    if (found == nullptr) elog_log(0, "no directory in which %s can be written\n", whole.c_str());
    return found;
}

}  // extern "C"
