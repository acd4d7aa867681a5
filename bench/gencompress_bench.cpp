// gencompress of a seismogram, against Steim-2, the packing of miniSEED records: that of libmseed
// where it is installed, and plain scalar code that writes and reads the same frames.
//
//   gencompress N     encode N samples in blocks of 25, with a buffer that is there already
//   genuncompress N   decode them, likewise
#include <algorithm>
#include <cstdlib>

#include "seismogram.hpp"

#ifdef MORVA_PEER_MSEED
extern "C" {
int msr_encode_steim2(std::int32_t* input, int samplecount, std::int32_t* output, int outputlength,
                      std::int32_t diff0, char* srcname, int swapflag);
int msr_decode_steim2(std::int32_t* input, int inputlength, int samplecount, std::int32_t* output,
                      int outputlength, char* srcname, int swapflag);
}
#endif

namespace {

using bench::Samples;
using Frames = std::vector<std::int32_t>;  // of sixteen words, big-endian

constexpr std::size_t kFrame = 16;

// Room for a word for each sample.
std::size_t frames_for(std::size_t count) {
    return ((count + 2) / 15 + 1) * kFrame;
}

namespace steim {

// How many differences of how many bits a word holds, the code of the word in its frame, and the
// two bits on top of it.
struct Packing {
    int count, bits;
    unsigned code;
    int top;
};
constexpr Packing kPackings[] = {{7, 4, 3, 2},  {6, 5, 3, 1},  {5, 6, 3, 0}, {4, 8, 1, -1},
                                 {3, 10, 2, 3}, {2, 15, 2, 2}, {1, 30, 2, 1}};

bool fits(const std::int32_t* differences, const Packing& packing) {
    const std::int32_t limit = 1 << (packing.bits - 1);
    for (int i = 0; i < packing.count; ++i)
        if (differences[i] < -limit || differences[i] >= limit) return false;
    return true;
}

// Words written. The differences behind the last one are zeros.
std::size_t encode(const Samples& samples, Samples& differences, Frames& frames) {
    const std::size_t count = samples.size();
    differences[0] = 0;
    for (std::size_t i = 1; i < count; ++i) differences[i] = samples[i] - samples[i - 1];
    std::size_t done = 0, word = 0;
    std::uint32_t codes = 0;
    for (; done < count; ++word) {
        const std::size_t place = word % kFrame;
        if (place == 0) {
            codes = 0;
            if (word != 0) continue;
            frames[1] = static_cast<std::int32_t>(
                __builtin_bswap32(static_cast<std::uint32_t>(samples[0])));
            frames[2] = static_cast<std::int32_t>(
                __builtin_bswap32(static_cast<std::uint32_t>(samples[count - 1])));
            word = 2;
            continue;
        }
        const Packing* packing = kPackings;
        while (packing->count > 1 && (done + static_cast<std::size_t>(packing->count) > count ||
                                      !fits(&differences[done], *packing)))
            ++packing;
        std::uint32_t bits = packing->top < 0 ? 0 : static_cast<std::uint32_t>(packing->top);
        for (int i = 0; i < packing->count; ++i)
            bits = bits << packing->bits |
                   (static_cast<std::uint32_t>(differences[done + static_cast<std::size_t>(i)]) &
                    ((1U << packing->bits) - 1));
        if (packing->top >= 0 && packing->count == 7) bits = (bits & 0x0FFFFFFF) | 2U << 30;
        done += static_cast<std::size_t>(packing->count);
        codes |= packing->code << (30 - 2 * place);
        frames[word] = static_cast<std::int32_t>(__builtin_bswap32(bits));
        frames[word - place] = static_cast<std::int32_t>(__builtin_bswap32(codes));
    }
    return (word + kFrame - 1) / kFrame * kFrame;
}

const Packing* packing_of(unsigned code, std::uint32_t bits) {
    for (const Packing& packing : kPackings)
        if (packing.code == code &&
            (packing.top < 0 || static_cast<unsigned>(packing.top) == bits >> 30))
            return &packing;
    return nullptr;
}

void decode(const Frames& frames, std::size_t words, Samples& samples) {
    const std::size_t count = samples.size();
    std::uint32_t sample = __builtin_bswap32(static_cast<std::uint32_t>(frames[1]));
    std::size_t done = 0;
    std::uint32_t codes = 0;
    for (std::size_t word = 0; word < words && done < count; ++word) {
        const std::size_t place = word % kFrame;
        const std::uint32_t bits = __builtin_bswap32(static_cast<std::uint32_t>(frames[word]));
        if (place == 0) codes = bits;
        const unsigned code = codes >> (30 - 2 * place) & 3;
        if (place == 0 || code == 0) continue;
        const Packing* packing = packing_of(code, bits);
        if (packing == nullptr) return;
        for (int i = packing->count - 1; i >= 0 && done < count; --i) {
            const std::uint32_t raised = bits >> (i * packing->bits) << (32 - packing->bits);
            if (done > 0)
                sample += static_cast<std::uint32_t>(static_cast<std::int32_t>(raised) >>
                                                     (32 - packing->bits));
            samples[done++] = static_cast<std::int32_t>(sample);
        }
    }
}

}  // namespace steim

void check(benchmark::State& state, const Samples& samples, const std::int32_t* decoded) {
    if (!std::equal(samples.begin(), samples.end(), decoded))
        state.SkipWithError("decoded wrongly");
}

void encode_morva(benchmark::State& state, const Samples& samples) {
    unsigned char* bytes = nullptr;
    int nbytes = 0, size = 0;
    const auto encode = [&] {
        gencompress(&bytes, &nbytes, &size, samples.data(), static_cast<int>(samples.size()), 0);
    };
    encode();
    bench::measure(state, samples.size(), nbytes, encode);
    std::free(bytes);
}

void decode_morva(benchmark::State& state, const Samples& samples) {
    unsigned char* bytes = nullptr;
    std::int32_t* decoded = nullptr;
    int nbytes = 0, size = 0, nsamp = 0, decoded_size = 0;
    gencompress(&bytes, &nbytes, &size, samples.data(), static_cast<int>(samples.size()), 0);
    const auto decode = [&] { genuncompress(&decoded, &nsamp, &decoded_size, bytes, nbytes); };
    decode();
    check(state, samples, decoded);
    bench::measure(state, samples.size(), nbytes, decode);
    std::free(bytes), std::free(decoded);
}

void encode_plain(benchmark::State& state, const Samples& samples) {
    Samples differences(samples.size() + 8);
    Frames frames(frames_for(samples.size()));
    const std::size_t words = steim::encode(samples, differences, frames);
    bench::measure(state, samples.size(), 4.0 * static_cast<double>(words),
                   [&] { steim::encode(samples, differences, frames); });
}

void decode_plain(benchmark::State& state, const Samples& samples) {
    Samples differences(samples.size() + 8), decoded(samples.size());
    Frames frames(frames_for(samples.size()));
    const std::size_t words = steim::encode(samples, differences, frames);
    bench::measure(state, samples.size(), 4.0 * static_cast<double>(words),
                   [&] { steim::decode(frames, words, decoded); });
    check(state, samples, decoded.data());
}

#ifdef MORVA_PEER_MSEED
char g_name[] = "bench";

void encode_mseed(benchmark::State& state, const Samples& samples) {
    Samples input = samples;
    Frames frames(frames_for(samples.size()));
    int packed = 0;
    const auto encode = [&] {
        packed = msr_encode_steim2(input.data(), static_cast<int>(input.size()), frames.data(),
                                   static_cast<int>(4 * frames.size()), 0, g_name, 1);
    };
    bench::measure(state, samples.size(), 0, encode);
    if (packed != static_cast<int>(samples.size())) state.SkipWithError("not all encoded");
}

void decode_mseed(benchmark::State& state, const Samples& samples) {
    Samples differences(samples.size() + 8), decoded(samples.size());
    Frames frames(frames_for(samples.size()));
    const std::size_t words = steim::encode(samples, differences, frames);
    const auto decode = [&] {
        msr_decode_steim2(frames.data(), static_cast<int>(4 * words),
                          static_cast<int>(samples.size()), decoded.data(),
                          static_cast<int>(4 * samples.size()), g_name, 1);
    };
    bench::measure(state, samples.size(), 4.0 * static_cast<double>(words), decode);
    check(state, samples, decoded.data());
}
#endif

const bool g_registered = [] {
    using Run = void (*)(benchmark::State&, const Samples&);
    const std::tuple<const char*, const char*, Run> rows[] = {
        {"gencompress", "morva", encode_morva},
        {"gencompress", "plain Steim-2", encode_plain},
#ifdef MORVA_PEER_MSEED
        {"gencompress", "libmseed Steim-2", encode_mseed},
#endif
        {"genuncompress", "morva", decode_morva},
#ifdef MORVA_PEER_MSEED
        {"genuncompress", "libmseed Steim-2", decode_mseed},
#endif
        {"genuncompress", "plain Steim-2", decode_plain},
    };
    for (const auto& [what, who, run] : rows)
        for (bench::Work& work : bench::works())
            benchmark::RegisterBenchmark(
                (std::string(what) + " " + work.name + " : " + who).c_str(),
                [&work, run = run](benchmark::State& state) { run(state, work.samples()); });
    return true;
}();

}  // namespace
