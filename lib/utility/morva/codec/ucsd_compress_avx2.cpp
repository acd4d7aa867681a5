// The kernel of the compressor for AVX2: differences by 32, and values packed eight at a time.
#include "codec/ucsd_compress.hpp"

#ifdef __x86_64__

#include "codec/ucsd_compress_vectors.hpp"

namespace morva::ucsd {
namespace {

constexpr std::size_t kBlock = 8;  // values that are packed together

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
MORVA_AVX2 inline void pack_blocks(const std::int32_t* samples, std::size_t count, int class_index,
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

class Kernel {
  public:
    MORVA_AVX2 Kernel() : all_(_mm256_setzero_si256()) {}

    MORVA_AVX2 void narrow(const std::int32_t* samples, std::uint64_t* narrow) {
        const Sizes low = sizes_of(samples, &all_), high = sizes_of(samples + kWord / 2, &all_);
        for (int index = 0; index < kSampleClass - 1; ++index) {
            const int bits = kClasses[index].bits;
            narrow[index] =
                ~(wider_than(low, bits) | std::uint64_t{wider_than(high, bits)} << kWord / 2);
        }
        // The sign bit of sixteen tells the rest.
        narrow[kSampleClass - 1] =
            ~(to_bits(_mm256_srai_epi16(low.low, 15), _mm256_srai_epi16(low.high, 15)) |
              std::uint64_t{
                  to_bits(_mm256_srai_epi16(high.low, 15), _mm256_srai_epi16(high.high, 15))}
                  << kWord / 2);
    }

    MORVA_AVX2 bool too_steep() const {
        const __m256i above = _mm256_set1_epi32(~((1 << (bits_of(kSampleClass) - 1)) - 1));
        return _mm256_testz_si256(all_, above) == 0;
    }

    MORVA_AVX2 static void pack(const std::int32_t* samples, std::size_t count, int class_index,
                                std::uint8_t* out) {
        pack_blocks(samples, count, class_index, out);
    }

  private:
    __m256i all_;  // all sizes or'ed together
};

}  // namespace

MORVA_AVX2 Compressed compress_avx2(const std::int32_t* samples, std::size_t count, Rule rule,
                                    std::uint8_t* out) {
    return compress_with<Kernel>(samples, count, rule, out);
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
