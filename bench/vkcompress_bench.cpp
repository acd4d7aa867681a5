// Packets of 16 KB compressed and expanded, against zlib called directly, which makes its state
// anew for every packet.
//
//   vkcompress 16 KB, vkexpand 16 KB   samples of a seismogram as 32-bit numbers
#include <zlib.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "bench.hpp"

namespace {

constexpr std::size_t kPacket = 16384;

std::string seismogram() {
    bench::Random random(3);
    std::normal_distribution<double> normal;
    std::string bytes;
    double last = 0, before = 0;
    while (bytes.size() < kPacket) {
        const double now = 1.94 * last - 0.95 * before + 30 * normal(random);
        before = last;
        last = now;
        const auto sample = static_cast<std::int32_t>(std::lround(now));
        bytes.append(reinterpret_cast<const char*>(&sample), sizeof sample);
    }
    return bytes;
}

struct Packet : Vk_packet {
    Packet() : Vk_packet{nullptr, 0, 0} {}
    ~Packet() { std::free(data); }
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;
};

void count(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<long>(kPacket));
}

void compress_morva(benchmark::State& state) {
    std::string bytes = seismogram();
    const Vk_packet in = {bytes.data(), bytes.size(), bytes.size()};
    Packet out;
    for (auto _ : state) benchmark::DoNotOptimize(vkcompress(&in, &out));
    count(state);
}

void compress_zlib(benchmark::State& state) {
    const std::string bytes = seismogram();
    std::vector<Bytef> out(compressBound(bytes.size()));
    for (auto _ : state) {
        uLong length = out.size();
        benchmark::DoNotOptimize(compress(
            out.data(), &length, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
    }
    count(state);
}

void expand_morva(benchmark::State& state) {
    std::string bytes = seismogram();
    const Vk_packet in = {bytes.data(), bytes.size(), bytes.size()};
    Packet frame, out;
    vkcompress(&in, &frame);
    for (auto _ : state) benchmark::DoNotOptimize(vkexpand(&frame, &out));
    if (out.used != bytes.size()) state.SkipWithError("expanded wrongly");
    count(state);
}

void expand_zlib(benchmark::State& state) {
    std::string bytes = seismogram();
    const Vk_packet in = {bytes.data(), bytes.size(), bytes.size()};
    Packet frame;
    vkcompress(&in, &frame);
    std::vector<Bytef> out(bytes.size() + 10);
    for (auto _ : state) {
        uLong length = out.size();
        benchmark::DoNotOptimize(uncompress(
            out.data(), &length, reinterpret_cast<const Bytef*>(frame.data) + 8, frame.used - 8));
    }
    count(state);
}

BENCHMARK(compress_morva)->Name("vkcompress 16 KB : morva");
BENCHMARK(compress_zlib)->Name("vkcompress 16 KB : zlib compress");
BENCHMARK(expand_morva)->Name("vkexpand 16 KB : morva");
BENCHMARK(expand_zlib)->Name("vkexpand 16 KB : zlib uncompress");

}  // namespace
