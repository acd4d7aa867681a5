// The way from one place to another.
#include <sys/stat.h>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "paths/cleanpath.hpp"

namespace {

using morva::paths::Cleaned;
using morva::paths::Path;

bool make_absolute(const char* path, Path* result) {
    const Cleaned cleaned = morva::paths::make_absolute(morva::paths::view(path), true, result);
    if (cleaned == Cleaned::kDone) return true;
    morva::paths::register_failure(cleaned, path != nullptr ? path : "", *result);
    return false;
}

bool is_directory(const char* path) {
    struct stat status;
    return morva::retry([&] { return ::stat(path, &status); }) == 0 && S_ISDIR(status.st_mode);
}

// A cleaned absolute path as components with a slash before each: the root is none.
std::string_view components(std::string_view path) {
    return path == "/" ? std::string_view() : path;
}

// The length of what both begin with, in whole components.
std::size_t common_length(std::string_view a, std::string_view b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    std::size_t boundary = 0;
    for (std::size_t i = 0;; ++i) {
        const bool ends_a = i == a.size() || a[i] == '/', ends_b = i == b.size() || b[i] == '/';
        if (ends_a && ends_b) boundary = i;
        if (i == shorter || a[i] != b[i]) return boundary;
    }
}

bool lead(std::string_view from, std::string_view to, Path* way) {
    const std::size_t common = common_length(from, to);
    for (const char c : from.substr(common))
        if (c == '/' && !way->append("../")) return false;
    to.remove_prefix(common);
    if (!to.empty()) return way->append(to.substr(1));
    if (way->empty()) return way->assign(".");
    way->cut(way->size() - 1);
    return true;
}

}  // namespace

extern "C" int relpath(const char* from, const char* to, char* result) {
    Path start, end, way;
    bool whole = make_absolute(from, &start) && make_absolute(to, &end);
    *result = '\0';
    if (!whole) return -1;
    const bool from_directory = is_directory(start.c_str());
    if (!from_directory) {
        elog_log(0, "%s is not a directory\n", start.c_str());
        start.cut(start.view().rfind('/'));
    }
    if (!lead(components(start.view()), components(end.view()), &way)) {
        morva::paths::register_failure(Cleaned::kTooLong, to, way);
        return -1;
    }
    way.copy_to(result);
    return from_directory ? 0 : -1;
}
