// The installation root: one text of the process.
//
// Roots are kept in a chain that only grows: a text that was handed out stays as it is when another
// root is put, and readers need no lock.
#include "paths/root.hpp"

#include <glob.h>
#include <skerrows.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "paths/cleanpath.hpp"
#include "paths/datasearch.hpp"

namespace morva::paths {
namespace {

constexpr char kName[] = "KORVALIN=";
constexpr std::size_t kNameLength = sizeof kName - 1;

// The text stands behind the variable's name, ready for the environment.
struct Root {
    char* text() { return entry + kNameLength; }
    Root* before;
    char entry[kNameLength + kPathSize];
};

constinit std::mutex g_mutex;           // guards changes of the two that follow
constinit std::atomic<Root*> g_root{};  // the current one
constinit Root* g_roots = nullptr;      // all there ever were

char g_standard[] = MORVA_ROOT;

bool is_directory(const char* path) {
    struct stat status;
    return retry([&] { return ::stat(path, &status); }) == 0 && S_ISDIR(status.st_mode);
}

// As much of a root as there is room for.
std::string_view fitting(const char* root) {
    return view(root).substr(0, kPathSize - 1);
}

bool from_environment(const Places&, Path* root) {
    const char* value = std_getenv("KORVALIN");
    return value != nullptr && root->assign(fitting(value));
}

bool from_standard(const Places& places, Path* root) {
    return is_directory(places.standard) && root->assign(places.standard);
}

// The full path of a program that was started by a bare name.
bool find_program(const char* name, Path* program) {
    const char* path = std_getenv("PATH");
    if (path == nullptr || *path == '\0') return false;
    const SearchPath search(path, true);
    bool found = false;
    visit_readable(search.view(), {}, name, [&](const Path& candidate) {
        if (!is_readable(candidate)) return errno;
        found = program->assign(candidate.view());
        return kStop;
    });
    return found;
}

// The program is expected in the root's folder "bin".
bool from_executable(const Places& places, Path* root) {
    const char* name = places.executable;
    if (name == nullptr) return false;
    Path program;
    const bool found = std::strchr(name, '/') != nullptr
                           ? make_absolute(name, false, &program) == Cleaned::kDone
                           : find_program(name, &program);
    if (!found) return false;
    std::string_view folder = program.view();
    folder = folder.substr(0, folder.rfind('/'));
    constexpr std::string_view kBin = "/bin";
    if (folder.size() <= kBin.size() || !folder.ends_with(kBin)) return false;
    folder.remove_suffix(kBin.size());
    return root->assign(folder);
}

class Matches {
  public:
    explicit Matches(const char* pattern) {
        if (::glob(pattern, 0, nullptr, &found_) == GLOB_NOSPACE)
            out_of_memory(std::strlen(pattern), "glob", MORVA_HERE);
    }
    ~Matches() { ::globfree(&found_); }
    Matches(const Matches&) = delete;
    Matches& operator=(const Matches&) = delete;
    std::size_t size() const { return found_.gl_pathc; }
    const char* operator[](std::size_t i) const { return found_.gl_pathv[i]; }

  private:
    glob_t found_{};
};

bool from_releases(const Places& places, Path* root) {
    const Matches releases(places.releases);
    for (std::size_t i = releases.size(); i > 0; --i)
        if (is_directory(releases[i - 1])) return root->assign(releases[i - 1]);
    return false;
}

Root* find_root(std::string_view text) {
    for (Root* root = g_roots; root != nullptr; root = root->before)
        if (text == root->text()) return root;
    return nullptr;
}

malloced<Root> make_root(std::string_view text) {
    malloced<Root> root(must_alloc<Root>(1, "Setenv", MORVA_HERE));
    std::memcpy(root->entry, kName, kNameLength);
    std::memcpy(root->text(), text.data(), text.size());
    return root;
}

// The first root is exported too, and its entry not changed by later ones: child processes see the
// root that this one began with.
void store_root(std::string_view text) {
    malloced<Root> fresh = make_root(text);
    Root* root;
    bool first;
    {
        const std::lock_guard lock(g_mutex);
        root = find_root(text);
        if (root == nullptr) {
            fresh->before = g_roots;
            root = g_roots = fresh.release();
        }
        first = g_root.exchange(root) == nullptr;
    }
    if (first && ::putenv(root->entry) != 0) out_of_memory(sizeof(Root), "Setenv", MORVA_HERE);
}

}  // namespace

bool decide_root(const Places& places, Path* root) {
    for (const auto step : {from_environment, from_standard, from_executable, from_releases})
        if (step(places, root)) return true;
    return false;
}

}  // namespace morva::paths

extern "C" {

int putkorvalin(const char* root) {
    using namespace morva::paths;
    store_root(fitting(root));
    return 0;
}

char* getkorvalin(void) {
    using namespace morva::paths;
    if (g_root.load() == nullptr) {
        Path root;
        if (!decide_root({g_standard, MORVA_RELEASES, getexecname()}, &root)) return g_standard;
        putkorvalin(root.c_str());
    }
    return g_root.load()->text();
}

}  // extern "C"
