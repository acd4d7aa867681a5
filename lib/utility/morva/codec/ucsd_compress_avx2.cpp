// The AVX2 version of the compressor. It works on planes: words of which bit i says something about
// the difference at place i of a chunk.
//
//   1. For each class, which differences are narrower than it.
//   2. For each pair of classes, where a run of the first may give way to one of the second: where
//      all differences that the look-ahead sees are narrow enough. Together these tell for each
//      class where a run of it ends, and the class of the run that follows.
//   3. Runs are found by looking for the next bit.
//   4. Their values are packed, eight at a time.
//
// Behind the end of the series all differences count as 0.
#include "codec/ucsd_compress.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "base/simd.hpp"
#include "codec/ucsd_code.hpp"

namespace morva::ucsd {
namespace {

constexpr std::size_t kWord = 64;
constexpr std::size_t kWords = 32;
constexpr std::size_t kChunk = kWord * kWords;
constexpr std::size_t kBlock = 8;   // values that are packed together
constexpr std::size_t kSlack = 32;  // samples behind a run that packing may read, and their bytes

constexpr unsigned kCodeBits = 3;

using Plane = std::array<std::uint64_t, kWords + 1>;

// Words of a plane that are worked on together.
constexpr std::size_t kTogether = 4;
typedef std::uint64_t Words __attribute__((vector_size(kTogether * sizeof(std::uint64_t))));

MORVA_AVX2 inline Words words_at(const Plane& plane, std::size_t word) {
    Words words;
    std::memcpy(&words, &plane[word], sizeof words);
    return words;
}

MORVA_AVX2 inline __m256i load(const std::int32_t* samples) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples));
}

MORVA_AVX2 inline __m256i differences(const std::int32_t* samples) {
    return _mm256_sub_epi32(load(samples - 1), load(samples));
}

// What 32 differences are, each as a number that is not negative and has the same class.
struct Sizes {
    __m256i low, high;  // 16 bits each, of differences 0-3 8-11 4-7 12-15 and the same 16 on
};

MORVA_AVX2 inline Sizes sizes_of(const std::int32_t* samples, __m256i* all) {
    const auto eight = [&](std::size_t at) MORVA_AVX2 {
        const __m256i d = differences(samples + at);
        const __m256i size = _mm256_xor_si256(d, _mm256_srai_epi32(d, 31));
        *all = _mm256_or_si256(*all, size);
        return size;
    };
    const __m256i low = _mm256_packus_epi32(eight(0), eight(8));
    const __m256i high = _mm256_packus_epi32(eight(16), eight(24));
    return {low, high};
}

MORVA_AVX2 inline std::uint32_t to_bits(__m256i low, __m256i high) {
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    return static_cast<std::uint32_t>(
        _mm256_movemask_epi8(_mm256_permutevar8x32_epi32(_mm256_packs_epi16(low, high), order)));
}

// Bit i is set when the size at i needs more bits than the class has.
MORVA_AVX2 inline std::uint32_t wider_than(const Sizes& sizes, int bits) {
    // Compares are signed: what needs more than 15 bits counts as the largest number of 15.
    const __m256i largest = _mm256_set1_epi16(INT16_MAX);
    const __m256i limit = _mm256_set1_epi16(static_cast<std::int16_t>((1 << (bits - 1)) - 1));
    return to_bits(_mm256_cmpgt_epi16(_mm256_min_epu16(sizes.low, largest), limit),
                   _mm256_cmpgt_epi16(_mm256_min_epu16(sizes.high, largest), limit));
}

// A run of a class up to the place where the next one begins.
struct Start {
    std::size_t first;
    int class_index;
};

class Chunk {
  public:
    MORVA_AVX2 Chunk(const std::int32_t* samples, std::size_t count)
        : samples_(samples), count_(count), all_(_mm256_setzero_si256()) {
        find_narrow(kWords, 1);
    }

