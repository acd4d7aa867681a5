// The AVX2 version of the compressor. It works on planes: words of which bit i says something about
// the difference at place i of a chunk.
//
//   1. For each class, which differences are narrower than it.
//   2. For each pair of classes, where a run of the first may give way to one of the second: where
//      all differences that the look-ahead sees are narrow enough. Together these tell for each
//      class where a run of it ends.
//   3. Runs are found by looking for the next bit, and packed eight values at a time.
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
#include "codec/ucsd_run_writer.hpp"

namespace morva::ucsd {
namespace {

constexpr int kClassCount = kSampleClass + 1;
constexpr std::size_t kWord = 64;
constexpr std::size_t kWords = 32;
constexpr std::size_t kChunk = kWord * kWords;
constexpr std::size_t kBlock = 8;   // values that are packed together
constexpr std::size_t kSlack = 16;  // samples behind a run that packing may read, and their bytes

using Plane = std::array<std::uint64_t, kWords + 1>;

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

class Chunk {
  public:
    MORVA_AVX2 Chunk(const std::int32_t* samples, std::size_t count)
        : samples_(samples), count_(count), all_(_mm256_setzero_si256()) {
        zeros_.fill(0);
        ones_.fill(~std::uint64_t{0});
        for (int from = 0; from < kClassCount; ++from)
            for (int to = 0; to < kClassCount; ++to)
                choice_[from][to] = to < from    ? &gives_way_[from][to]
                                    : to == from ? &zeros_
                                                 : narrower(to + 1);
        find_narrow(kWords, 0);
    }

    // Moves to the chunk that begins with the difference of sample `first`.
    MORVA_AVX2 void move_to(std::size_t first) {
        first_ = first;
        for (Plane& plane : narrow_) plane[0] = plane[kWords];
        if (first == 1) find_narrow(0, first);
        for (std::size_t word = 1; word <= kWords; ++word) find_narrow(word, first + word * kWord);
        find_ends();
    }

    // The next sample from `i` on, of this chunk, that a run of the class does not take; the first
    // sample behind the chunk when it takes all.
    std::size_t end_of_run(int class_index, std::size_t i) const {
        const Plane& ends = ends_[class_index];
        const std::size_t at = i - first_;
        std::size_t word = at / kWord;
        if (word >= kWords) return i;
        std::uint64_t bits = ends[word] & ~std::uint64_t{0} << at % kWord;
        while (bits == 0) {
            if (++word == kWords) return first_ + kChunk;
            bits = ends[word];
        }
        return first_ + word * kWord + static_cast<std::size_t>(std::countr_zero(bits));
    }

    // The class of the run that begins with a sample which ends one of the given class.
    int next_class(int class_index, std::size_t i) const {
        const std::size_t word = (i - first_) / kWord, bit = (i - first_) % kWord;
        unsigned choices = 0;
        for (int to = 0; to < kClassCount; ++to)
            choices |= static_cast<unsigned>((*choice_[class_index][to])[word] >> bit & 1) << to;
        return std::countr_zero(choices);
    }

    // True when a difference before the end of this chunk needs more than 24 bits.
    MORVA_AVX2 bool too_steep() const {
        const __m256i above = _mm256_set1_epi32(~((1 << (bits_of(kSampleClass) - 1)) - 1));
        return _mm256_testz_si256(all_, above) == 0;
    }

  private:
    // The plane of the differences that are of a class before the given one.
    const Plane* narrower(int class_index) const {
        return class_index > kSampleClass ? &ones_ : &narrow_[class_index];
    }

