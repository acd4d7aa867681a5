// Rings and ringlets beside what keeps histories otherwise.
//
//   pushring        one point of a full ring of 1e5 in its file; beside it rrd_update of 100 points
//                   a call, counted a point, and a ring in memory
//   pushringlet     one record of 16 or 64 bytes; beside it boost::circular_buffer in memory
//   maxring, ...    statistics over a full ring of 1e5 points; beside them a plain loop over the
//                   same file, as its reader would write it
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "bench.hpp"

#ifdef MORVA_PEER_RRD
#include <rrd.h>
#endif
#ifdef MORVA_PEER_BOOST
#include <boost/circular_buffer.hpp>
#endif

namespace {

constexpr int kSize = 100000;
constexpr int kRecords = 1000;
constexpr double kStart = 1.6e9;
constexpr double kSpan = 1e9;

std::string scratch(const char* name) {
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder != nullptr ? folder : "/tmp") + "/morva-bench-" +
           std::to_string(::getpid()) + name;
}

// A full ring with the seam in its middle, a break here and there.
Ring* full_ring() {
    static Ring* const ring = [] {
        const std::string path = scratch(".ring");
        Ring* made = openring(path.c_str(), nullptr, kSize, 0);
        ::unlink(path.c_str());
        bench::Random random(3);
        std::normal_distribution<double> normal(100, 10);
        for (int i = 0; i < kSize * 3 / 2; ++i)
            pushring(made, kStart + i + (random() % 1000 == 0 ? 100 * i : 0), normal(random));
        setring(made, 1e9, -99999999.0);
        return made;
    }();
    return ring;
}

void push(benchmark::State& state) {
    Ring* ring = full_ring();
    double time;
    getring(ring, 0, &time, nullptr);
    for (auto _ : state) pushring(ring, time += 1, 1.0);
}
BENCHMARK(push)->Name("pushring : morva");

// What a loop over the file is without the library.
template <class Take>
void every_point(const Ring* ring, double from, Take take) {
    const Ring_header* header = ring->header;
    for (int i = 0; i < header->count; ++i) {
        const Ring_point& point = ring->points[(header->index + i) % header->size];
        if (point.time < from) break;
        if (header->gap == 0 || point.value != header->null) take(i, point.value);
    }
}

void largest(benchmark::State& state) {
    for (auto _ : state) {
        int i;
        benchmark::DoNotOptimize(maxring(full_ring(), &i, kSpan));
        benchmark::DoNotOptimize(i);
    }
}
BENCHMARK(largest)->Name("maxring 1e5 : morva");

void largest_plain(benchmark::State& state) {
    for (auto _ : state) {
        double most = -std::numeric_limits<double>::infinity();
        int at = -1;
        every_point(full_ring(), 0, [&](int i, double value) {
            if (value > most) most = value, at = i;
        });
        benchmark::DoNotOptimize(most);
        benchmark::DoNotOptimize(at);
    }
}
BENCHMARK(largest_plain)->Name("maxring 1e5 : plain loop");

void smallest(benchmark::State& state) {
    for (auto _ : state) {
        int i;
        benchmark::DoNotOptimize(minring(full_ring(), &i, kSpan));
        benchmark::DoNotOptimize(i);
    }
}
BENCHMARK(smallest)->Name("minring 1e5 : morva");

void smallest_plain(benchmark::State& state) {
    for (auto _ : state) {
        double least = std::numeric_limits<double>::infinity();
        int at = -1;
        every_point(full_ring(), 0, [&](int i, double value) {
            if (value < least) least = value, at = i;
        });
        benchmark::DoNotOptimize(least);
        benchmark::DoNotOptimize(at);
    }
}
BENCHMARK(smallest_plain)->Name("minring 1e5 : plain loop");

void mean(benchmark::State& state) {
    for (auto _ : state) {
        int n;
        double mean, deviation;
        meanring(full_ring(), &n, &mean, &deviation, kSpan);
        benchmark::DoNotOptimize(mean);
        benchmark::DoNotOptimize(deviation);
    }
}
BENCHMARK(mean)->Name("meanring 1e5 : morva");

// The textbook's sums, which lose the deviation beside a large mean, over points known to lie in a
// row: the shortest loop there is.
void mean_sums(benchmark::State& state) {
    const Ring* ring = full_ring();
    for (auto _ : state) {
        double n = 0, sum = 0, squares = 0;
        for (int i = 0; i < kSize; ++i) {
            const Ring_point& point = ring->points[i];
            if (point.value == ring->header->null) continue;
            n += 1;
            sum += point.value;
            squares += point.value * point.value;
        }
        benchmark::DoNotOptimize(sum / n);
        benchmark::DoNotOptimize(std::sqrt((squares - sum * sum / n) / (n - 1)));
    }
}
BENCHMARK(mean_sums)->Name("meanring 1e5 : plain sums");

template <std::size_t kDoubles>
struct Record {
    double values[kDoubles];
};

// What is pushed in turn, so that no copy waits for the stores that made its record.
template <class Item>
const Item* items() {
    static const std::vector<Item> made = [] {
        std::vector<Item> all(256);
        bench::Random random(4);
        for (Item& item : all)
            for (double& value : item.values) value = static_cast<double>(random());
        return all;
    }();
    return made.data();
}

template <class Item>
void push_record(benchmark::State& state) {
    const std::string path = scratch(".ringlet");
    Ringlet* ringlet = openringlet(path.c_str(), kRecords, sizeof(Item));
    ::unlink(path.c_str());
    const Item* from = items<Item>();
    unsigned char next = 0;
    for (auto _ : state) pushringlet(ringlet, &from[next++]);
    closeringlet(ringlet);
}
BENCHMARK(push_record<Record<2>>)->Name("pushringlet 16 bytes : morva");
BENCHMARK(push_record<Record<8>>)->Name("pushringlet 64 bytes : morva");

#ifdef MORVA_PEER_BOOST
// The buffer is in memory, as one that belongs to a program is.
template <class Item>
void push_record_boost(benchmark::State& state) {
    const auto buffer = std::make_unique<boost::circular_buffer<Item>>(kRecords);
    auto* address = buffer.get();
    const Item* from = items<Item>();
    unsigned char next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(address);
        address->push_back(from[next++]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(push_record_boost<Record<2>>)->Name("pushringlet 16 bytes : boost::circular_buffer");
BENCHMARK(push_record_boost<Record<8>>)->Name("pushringlet 64 bytes : boost::circular_buffer");
#endif

#ifdef MORVA_PEER_RRD
// Time stands for one point of the hundred that a call takes.
void push_rrd(benchmark::State& state) {
    constexpr int kBatch = 100;
    const std::string path = scratch(".rrd");
    const std::string archive = "RRA:AVERAGE:0.5:1:" + std::to_string(kSize);
    const char* shape[] = {"DS:value:GAUGE:60:U:U", archive.c_str()};
    long time = 1600000000;
    rrd_create_r(path.c_str(), 1, time, 2, shape);
    std::vector<std::string> texts(kBatch);
    std::vector<const char*> points(kBatch);
    while (state.KeepRunningBatch(kBatch)) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            texts[i] = std::to_string(++time) + ":1.0";
            points[i] = texts[i].c_str();
        }
        if (rrd_update_r(path.c_str(), nullptr, kBatch, points.data()) != 0)
            state.SkipWithError(rrd_get_error());
    }
    ::unlink(path.c_str());
}
BENCHMARK(push_rrd)->Name("pushring : rrd_update of 100");
#endif

}  // namespace