    // Moves to the chunk that begins with the difference of sample `first`, the one behind the last
    // chunk.
    MORVA_AVX2 void move_to(std::size_t first) {
        first_ = first;
        for (int index = 1; index < kClassCount; ++index)
            narrow_[index][0] = narrow_[index][kWords];
        for (std::size_t word = 1; word <= kWords; ++word) find_narrow(word, first + word * kWord);
        for (std::size_t word = 0; word < kWords; word += kTogether) {
            find_ends<0>(word);
            find_ends<1>(word);
            find_ends<2>(word);
            find_ends<3>(word);
            find_ends<4>(word);
        }
    }

    // Lists the runs that begin in this chunk behind the given one, and returns their number.
    MORVA_AVX2 std::size_t find_runs(const Start& before, Start* starts) const {
        std::size_t n = 0;
        int current = before.class_index;
        for (std::size_t word = 0; word < kWords; ++word) {
            // The places not yet passed: a run takes the one it begins with.
            std::uint64_t left = ~std::uint64_t{before.first == first_ + word * kWord};
            for (std::uint64_t ends; (ends = ends_[current][word] & left) != 0; ++n) {
                const auto bit = static_cast<unsigned>(_tzcnt_u64(ends));
                current = static_cast<int>((code_[0][current][word] >> bit & 1) |
                                           (code_[1][current][word] >> bit & 1) << 1 |
                                           (code_[2][current][word] >> bit & 1) << 2);
                starts[n] = {first_ + word * kWord + bit, current};
                left = ~std::uint64_t{1} << bit;
            }
        }
        return n;
    }

    // True when a difference before the end of this chunk needs more than 24 bits.
    MORVA_AVX2 bool too_steep() const {
        const __m256i above = _mm256_set1_epi32(~((1 << (bits_of(kSampleClass) - 1)) - 1));
        return _mm256_testz_si256(all_, above) == 0;
    }

  private:
    // Fills a word of the planes of narrow differences, from the one of sample i on.
    MORVA_AVX2 void find_narrow(std::size_t word, std::size_t i) {
        if (i >= count_) {
            for (Plane& plane : narrow_) plane[word] = ~std::uint64_t{0};
            return;
        }
        std::int32_t rest[kWord + 1];
        const std::int32_t* samples = samples_ + i;
        if (count_ - i < kWord) {
            std::memcpy(rest, samples - 1, (count_ - i + 1) * sizeof *samples);
            std::fill(rest + (count_ - i + 1), std::end(rest), samples_[count_ - 1]);
            samples = rest + 1;
        }
        const Sizes low = sizes_of(samples, &all_), high = sizes_of(samples + kWord / 2, &all_);
        for (int to = 1; to < kSampleClass; ++to) {
            const int bits = kClasses[to - 1].bits;
            narrow_[to][word] =
                ~(wider_than(low, bits) | std::uint64_t{wider_than(high, bits)} << kWord / 2);
        }
        // The sign bit of sixteen tells the rest.
        narrow_[kSampleClass][word] =
            ~(to_bits(_mm256_srai_epi16(low.low, 15), _mm256_srai_epi16(low.high, 15)) |
              std::uint64_t{
                  to_bits(_mm256_srai_epi16(high.low, 15), _mm256_srai_epi16(high.high, 15))}
                  << kWord / 2);
    }

    // The places whose difference, and all others that the look-ahead then sees, are narrow enough
    // for a run of class To behind one of class From.
    template <int From, int To>
    MORVA_AVX2 Words gives_way(std::size_t word) const {
        const Words here = words_at(narrow_[To + 1], word);
        const Words next = words_at(narrow_[To + 1], word + 1);
        Words places = here;
        for (int j = 1; j <= differences_to_see(From, To); ++j)
            places &= here >> j | next << (static_cast<int>(kWord) - j);
        return places;
    }

    // What is found out about the places where runs of a class end.
    struct Ends {
        Words open;  // those without a class for the next run yet
        Words ends, code[kCodeBits];
    };

