// UCSD compression of a seismogram, and the GSE checksum, against plain scalar code that does the
// whole job by itself. No codec of this format is packaged to measure against.
//
//   cucsd N          compress N samples, with a buffer that is there already; cucsd_try's bytes
//   uucsd N          expand the bytes of N samples
//   gse_checksum N   the checksum of N samples
//
// 1e5 samples stay in cache, 2e6 do not. Differences on the border of two classes make the shortest
// runs: "border" has 15 samples a run and 1.0 byte a sample, "quiet" 75 and 1.1, "event" 34 and
// 1.6, "loud" 73 and 2.1. Recordings have 27 to 114 samples a run.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "bench.hpp"

namespace {

using Samples = std::vector<std::int32_t>;
using Bytes = std::vector<unsigned char>;

// Noise as a sensor gives it, with an event that dies away in each 20000 samples.
Samples seismogram(std::size_t count, double amplitude) {
    bench::Random random(7);
    std::normal_distribution<double> normal;
    Samples samples(count);
    double last = 0, before = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double event = 30 * std::exp(-static_cast<double>(i % 20000) / 800);
        const double now = 1.94 * last - 0.95 * before + amplitude * (1 + event) * normal(random);
        before = last;
        last = now;
        samples[i] = static_cast<std::int32_t>(std::lround(now));
    }
    return samples;
}

// The peer.
namespace plain {

constexpr std::int32_t kModulus = 100000000;
constexpr int kBits[] = {4, 8, 12, 16, 24, 32};

std::int32_t checksum(const std::int32_t* samples, std::size_t count) {
    std::int32_t sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::int32_t x = samples[i];
        if (x >= kModulus || x <= -kModulus) x %= kModulus;
        sum += x;
        if (sum >= kModulus || sum <= -kModulus) sum %= kModulus;
    }
    return std::abs(sum);
}

inline int class_of(std::int32_t d) {
    if (d >= -8 && d < 8) return 0;
    if (d >= -128 && d < 128) return 1;
    if (d >= -2048 && d < 2048) return 2;
    return d >= -32768 && d < 32768 ? 3 : 4;
}

struct Writer {
    unsigned char *begin, *at, *count = nullptr;
    int open_class = 5;
    bool half = false;

    void close() {
        if (half) ++at;
        half = false;
    }
    void open(int next) {
        close();
        if ((at - begin) & 1) *at++ = 0;
        *at++ = static_cast<unsigned char>((next + 1) << 4);
        count = at++;
        *count = 0;
        open_class = next;
    }
    void push(std::int32_t v) {
        if (*count == 255) open(open_class);
        ++*count;
        switch (open_class) {
            case 0:
                if (half)
                    *at++ |= static_cast<unsigned char>(v & 15);
                else
                    *at = static_cast<unsigned char>(v << 4);
                half = !half;
                break;
            case 1:
                *at++ = static_cast<unsigned char>(v);
                break;
            case 2:
                if (half) {
                    *at++ |= static_cast<unsigned char>(v >> 8 & 15);
                    *at++ = static_cast<unsigned char>(v);
                } else {
                    *at++ = static_cast<unsigned char>(v >> 4);
                    *at = static_cast<unsigned char>(v << 4);
                }
                half = !half;
                break;
            case 4:
                *at++ = static_cast<unsigned char>(v >> 16);
                [[fallthrough]];
            default:
                *at++ = static_cast<unsigned char>(v >> 8);
                *at++ = static_cast<unsigned char>(v);
                break;
        }
    }
};

std::size_t compress(const std::int32_t* x, std::size_t count, unsigned char* out) {
    const std::uint32_t first = __builtin_bswap32(static_cast<std::uint32_t>(x[0]));
    std::memcpy(out, &first, 4);
    Writer writer{out, out + 4};
    for (std::size_t i = 1; i < count; ++i) {
        const std::int32_t d = x[i - 1] - x[i];
        int next = class_of(d);
        const int current = writer.open_class;
        if (next < current) {
            int widest = next;
            for (int j = 1; i + static_cast<std::size_t>(j) < count; ++j) {
                const std::size_t k = i + static_cast<std::size_t>(j);
                const int ahead = class_of(x[k - 1] - x[k]);
                if (ahead >= current) {
                    widest = current;
                    break;
                }
                if (ahead > widest) widest = ahead;
                if (j > 16 / (kBits[current] - kBits[widest])) break;
            }
            next = widest;
        }
        if (next != current) writer.open(next);
        writer.push(next == 4 ? x[i] : d);
    }
    writer.close();
    return static_cast<std::size_t>(writer.at - out);
}

