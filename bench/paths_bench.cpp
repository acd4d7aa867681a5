// Paths beside what a C programmer would write:
//   expand_env     a text with four variables, beside four getenv and a copy
//   datafile       a file in the second of two directories, beside a probe of each
//   cleanpath      a path with detours as a text, and with links followed, beside realpath
#include <skerrows.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#ifdef MORVA_PEER_GLIB
#include <glib.h>
#endif

#include "bench.hpp"

namespace {

using benchmark::State;

const char* const kNames[] = {"MORVA_ONE", "MORVATWO", "MORVATHREE", "MORVAFOUR"};

// An environment of some size, as a login session has it.
void set_variables() {
    for (int i = 0; i < 30; ++i)
        ::setenv(("MORVA_OTHER" + std::to_string(i)).c_str(), "/some/where/else", 1);
    for (const char* name : kNames) ::setenv(name, "/opt/korvalin/data", 1);
}

void expand_morva(State& state) {
    set_variables();
    for (auto _ : state) {
        char* text = expand_env("${MORVA_ONE}/pf:$MORVATWO/pf:$MORVATHREE/site:$MORVAFOUR/pf:.");
        benchmark::DoNotOptimize(*text);
        std::free(text);
    }
}

void expand_by_hand(State& state) {
    set_variables();
    for (auto _ : state) {
        const char* values[4];
        for (int i = 0; i < 4; ++i) values[i] = std::getenv(kNames[i]);
        char* text = static_cast<char*>(std::malloc(1024));
        char* end = text;
        const char* const between[] = {"/pf:", "/pf:", "/site:", "/pf:."};
        for (int i = 0; i < 4; ++i) end = ::stpcpy(::stpcpy(end, values[i]), between[i]);
        benchmark::DoNotOptimize(*text);
        std::free(text);
    }
}

// Two folders, and the file in the second.
struct Tree {
    Tree() {
        char name[] = "/tmp/paths_bench-XXXXXX";
        top = ::mkdtemp(name);
        for (const char* folder : {"a/b/c", "d"})
            std::filesystem::create_directories(top + "/" + folder);
        std::ofstream(top + "/d/site.pf") << "x";
        path = top + "/a:" + top + "/d";
        ::setenv("MORVA_PATH", path.c_str(), 1);
    }
    ~Tree() { std::filesystem::remove_all(top); }
    std::string top, path;
};

void datafile_morva(State& state) {
    const Tree tree;
    for (auto _ : state) {
        char* found = datafile("MORVA_PATH", "site.pf");
        benchmark::DoNotOptimize(*found);
        std::free(found);
    }
}

void datafile_probes(State& state) {
    const Tree tree;
    const std::string first = tree.top + "/a/site.pf", second = tree.top + "/d/site.pf";
    for (auto _ : state) {
        char* found = ::access(first.c_str(), R_OK) == 0    ? ::strdup(first.c_str())
                      : ::access(second.c_str(), R_OK) == 0 ? ::strdup(second.c_str())
                                                            : nullptr;
        benchmark::DoNotOptimize(*found);
        std::free(found);
    }
}

constexpr char kDetours[] = "/usr//share/./doc/../doc/../man/../../share//doc/.";

void clean_morva(State& state) {
    char result[1024];
    for (auto _ : state) {
        cleanpath(kDetours, 0, result);
        benchmark::DoNotOptimize(*result);
    }
}

void clean_filesystem(State& state) {
    for (auto _ : state) {
        const std::string result = std::filesystem::path(kDetours).lexically_normal();
        benchmark::DoNotOptimize(result.data());
    }
}

#ifdef MORVA_PEER_GLIB
void clean_glib(State& state) {
    for (auto _ : state) {
        char* result = g_canonicalize_filename(kDetours, nullptr);
        benchmark::DoNotOptimize(*result);
        g_free(result);
    }
}
#endif

void follow_morva(State& state) {
    const Tree tree;
    const std::string path = tree.top + "/a/./b/c/../../../d/site.pf";
    char result[1024];
    for (auto _ : state) {
        cleanpath(path.c_str(), 1, result);
        benchmark::DoNotOptimize(*result);
    }
}

void follow_realpath(State& state) {
    const Tree tree;
    const std::string path = tree.top + "/a/./b/c/../../../d/site.pf";
    char result[PATH_MAX];
    for (auto _ : state) {
        benchmark::DoNotOptimize(::realpath(path.c_str(), result));
    }
}

const int kRegistered = [] {
    const auto add = [](const char* name, void (*body)(State&)) {
        benchmark::RegisterBenchmark(name, body);
    };
    add("expand_env : morva", expand_morva);
    add("expand_env : four getenv", expand_by_hand);
    add("datafile : morva", datafile_morva);
    add("datafile : access", datafile_probes);
    add("cleanpath : morva", clean_morva);
    add("cleanpath : std::filesystem", clean_filesystem);
#ifdef MORVA_PEER_GLIB
    add("cleanpath : glib", clean_glib);
#endif
    add("cleanpath links : morva", follow_morva);
    add("cleanpath links : realpath", follow_realpath);
    return 0;
}();

}  // namespace
