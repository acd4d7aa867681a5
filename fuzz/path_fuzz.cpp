// Path routines in a folder with a few directories and links. The first line of the input is one
// path, the rest another.
//
// Properties: a cleaned path has no detours left, and cleaning it again changes nothing; with links
// followed it is what realpath makes of it; the way from one place joined to it leads to the other.
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "morva.h"

namespace {

namespace fs = std::filesystem;

void check(bool holds) {
    if (!holds) std::abort();
}

const fs::path& folder() {
    static const fs::path made = [] {
        std::string name = (fs::temp_directory_path() / "path_fuzz-XXXXXX").string();
        check(::mkdtemp(name.data()) != nullptr);
        return fs::path(name);
    }();
    return made;
}

void remove_folder() {
    std::error_code ignored;
    fs::remove_all(folder(), ignored);
}

bool fill_folder() {
    fs::create_directories(folder() / "a/b/c");
    fs::create_directories(folder() / "aa/b");
    std::ofstream(folder() / "a/f") << "file";
    const char* const kLinks[][2] = {{"a/b", "l"},     {"../../l/..", "a/b/m"}, {"o", "o"},
                                     {"nowhere", "d"}, {"l/../aa/", "n"},       {"/", "r"}};
    for (const auto& [target, link] : kLinks) fs::create_symlink(target, folder() / link);
    fs::create_symlink(folder() / "n", folder() / "a/p");
    std::atexit(remove_folder);
    return true;
}

// Stands in the folder for the time of one input, since names of inputs may be relative.
class Inside {
  public:
    Inside() : before_(fs::current_path()) { fs::current_path(folder()); }
    ~Inside() { fs::current_path(before_); }

  private:
    fs::path before_;
};

std::optional<std::string> real(const std::string& path) {
    char result[PATH_MAX];
    if (::realpath(path.c_str(), result) == nullptr) return {};
    return result;
}

bool has_detours(std::string path, bool absolute) {
    if (absolute != path.starts_with('/')) return true;
    if (path == "." || path == "/") return false;
    if (path.ends_with('/') || path.find("//") != path.npos) return true;
    if (path.starts_with("./~")) path.erase(0, 2);
    if (!absolute) {  // may lead upwards first
        while (path.starts_with("../")) path.erase(0, 3);
        if (path == "..") return false;
    }
    path = "/" + path + "/";
    return path.find("/./") != path.npos || path.find("/../") != path.npos;
}

void check_cleaning(const std::string& path, bool follow_links) {
    char result[1024], again[1024];
    if (cleanpath(path.c_str(), follow_links, result) != 0) return check(*result == '\0');
    const bool absolute = path.starts_with('/') || path.starts_with('~');
    check(!has_detours(result, absolute || (follow_links && *result == '/')));
    check(cleanpath(result, follow_links, again) == 0 && std::string(result) == again);
    const auto expected = real(path);
    if (follow_links && expected && !path.starts_with('~')) check(real(result) == expected);
    if (follow_links && expected && !path.starts_with('~') && absolute) check(result == *expected);
}

void check_absolute(const std::string& path) {
    char result[1024];
    if (abspath(path.c_str(), result) != 0) return;
    check(!has_detours(result, true) && samepath(path.c_str(), result) == 1);
}

void check_way(const std::string& from, const std::string& to) {
    char result[1024];
    if (relpath(from.c_str(), to.c_str(), result) != 0) return;
    check(*result != '/' && !has_detours(result, false));
    const auto start = from.starts_with('~') ? std::nullopt : real(from.empty() ? "." : from);
    const auto end = to.starts_with('~') ? std::nullopt : real(to.empty() ? "." : to);
    if (start && end) check(real(*start + "/" + result) == end);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool filled = fill_folder();
    check(filled);
    const Inside inside;
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    const std::string first = text.substr(0, text.find('\n'));
    const std::string second = text.substr(std::min(first.size() + 1, text.size()));
    for (const bool follow_links : {false, true}) check_cleaning(first, follow_links);
    check_absolute(first);
    check_way(first, second);
    char dir[1024], base[1024], suffix[1024];
    if (dirbase(first.c_str(), dir, base) == 0) {
        const std::string joined = std::string(dir) + "/" + base;
        check(joined == first || joined == "./" + first || joined == "/" + first);
        check(parsepath(first.c_str(), dir, base, suffix) == 0);
    }
    elog_clear();
    return 0;
}
