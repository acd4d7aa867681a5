// Paths taken apart and put together, as texts: nothing is looked up.
#include <cstdarg>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/paths.h"
#include "paths/path.hpp"

namespace {

using morva::paths::kPathSize;
using morva::paths::view;

void hand_over(std::string_view part, char* buffer) {
    if (buffer == nullptr) return;
    std::memcpy(buffer, part.data(), part.size());
    buffer[part.size()] = '\0';
}

// A copy of the path, since the caller may want a part in the same buffer. False, with the reason
// registered, when it is too long.
bool take_copy(const char* path, char (&copy)[kPathSize]) {
    const std::string_view text = view(path);
    if (text.size() < sizeof copy) {
        hand_over(text, copy);
        return true;
    }
    elog_log(0, "path is longer than %zu characters: %s\n", kPathSize - 1, path);
    return false;
}

struct Halves {
    std::string_view dir = "", base = "";
};

Halves halves_of(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == path.npos) return {".", path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

// Where the suffix of a base name begins: at its last dot. A hidden file's name has none.
std::size_t suffix_of(std::string_view base) {
    const std::size_t dot = base.rfind('.');
    return dot == base.npos || dot == 0 ? base.size() : dot;
}

std::string_view without_trailing_slashes(std::string_view path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

std::string_view without_leading_slashes(std::string_view path) {
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

void join(morva::String* whole, std::string_view part) {
    if (part.empty()) return;
    if (whole->empty()) {
        whole->assign(part);
        return;
    }
    whole->resize(without_trailing_slashes(*whole).size());
    whole->append("/").append(without_leading_slashes(part));
}

}  // namespace

extern "C" {

int dirbase(const char* path, char* dir, char* base) {
    char copy[kPathSize];
    const bool fits = take_copy(path, copy);
    Halves halves = fits ? halves_of(copy) : Halves();
    if (fits && halves.dir.empty()) halves.dir = "/";
    hand_over(halves.dir, dir);
    hand_over(halves.base, base);
    return fits ? 0 : -1;
}

int parsepath(const char* path, char* dir, char* base, char* suffix) {
    char copy[kPathSize];
    const bool fits = take_copy(path, copy);
    Halves halves = fits ? halves_of(copy) : Halves();
    const std::size_t cut = suffix != nullptr ? suffix_of(halves.base) : halves.base.size();
    hand_over(halves.dir, dir);
    hand_over(halves.base.substr(0, cut), base);
    hand_over(halves.base.substr(std::min(cut + 1, halves.base.size())), suffix);
    return fits ? 0 : -1;
}

char* concatpaths(const char* first, ...) {
    morva::String whole;
    va_list paths;
    va_start(paths, first);
    for (const char* path = first; path != nullptr; path = va_arg(paths, const char*))
        join(&whole, path);
    va_end(paths);
    return morva::must_strdup(whole.c_str(), "path", MORVA_HERE);
}

}  // extern "C"
