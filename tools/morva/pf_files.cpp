// morva pf files: what the search path yields.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

// Why a file is not read; "" when it is.
std::string reason_to_skip(const std::string& file) {
    struct stat status;
    if (restat(file.c_str(), &status) != 0)
        return errno == ENOENT ? "missing" : "unreachable: " + std::string(std::strerror(errno));
    if (!S_ISREG(status.st_mode)) return "not a regular file";
    if (::access(file.c_str(), R_OK) != 0)
        return "unreadable: " + std::string(std::strerror(errno));
    return "";
}

std::vector<std::string> texts_of(const Records& list) {
    std::vector<std::string> texts;
    for (long i = 0; i < list.size(); ++i) texts.emplace_back(list.at<char>(i));
    return texts;
}

// The folders in which names are looked up: those of any name.
std::vector<std::string> folders() {
    std::vector<std::string> folders;
    for (const std::string& file : texts_of(Records(pffiles("x", 1), std::free))) {
        const std::size_t slash = file.rfind('/');
        folders.push_back(slash == std::string::npos ? "." : file.substr(0, slash + 1));
    }
    return folders;
}

int list_names(bool json) {
    std::set<std::string> names;
    for (const std::string& folder : folders()) {
        DIR* directory = ::opendir(folder.c_str());
        if (directory == nullptr) continue;
        while (const dirent* entry = ::readdir(directory)) {
            const std::string name = entry->d_name;
            const bool fits = name.size() > 3 && name.compare(name.size() - 3, 3, ".pf") == 0;
            if (fits) names.insert(name.substr(0, name.size() - 3));
        }
        ::closedir(directory);
    }
    JsonList list;
    for (const std::string& name : names) json ? list.add(json_string(name)) : print(name + "\n");
    if (json) print(list.str() + "\n");
    return finish(names.empty() ? kFindings : kDone);
}

void print_file(const std::string& file, const std::string& reason) {
    print(coloured(reason.empty() ? Colour::green : Colour::plain, one_line(file)) + "\t" +
          (reason.empty() ? "read" : "skipped, " + reason) + "\n");
}

std::string file_json(const std::string& file, const std::string& reason) {
    JsonObject object;
    object.text("file", file).boolean("read", reason.empty());
    if (!reason.empty()) object.text("reason", reason);
    return object.str();
}

}  // namespace

int pf_files(const Arguments& arguments) {
    const bool json = arguments.has("--json");
    if (!arguments.has("NAME")) return list_names(json);
    const std::string name = arguments.text("NAME");
    const std::vector<std::string> used = texts_of(Records(pffiles(name.c_str(), 0), std::free));
    JsonList list;
    for (const std::string& file : texts_of(Records(pffiles(name.c_str(), 1), std::free))) {
        std::string reason = reason_to_skip(file);
        const bool is_used = std::set<std::string>(used.begin(), used.end()).count(file) > 0;
        if (reason.empty() && !is_used) reason = "not on the search path";
        json ? list.add(file_json(file, reason)) : print_file(file, reason);
    }
    if (json) print(list.str() + "\n");
    return finish(used.empty() ? kFindings : kDone);
}

}  // namespace tool