    // Fills a word of the planes of narrow differences, from the one of sample i on.
    MORVA_AVX2 void find_narrow(std::size_t word, std::size_t i) {
        if (i == 0 || i >= count_) {
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

    // Where a run of class From may give way to one of class To, and all others of To + 1 on.
    template <int From, int To>
    MORVA_AVX2 void find_ends_of(Plane& ends) {
        if constexpr (To < From) {
            const Plane& narrow = narrow_[To + 1];
            Plane& result = gives_way_[From][To];
            for (std::size_t word = 0; word < kWords; ++word) {
                std::uint64_t bits = narrow[word];
                for (int j = 1; j <= differences_to_see(From, To); ++j)
                    bits &= narrow[word] >> j | narrow[word + 1]
                                                    << (kWord - static_cast<unsigned>(j));
                result[word] = bits;
                ends[word] |= bits;
            }
            find_ends_of<From, To + 1>(ends);
        }
    }

    template <int From>
    MORVA_AVX2 void find_ends_of() {
        Plane& ends = ends_[From];
        const Plane& taken = *narrower(From + 1);
        for (std::size_t word = 0; word < kWords; ++word) ends[word] = ~taken[word];
        find_ends_of<From, 0>(ends);
    }

    MORVA_AVX2 void find_ends() {
        find_ends_of<0>();
        find_ends_of<1>();
        find_ends_of<2>();
        find_ends_of<3>();
        find_ends_of<4>();
    }

    const std::int32_t* samples_;
    std::size_t count_;
    std::size_t first_ = 1;
    __m256i all_;  // all sizes or'ed together
    Plane zeros_, ones_;
    std::array<Plane, kClassCount> narrow_;  // differences of a class before this one
    Plane gives_way_[kClassCount][kClassCount];
    std::array<Plane, kClassCount> ends_;
    const Plane* choice_[kClassCount][kClassCount];
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

// Packs values in blocks, the last of which may reach behind the run.
MORVA_AVX2 void pack(const std::int32_t* samples, std::size_t count, int class_index,
                     std::uint8_t* out) {
    const Packing& packing = kPackings[static_cast<std::size_t>(class_index)];
    const __m256i mask = _mm256_set1_epi32(static_cast<std::int32_t>(packing.mask));
    const __m256i of_sample = _mm256_set1_epi32(packing.of_sample);
    const __m128i bits = _mm_cvtsi32_si128(packing.bits);
    const __m256i last_first = _mm256_broadcastsi128_si256(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.last_first.data())));
    for (std::size_t i = 0; i < count; i += kBlock, out += 2 * packing.size) {
        const __m256i here = load(samples + i);
        const __m256i difference = _mm256_sub_epi32(load(samples + i - 1), here);
        const __m256i values =
            _mm256_and_si256(_mm256_blendv_epi8(difference, here, of_sample), mask);
        const __m256i pairs =
            _mm256_or_si256(_mm256_sll_epi64(values, bits), _mm256_srli_epi64(values, 32));
        const __m256i bytes = _mm256_shuffle_epi8(pairs, last_first);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + packing.size),
                         _mm256_extracti128_si256(bytes, 1));
    }
}

class Compressor {
  public:
    Compressor(const std::int32_t* samples, std::size_t count, std::uint8_t* out)
        : samples_(samples), count_(count), writer_(out, samples[0]) {}

    // Writes samples begin..end-1 as runs of a class.
    MORVA_AVX2 void put(std::size_t begin, std::size_t end, int class_index) {
        if (class_index == kSampleClass) check_samples(begin, end);
        for (; begin < end; begin += std::min(kMaxRun, end - begin))
            put_run(begin, std::min(kMaxRun, end - begin), class_index);
    }

    bool lossy() const { return lossy_; }
    std::uint8_t* end() { return writer_.close(); }

  private:
    void check_samples(std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i)
            lossy_ |= !fits(samples_[i], bits_of(kSampleClass));
    }

    MORVA_AVX2 void put_run(std::size_t i, std::size_t count, int class_index) {
        writer_.open(class_index);
        if (i + count + kSlack > count_) {
            for (; count > 0; --count, ++i)
                writer_.push(class_index == kSampleClass ? samples_[i]
                                                         : difference_at(samples_, i));
            return;
        }
        std::uint8_t* const values = writer_.push_many(count);
        pack(samples_ + i, count, class_index, values);
        // What lies in the other half of the last byte belongs to a value behind the run.
        if (count * static_cast<std::size_t>(bits_of(class_index)) % 8 != 0)
            values[run_size(class_index, count) - 1] &= 0xf0;
    }

    const std::int32_t* samples_;
    std::size_t count_;
    RunWriter writer_;
    bool lossy_ = false;
};

}  // namespace

MORVA_AVX2 Compressed compress_avx2(const std::int32_t* samples, std::size_t count, Rule rule,
                                    std::uint8_t* out) {
    Compressor compressor(samples, count, out);
    if (count == 1) return {compressor.end(), false, false, false};
    int current = look_ahead(samples, count, 1, kBeforeFirst, rule);
    if (current == kUndecided) return {out, true, false, false};
    Chunk chunk(samples, count);
    std::size_t begin = 1;  // of the run
    for (std::size_t first = 1; first < count; first += kChunk) {
        chunk.move_to(first);
        const std::size_t limit = std::min(first + kChunk, count);
        std::size_t i = std::max(first, begin + 1);
        while ((i = chunk.end_of_run(current, i)) < limit) {
            compressor.put(begin, i, current);
            const int next = chunk.next_class(current, i);
            if (rule == Rule::kStrict && next < current &&
                i + static_cast<std::size_t>(differences_to_see(current, next)) >= count)
                return {out, true, false, false};
            current = next;
            begin = i++;
        }
        // Whole runs of a long series of equal class are written while they are in the cache.
        const std::size_t whole = (limit - begin - 1) / kMaxRun * kMaxRun;
        compressor.put(begin, begin + whole, current);
        begin += whole;
        if (compressor.lossy() && rule == Rule::kLenient)
            return compress_plain(samples, count, rule, out);
    }
    compressor.put(begin, count, current);
    if (compressor.lossy() && rule == Rule::kLenient)
        return compress_plain(samples, count, rule, out);
    return {compressor.end(), false, compressor.lossy(), chunk.too_steep()};
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