    // Narrower classes come first: the first one that is wide enough is the next one.
    template <int From, int To>
    MORVA_AVX2 void choose(std::size_t word, Ends& found) {
        if constexpr (To < kClassCount) {
            if constexpr (To != From) {
                Words places = found.open;
                if constexpr (To < From) places &= gives_way<From, To>(word);
                if constexpr (To > From && To < kSampleClass)
                    places &= words_at(narrow_[To + 1], word);
                if constexpr (To < From) found.ends |= places;
                for (unsigned bit = 0; bit < kCodeBits; ++bit)
                    if ((To >> bit & 1) != 0) found.code[bit] |= places;
                found.open &= ~places;
            }
            choose<From, To + 1>(word, found);
        }
    }

    template <int From>
    MORVA_AVX2 void find_ends(std::size_t word) {
        Ends found = {~Words{}, {}, {}};
        if constexpr (From < kSampleClass) found.ends = ~words_at(narrow_[From + 1], word);
        choose<From, 0>(word, found);
        std::memcpy(&ends_[From][word], &found.ends, sizeof found.ends);
        for (unsigned bit = 0; bit < kCodeBits; ++bit)
            std::memcpy(&code_[bit][From][word], &found.code[bit], sizeof found.code[bit]);
    }

    const std::int32_t* samples_;
    std::size_t count_;
    std::size_t first_ = 1;
    __m256i all_;                         // all sizes or'ed together
    Plane narrow_[kClassCount];           // differences of a class before this one
    Plane ends_[kClassCount];             // where runs of the class end
    Plane code_[kCodeBits][kClassCount];  // the bits of the class that follows there
};

// How eight values of a class become bytes.
struct Packing {
    std::uint32_t mask;      // the bits of a value
    std::int32_t of_sample;  // all bits set when the values are the samples themselves
    std::int32_t bits;
    std::int32_t size;                        // bytes of four values
    std::array<std::uint8_t, 16> last_first;  // moves the bytes of two pairs of values together
};

constexpr std::uint8_t kNothing = 0x80;

constexpr std::array<Packing, kClassCount> kPackings = [] {
    std::array<Packing, kClassCount> packings{};
    for (int index = 0; index < kClassCount; ++index) {
        const int bits = kClasses[index].bits, pair = 2 * bits / 8;
        Packing& packing = packings[static_cast<std::size_t>(index)];
        packing = {(1u << bits) - 1, index == kSampleClass ? -1 : 0, bits, 2 * pair, {}};
        packing.last_first.fill(kNothing);
        for (int i = 0; i < 2 * pair; ++i)
            packing.last_first[static_cast<std::size_t>(i)] =
                static_cast<std::uint8_t>(i / pair * 8 + pair - 1 - i % pair);
    }
    return packings;
}();

// Packs values in pairs of blocks, the last of which may reach behind the run.
MORVA_AVX2 void pack(const std::int32_t* samples, std::size_t count, int class_index,
                     std::uint8_t* out) {
    const Packing& packing = kPackings[static_cast<std::size_t>(class_index)];
    const __m256i mask = _mm256_set1_epi32(static_cast<std::int32_t>(packing.mask));
    const __m256i of_sample = _mm256_set1_epi32(packing.of_sample);
    const __m128i bits = _mm_cvtsi32_si128(packing.bits);
    const __m256i last_first = _mm256_broadcastsi128_si256(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.last_first.data())));
    const auto pack_block = [&](const std::int32_t* block, std::uint8_t* to) MORVA_AVX2 {
        const __m256i here = load(block);
        const __m256i difference = _mm256_sub_epi32(load(block - 1), here);
        const __m256i values =
            _mm256_and_si256(_mm256_blendv_epi8(difference, here, of_sample), mask);
        const __m256i pairs =
            _mm256_or_si256(_mm256_sll_epi64(values, bits), _mm256_srli_epi64(values, 32));
        const __m256i bytes = _mm256_shuffle_epi8(pairs, last_first);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + packing.size),
                         _mm256_extracti128_si256(bytes, 1));
    };
    for (std::size_t i = 0; i < count; i += 2 * kBlock, out += 4 * packing.size) {
        pack_block(samples + i, out);
        pack_block(samples + i + kBlock, out + 2 * packing.size);
    }
}

