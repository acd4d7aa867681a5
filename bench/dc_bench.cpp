// Controls by index in a mapped file, beside what a program would do with a word of its own.
//
//   dcgetb          reading a byte control; beside it a function with a relaxed load
//   dcseti          changing an integer control; beside it two stores and a count with the clock
//   dcseti, dcwait  a change and the answer of a thread that waits for it; beside it a condition
//                   variable of the same process
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "bench.hpp"

namespace {

// A folder of its own with a file of controls.
void use_file() {
    static const bool done = [] {
        char folder[] = "/tmp/morva-bench-XXXXXX";
        if (::mkdtemp(folder) == nullptr || ::chdir(folder) != 0 || dccreate() != 0) std::abort();
        dcopen(1);
        dcremove("");
        return ::rmdir(folder) == 0;
    }();
    if (!done) std::abort();
}

// Behind a pointer that nobody knows at compile time, as a mapping is.
struct Words {
    std::atomic<unsigned char> byte{1};
    std::atomic<long> integer{0};
    std::atomic<double> time{0};
    std::atomic<long> changes{0};
};
Words* volatile words = new Words;

void get_byte(benchmark::State& state) {
    use_file();
    for (auto _ : state) benchmark::DoNotOptimize(dcgetb(5));
}
BENCHMARK(get_byte)->Name("dcgetb : morva");

[[gnu::noipa]] int load() {
    return words->byte.load(std::memory_order_relaxed);
}

void load_byte(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(load());
}
BENCHMARK(load_byte)->Name("dcgetb : relaxed load in a function");

void set_integer(benchmark::State& state) {
    use_file();
    long value = 0;
    for (auto _ : state) dcseti(5, ++value);
}
BENCHMARK(set_integer)->Name("dcseti : morva");

void store_integer(benchmark::State& state) {
    long value = 0;
    for (auto _ : state) {
        words->integer.store(++value, std::memory_order_relaxed);
        timespec now;
        ::clock_gettime(CLOCK_REALTIME, &now);
        words->time.store(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9,
                          std::memory_order_relaxed);
        words->changes.fetch_add(1, std::memory_order_release);
    }
}
BENCHMARK(store_integer)->Name("dcseti : stores and clock");

// Passes the turn to another thread and waits until it comes back.
void answer(benchmark::State& state) {
    use_file();
    dcseti(0, 0);
    const auto wait_for = [](long side) {
        for (long seen = dcchanged(), turn; (turn = dcgeti(0)) % 2 != side; seen = dcchanged()) {
            if (turn < 0) return false;
            dcwait(seen, -1);
        }
        return dcgeti(0) >= 0;
    };
    std::thread other([&] {
        while (wait_for(1)) dcseti(0, dcgeti(0) + 1);
    });
    for (auto _ : state) {
        dcseti(0, dcgeti(0) + 1);
        wait_for(0);
    }
    dcseti(0, -2);
    other.join();
}
BENCHMARK(answer)->Name("dcseti, dcwait and back : morva")->UseRealTime();

void answer_by_condition(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable changed;
    long turn = 0;
    const auto wait_for = [&](std::unique_lock<std::mutex>& lock, long side) {
        changed.wait(lock, [&] { return turn < 0 || turn % 2 == side; });
        return turn >= 0;
    };
    const auto pass_on = [&](long to) {
        turn = to;
        changed.notify_all();
    };
    std::thread other([&] {
        std::unique_lock lock(mutex);
        while (wait_for(lock, 1)) pass_on(turn + 1);
    });
    {
        std::unique_lock lock(mutex);
        for (auto _ : state) {
            pass_on(turn + 1);
            wait_for(lock, 0);
        }
        pass_on(-2);
    }
    other.join();
}
BENCHMARK(answer_by_condition)->Name("dcseti, dcwait and back : condition variable")->UseRealTime();

}  // namespace
