// The message register beside what a program would write by hand.
//
//     elog_log, 10 and clear    ten reasons with a number and a name each, then all forgotten
//     elog_notify to a file     one line appended to a file, opened and closed each time
//
// The peers keep their lines in a vector behind a mutex, and open, append and close by hand.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "bench.hpp"
#ifdef MORVA_PEER_FMT
#include <fmt/format.h>
#endif

namespace {

constexpr int kReasons = 10;

void BM_register(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < kReasons; ++i)
            elog_log(0, "can't open %s, attempt %d\n", "/data/db", i);
        elog_clear();
    }
    state.SetItemsProcessed(state.iterations() * kReasons);
}
BENCHMARK(BM_register)->Name("elog_log and clear : morva");

#ifdef MORVA_PEER_FMT
void BM_vector(benchmark::State& state) {
    std::mutex mutex;
    struct Line {
        int severity;
        pthread_t thread;
        std::string text;
    };
    std::vector<Line> lines;
    const std::string name = "elog_bench";
    for (auto _ : state) {
        for (int i = 0; i < kReasons; ++i) {
            std::string line = fmt::format("{}: can't open {}, attempt {}\n", name, "/data/db", i);
            const std::lock_guard lock(mutex);
            lines.push_back({ELOG_LOG, pthread_self(), std::move(line)});
        }
        const std::lock_guard lock(mutex);
        lines.clear();
    }
    state.SetItemsProcessed(state.iterations() * kReasons);
}
BENCHMARK(BM_vector)->Name("elog_log and clear : vector, fmt, mutex");
#endif

// A file of its own, removed at the end.
class File {
  public:
    File() { ::close(::mkstemp(path_)); }
    ~File() { ::unlink(path_); }
    char* path() { return path_; }

  private:
    char path_[32] = "/tmp/morva-bench-XXXXXX";
};

void BM_notify(benchmark::State& state) {
    File file;
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, file.path());
    int i = 0;
    for (auto _ : state) elog_notify(0, "%s has %d packets\n", "AA_STA", ++i);
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char*>("stderr"));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_notify)->Name("elog_notify to a file : morva");

void BM_by_hand(benchmark::State& state) {
    File file;
    int i = 0;
    for (auto _ : state) {
        char line[256];
        const int n =
            std::snprintf(line, sizeof line, "elog_bench: %s has %d packets\n", "AA_STA", ++i);
        const int fd = ::open(file.path(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0664);
        benchmark::DoNotOptimize(::write(fd, line, static_cast<size_t>(n)));
        ::close(fd);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_by_hand)->Name("elog_notify to a file : open, append, close");

}  // namespace