// The series and the bytes written so far.
struct Output {
    const std::int32_t* samples;
    std::size_t count;
    std::uint8_t* begin;
    bool lossy;
};

MORVA_AVX2 inline std::uint8_t* put_short_run(const Output& output, std::size_t first,
                                              std::size_t count, int class_index,
                                              std::uint8_t* at) {
    if (first + count + kSlack > output.count)
        return put_run(output.samples, first, count, class_index, output.begin, at);
    *at = 0;
    at += (at - output.begin) % 2;
    *at++ = kClasses[class_index].code;
    *at++ = static_cast<std::uint8_t>(count);
    pack(output.samples + first, count, class_index, at);
    at += run_size(class_index, count);
    // What lies in the other half of a half-filled byte belongs to a value behind the run.
    const bool half = count * static_cast<std::size_t>(bits_of(class_index)) % 8 != 0;
    at[-1] &= half ? 0xf0 : 0xff;
    return at;
}

// Writes the samples first..end-1 as runs of a class.
MORVA_AVX2 inline std::uint8_t* put(Output& output, std::size_t first, std::size_t end,
                                    int class_index, std::uint8_t* at) {
    if (class_index == kSampleClass)
        for (std::size_t i = first; i < end; ++i)
            output.lossy |= !fits(output.samples[i], bits_of(kSampleClass));
    for (; end - first > kMaxRun; first += kMaxRun)
        at = put_short_run(output, first, kMaxRun, class_index, at);
    return put_short_run(output, first, end - first, class_index, at);
}

// True when the look-ahead that led from one run to the next met the end of the series.
bool saw_the_end(const Start& start, int before, std::size_t count) {
    return start.class_index < before &&
           start.first + static_cast<std::size_t>(differences_to_see(before, start.class_index)) >=
               count;
}

}  // namespace

MORVA_AVX2 Compressed compress_avx2(const std::int32_t* samples, std::size_t count, Rule rule,
                                    std::uint8_t* out) {
    std::uint8_t* at = put_first(samples[0], out);
    if (count == 1) return {at, false, false, false};
    Start run = {1, look_ahead(samples, count, 1, kBeforeFirst, rule)};
    if (run.class_index == kUndecided) return {out, true, false, false};
    Output output = {samples, count, out, false};
    Chunk chunk(samples, count);
    Start starts[kChunk];
    for (std::size_t first = 1; first < count; first += kChunk) {
        chunk.move_to(first);
        const std::size_t n = chunk.find_runs(run, starts);
        for (std::size_t i = 0; i < n && starts[i].first < count; ++i) {
            if (rule == Rule::kStrict && saw_the_end(starts[i], run.class_index, count))
                return {out, true, false, false};
            at = put(output, run.first, starts[i].first, run.class_index, at);
            run = starts[i];
        }
        // Whole runs of a long series of one class are written while they are in the cache.
        for (; std::min(first + kChunk, count) - run.first > kMaxRun; run.first += kMaxRun)
            at = put(output, run.first, run.first + kMaxRun, run.class_index, at);
        if (output.lossy && rule == Rule::kLenient) break;
    }
    at = put(output, run.first, count, run.class_index, at);
    if (output.lossy && rule == Rule::kLenient) return compress_plain(samples, count, rule, out);
    return {at, false, output.lossy, chunk.too_steep()};
}

}  // namespace morva::ucsd

#else

namespace morva::ucsd {

Compressed compress_avx2(const std::int32_t* samples, std::size_t count, Rule rule,
                         std::uint8_t* out) {
    return compress_plain(samples, count, rule, out);
}

}  // namespace morva::ucsd

#endif
