// The search path of parameter files, and pffiles. No state, no locks.
#include <skerrows.h>
#include <unistd.h>

#include <cstring>

#include "base/posix.hpp"
#include "containers/tbl.hpp"
#include "morva/paths.h"
#include "morva/pfread.h"
#include "pf/pfsearch.hpp"

namespace morva::pf {
namespace {

constexpr char kVariable[] = "PFPATH";
constexpr char kEnding[] = ".pf";

// What follows the root in the path that is used when none is set.
std::string_view below_root() {
    return std_is_secure() ? "/data/pf" : "/data/pf:.";
}

// Appends ".pf" to a text that does not end in it. The buffer has room.
void complete(char* text) {
    const std::string_view view(text);
    if (!view.ends_with(kEnding)) std::strcpy(text + view.size(), kEnding);
}

bool is_bare(const char* name, const char* folder) {
    const bool begins_with_place = name[0] == '/' || (name[0] == '.' && name[1] == '/');
    return !begins_with_place && std::strcmp(folder, ".") == 0;
}

bool lists(const Tbl* files, const char* text) {
    for (const char* file : tbl_pointers<char>(files))
        if (std::strcmp(file, text) == 0) return true;
    return false;
}

bool is_readable(const char* file) {
    return retry([&] { return ::access(file, R_OK); }) == 0;
}

}  // namespace

Name::Name(const char* name) {
    folder_[0] = base_[0] = file_[0] = '\0';
    if (name == nullptr || std::strlen(name) >= paths::kPathSize) return;
    ::dirbase(name, folder_, base_);
    complete(base_);
    if (is_bare(name, folder_)) return;
    std::strcpy(file_, name);
    complete(file_);
    if (std::strlen(file_) >= paths::kPathSize) file_[0] = '\0';
}

String search_path() {
    if (const char* path = std_getenv(kVariable)) return path;
    return String(getkorvalin()).append(below_root());
}

bool is_search_path(std::string_view path) {
    if (const char* now = std_getenv(kVariable)) return path == now;
    const std::string_view root = getkorvalin();
    return path.starts_with(root) && path.substr(root.size()) == below_root();
}

}  // namespace morva::pf

extern "C" Tbl* pffiles(const char* name, int all) {
    using namespace morva::pf;
    const morva::ErrnoSaver keep;
    const Name parts(name);
    if (*parts.base() == '\0') return newtbl(0);
    Tbl* files = datasearch(search_path().c_str(), nullptr, parts.base(), all != 0 ? 3 : 1);
    // A folder among the files can only be an element of the path that is a file and is spelled as
    // the name's folder: the name has nothing to add to it then.
    if (*parts.file() == '\0' || lists(files, parts.folder())) return files;
    if (all != 0 || is_readable(parts.file()))
        pushtbl(files, morva::must_strdup(parts.file(), "file", MORVA_HERE));
    return files;
}