bool expand(const unsigned char* bytes, std::size_t size, std::int32_t* out, std::size_t count) {
    if (size < 4) return false;
    std::uint32_t first;
    std::memcpy(&first, bytes, 4);
    std::int32_t x = static_cast<std::int32_t>(__builtin_bswap32(first));
    out[0] = x;
    std::size_t at = 4, done = 1;
    while (done < count) {
        at += at & 1;
        if (at + 2 > size) return false;
        const int code = bytes[at] >> 4;
        const std::size_t n = bytes[at + 1];
        if (code < 1 || code > 5 || n == 0 || n > count - done) return false;
        at += 2;
        const auto bits = static_cast<std::size_t>(kBits[code - 1]);
        if (at + (n * bits + 7) / 8 > size) return false;
        const unsigned char* p = bytes + at;
        std::int32_t* const to = out + done;
        switch (code) {
            case 1:
                for (std::size_t i = 0; i < n; ++i) {
                    const int v = i % 2 == 0 ? p[i / 2] >> 4 : p[i / 2] & 15;
                    to[i] = x -= (v ^ 8) - 8;
                }
                break;
            case 2:
                for (std::size_t i = 0; i < n; ++i) to[i] = x -= static_cast<signed char>(p[i]);
                break;
            case 3:
                for (std::size_t i = 0; i < n; ++i) {
                    const unsigned char* q = p + i / 2 * 3;
                    const int v = i % 2 == 0 ? q[0] << 4 | q[1] >> 4 : (q[1] & 15) << 8 | q[2];
                    to[i] = x -= (v ^ 2048) - 2048;
                }
                break;
            case 4:
                for (std::size_t i = 0; i < n; ++i)
                    to[i] = x -= static_cast<std::int16_t>(p[2 * i] << 8 | p[2 * i + 1]);
                break;
            default:
                for (std::size_t i = 0; i < n; ++i) {
                    const int v = p[3 * i] << 16 | p[3 * i + 1] << 8 | p[3 * i + 2];
                    to[i] = x = (v ^ 0x800000) - 0x800000;
                }
                break;
        }
        at += (n * bits + 7) / 8;
        done += n;
    }
    return true;
}

}  // namespace plain

struct Work {
    const char* name;
    std::size_t count;
    double amplitude;
    Samples samples = {};
    Bytes bytes = {};

    // Made once, by the first benchmark that needs it.
    const Work& ready() {
        if (!samples.empty()) return *this;
        samples = seismogram(count, amplitude);
        bytes.resize(5 * count + 64);
        bytes.resize(plain::compress(samples.data(), count, bytes.data()));
        return *this;
    }
};

Work g_works[] = {{"border 1e5", 100000, 3.0},  {"border 2e6", 2000000, 3.0},
                  {"quiet 1e5", 100000, 10.0},  {"quiet 2e6", 2000000, 10.0},
                  {"event 1e5", 100000, 100.0}, {"event 2e6", 2000000, 100.0},
                  {"loud 1e5", 100000, 3000.0}};

// Runs `body` over and over; false from it spoils the benchmark.
template <class Body>
void measure(benchmark::State& state, const Work& work, Body&& body) {
    bool good = true;
    for (auto _ : state) {
        good &= body();
        benchmark::ClobberMemory();
    }
    if (!good) state.SkipWithError("wrong result");
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(work.count));
    state.counters["bytes a sample"] =
        static_cast<double>(work.bytes.size()) / static_cast<double>(work.count);
}

void compress_morva(benchmark::State& state, const Work& work) {
    char* buffer = nullptr;
    int nbytes = 0, size = 0;
    const int nsamp = static_cast<int>(work.count);
    cucsd_try(work.samples.data(), nsamp, &buffer, &nbytes, &size);
    measure(state, work, [&] {
        cucsd_try(work.samples.data(), nsamp, &buffer, &nbytes, &size);
        return static_cast<std::size_t>(nbytes) == work.bytes.size();
    });
    if (std::memcmp(buffer, work.bytes.data(), work.bytes.size()) != 0)
        state.SkipWithError("other bytes than the peer's");
    std::free(buffer);
}

void compress_plain(benchmark::State& state, const Work& work) {
    Bytes bytes(5 * work.count + 64);
    measure(state, work, [&] {
        return plain::compress(work.samples.data(), work.count, bytes.data()) == work.bytes.size();
    });
}

void expand_morva(benchmark::State& state, const Work& work) {
    Samples samples(work.count);
    Bytes bytes = work.bytes;
    measure(state, work, [&] {
        char* cursor = reinterpret_cast<char*>(bytes.data());
        return uucsd(samples.data(), &cursor, static_cast<int>(bytes.size()),
                     static_cast<int>(work.count)) == 0;
    });
    if (samples != work.samples) state.SkipWithError("other samples");
}

void expand_plain(benchmark::State& state, const Work& work) {
    Samples samples(work.count);
    measure(state, work, [&] {
        return plain::expand(work.bytes.data(), work.bytes.size(), samples.data(), work.count);
    });
    if (samples != work.samples) state.SkipWithError("other samples");
}

void checksum_morva(benchmark::State& state, const Work& work) {
    std::int32_t sum = 0;
    measure(state, work, [&] {
        sum = 0;
        return gse_checksum(work.samples.data(), static_cast<int>(work.count), &sum) == 0;
    });
    if (sum != plain::checksum(work.samples.data(), work.count)) state.SkipWithError("other sum");
}

void checksum_plain(benchmark::State& state, const Work& work) {
    measure(state, work, [&] {
        benchmark::DoNotOptimize(plain::checksum(work.samples.data(), work.count));
        return true;
    });
}

const bool g_registered = [] {
    for (Work& work : g_works) {
        const auto add = [&](const std::string& what, const char* who,
                             void (*run)(benchmark::State&, const Work&)) {
            benchmark::RegisterBenchmark(
                (what + work.name + " : " + who).c_str(),
                [&work, run](benchmark::State& s) { run(s, work.ready()); });
        };
        add("cucsd ", "morva", compress_morva);
        add("cucsd ", "plain scalar", compress_plain);
        add("uucsd ", "morva", expand_morva);
        add("uucsd ", "plain scalar", expand_plain);
        add("gse_checksum ", "morva", checksum_morva);
        add("gse_checksum ", "plain scalar", checksum_plain);
    }
    return true;
}();

}  // namespace
