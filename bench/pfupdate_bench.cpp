// Reloading a parameter file that has not changed, beside a stat of every place where it may be:
// what a program pays for looking at all.
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bench.hpp"

namespace {

// Two folders with the file, long enough ago for times to be trusted.
const std::vector<std::string>& candidates() {
    static const auto files = [] {
        const auto top = std::filesystem::temp_directory_path() / "morva-pfupdate-bench";
        std::vector<std::string> made;
        for (const char* folder : {"site", "local"}) {
            std::filesystem::create_directories(top / folder);
            made.push_back((top / folder / "acquire.pf").string());
            std::ofstream(made.back()) << "port 6510\nstations &Tbl{\nAAK\n}\n";
        }
        setenv("PFPATH", ((top / "site").string() + ":" + (top / "local").string()).c_str(), 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return made;
    }();
    return files;
}

void ours(benchmark::State& state) {
    candidates();
    Pf* pf = nullptr;
    pfupdate("acquire", &pf);
    for (auto _ : state)
        if (pfupdate("acquire", &pf) != 0) state.SkipWithError("changed");
}

void stats(benchmark::State& state) {
    struct stat status;
    for (auto _ : state)
        for (const std::string& file : candidates())
            if (stat(file.c_str(), &status) != 0) state.SkipWithError("gone");
}

const bool registered = [] {
    benchmark::RegisterBenchmark("pfupdate unchanged 2 : morva", ours);
    benchmark::RegisterBenchmark("pfupdate unchanged 2 : stat", stats);
    return true;
}();

}  // namespace
