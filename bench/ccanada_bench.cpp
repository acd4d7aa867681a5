// Canadian compression of a seismogram, against plain scalar code that does the same job. No codec
// of this format is packaged to measure against; a public one in C that was tried elsewhere encodes
// 157 and decodes 234 million samples a second.
//
//   ccanada N   encode N samples, with a buffer that is there already
//   ucanada N   decode them, likewise
#include <cstdlib>

#include "seismogram.hpp"

namespace {

using bench::Samples;
using Bytes = std::vector<unsigned char>;

// The peer.
namespace plain {

constexpr int kWidths[2][8] = {{4, 6, 8, 10, 12, 14, 16, 18}, {4, 8, 12, 16, 20, 24, 28, 32}};

int code_for(std::uint32_t magnitude, int flag) {
    int code = 0;
    while (code < 7 && magnitude >> (kWidths[flag][code] - 1) != 0) ++code;
    return code;
}

unsigned char* put(unsigned char* out, const std::uint32_t* values, int width) {
    std::uint64_t bits = 0;
    int held = 0;
    for (int i = 0; i < 4; ++i) {
        bits = bits << width | (values[i] & ((std::uint64_t{1} << width) - 1));
        for (held += width; held >= 8; held -= 8)
            *out++ = static_cast<unsigned char>(bits >> (held - 8));
    }
    return out;
}

std::size_t encode(const Samples& samples, Bytes& bytes) {
    const std::size_t count = samples.size() / 20 * 20;
    unsigned char *key = bytes.data(), *out = key + count / 10;
    const auto first = static_cast<std::uint32_t>(samples[0]);
    for (int shift = 24; shift >= 0; shift -= 8)
        *out++ = static_cast<unsigned char>(first >> shift);
    std::uint32_t before = 0;
    for (std::size_t block = 0; block < count; block += 20) {
        std::uint32_t values[20], largest[5] = {}, all = 0;
        for (std::size_t i = 0; i < 20; ++i) {
            const auto here = static_cast<std::uint32_t>(samples[block + i]);
            const std::uint32_t next = block + i + 1 < count
                                           ? static_cast<std::uint32_t>(samples[block + i + 1])
                                           : 0x80000000U;
            const std::uint32_t difference = next - here;
            values[i] = difference - before;
            before = difference;
            const auto value = static_cast<std::int32_t>(values[i]);
            const auto size = static_cast<std::uint32_t>(value < 0 ? -(value + 1) : value);
            largest[i / 4] |= size;
            all |= size;
        }
        const int flag = all >> 17 != 0;
        unsigned bits = static_cast<unsigned>(flag);
        for (int group = 0; group < 5; ++group) {
            const int code = code_for(largest[group], flag);
            bits = bits << 3 | static_cast<unsigned>(code);
            out = put(out, values + 4 * group, kWidths[flag][code]);
        }
        *key++ = static_cast<unsigned char>(bits >> 8);
        *key++ = static_cast<unsigned char>(bits);
    }
    return static_cast<std::size_t>(out - bytes.data());
}

void decode(const Bytes& bytes, Samples& samples) {
    const std::size_t count = samples.size() - 1;
    const unsigned char *key = bytes.data(), *in = key + count / 10;
    std::uint32_t sample = 0, difference = 0;
    for (int i = 0; i < 4; ++i) sample = sample << 8 | *in++;
    std::int32_t* out = samples.data();
    *out++ = static_cast<std::int32_t>(sample);
    for (std::size_t block = 0; block < count; block += 20, key += 2) {
        const unsigned bits = static_cast<unsigned>(key[0]) << 8 | key[1];
        for (int group = 0; group < 5; ++group) {
            const int width = kWidths[bits >> 15][bits >> (12 - 3 * group) & 7];
            std::uint64_t word = 0;
            int held = 0;
            for (int i = 0; i < 4; ++i) {
                for (; held < width; held += 8) word = word << 8 | *in++;
                held -= width;
                const auto raised = static_cast<std::uint32_t>(word >> held) << (32 - width);
                difference +=
                    static_cast<std::uint32_t>(static_cast<std::int32_t>(raised) >> (32 - width));
                sample += difference;
                *out++ = static_cast<std::int32_t>(sample);
            }
        }
    }
}

}  // namespace plain

Bytes packed(const Samples& samples) {
    Bytes bytes(samples.size() * 5);
    bytes.resize(plain::encode(samples, bytes));
    return bytes;
}

void encode_morva(benchmark::State& state, const Samples& samples) {
    unsigned char* bytes = nullptr;
    int nbytes = 0, size = 0;
    const auto encode = [&] {
        ccanada(samples.data(), static_cast<int>(samples.size()), &bytes, &nbytes, &size);
    };
    encode();
    bench::measure(state, samples.size(), nbytes, encode);
    std::free(bytes);
}

void encode_plain(benchmark::State& state, const Samples& samples) {
    Bytes bytes(samples.size() * 5);
    const auto size = static_cast<double>(plain::encode(samples, bytes));
    bench::measure(state, samples.size(), size, [&] { plain::encode(samples, bytes); });
}

void decode_morva(benchmark::State& state, const Samples& samples) {
    const Bytes bytes = packed(samples);
    const auto nbytes = static_cast<int>(bytes.size());
    std::int32_t* decoded = nullptr;
    int nsamp = static_cast<int>(samples.size()), size = 0;
    const auto decode = [&] { ucanada(bytes.data(), nbytes, &decoded, &nsamp, &size); };
    decode();
    if (!std::equal(samples.begin(), samples.end(), decoded))
        state.SkipWithError("decoded wrongly");
    bench::measure(state, samples.size(), nbytes, decode);
    std::free(decoded);
}

void decode_plain(benchmark::State& state, const Samples& samples) {
    const Bytes bytes = packed(samples);
    Samples decoded(samples.size() + 1);
    bench::measure(state, samples.size(), static_cast<double>(bytes.size()),
                   [&] { plain::decode(bytes, decoded); });
    if (!std::equal(samples.begin(), samples.end(), decoded.begin()))
        state.SkipWithError("decoded wrongly");
}

const bool g_registered = [] {
    using Run = void (*)(benchmark::State&, const Samples&);
    const std::tuple<const char*, const char*, Run> rows[] = {
        {"ccanada", "morva", encode_morva},
        {"ccanada", "plain scalar", encode_plain},
        {"ucanada", "morva", decode_morva},
        {"ucanada", "plain scalar", decode_plain}};
    for (const auto& [what, who, run] : rows)
        for (bench::Work& work : bench::works())
            benchmark::RegisterBenchmark(
                (std::string(what) + " " + work.name + " : " + who).c_str(),
                [&work, run = run](benchmark::State& state) { run(state, work.samples()); });
    return true;
}();

}  // namespace
