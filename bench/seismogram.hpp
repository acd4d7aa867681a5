// A synthetic seismogram: noise through a resonant filter. At an amplitude of 27 it is quiet
// ground, at 2000 an event, at 1e5 near the full scale of 24 bits.
#pragma once

#include <cmath>

#include "bench.hpp"

namespace bench {

using Samples = std::vector<std::int32_t>;

inline Samples seismogram(std::size_t count, double amplitude) {
    Random random(7);
    std::normal_distribution<double> normal;
    Samples samples(count);
    double last = 0, before = 0;
    for (auto& x : samples) {
        const double now = 1.94 * last - 0.95 * before + amplitude * normal(random);
        before = last;
        last = now;
        x = static_cast<std::int32_t>(std::lround(now));
    }
    return samples;
}

// The works of the packing codecs. The samples are made by the first benchmark that needs them.
struct Work {
    std::string name;
    std::size_t count;
    double amplitude;
    const Samples& samples() {
        if (samples_.empty()) samples_ = seismogram(count, amplitude);
        return samples_;
    }
    Samples samples_ = {};
};

inline std::vector<Work>& works() {
    static std::vector<Work> all = {{"quiet 1e5", 100000, 27.0},
                                    {"event 1e5", 100000, 2000.0},
                                    {"quiet 2e6", 2000000, 27.0},
                                    {"event 2e6", 2000000, 2000.0},
                                    {"loud 2e6", 2000000, 1e5}};
    return all;
}

// Runs `pass` again and again, with the bytes that a sample takes told beside the time.
template <class Pass>
void measure(benchmark::State& state, std::size_t samples, double bytes, Pass pass) {
    for (auto _ : state) {
        pass();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples));
    state.counters["bytes per sample"] = bytes / static_cast<double>(samples);
}

}  // namespace bench
