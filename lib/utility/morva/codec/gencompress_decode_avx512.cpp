// The AVX-512 version of the decoder: as the AVX2 version, with sixteen values at a time, and one
// shuffle across the whole vector that brings the bytes of each into its lane.
#include "codec/gencompress_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"
#include "codec/gencompress_vectors.hpp"

namespace morva::gen {

namespace {

constexpr std::size_t kVector = 16;

// The first bits of sixteen values, by width.
constexpr auto kFirstBits = [] {
    std::array<std::array<std::uint32_t, kVector>, kWidestNarrow + 1> bits{};
    for (std::uint32_t width = 0; width <= kWidestNarrow; ++width)
        for (std::uint32_t i = 0; i < kVector; ++i) bits[width][i] = i * width;
    return bits;
}();

// The same byte four times, in each lane of four bytes; and which of four bytes goes where.
constexpr std::int32_t kRepeat[4] = {0x00000000, 0x04040404, 0x08080808, 0x0C0C0C0C};
constexpr std::int32_t kMostSignificantFirst = 0x00010203;

MORVA_AVX512 inline __m512i running_sums(__m512i values) {
    values = _mm512_add_epi32(values, _mm512_bslli_epi128(values, 4));
    values = _mm512_add_epi32(values, _mm512_bslli_epi128(values, 8));
    // The last sums of parts of four: each part adds that of its neighbour, then of the one before.
    const __m512i neighbour = _mm512_set_epi32(11, 11, 11, 11, 7, 7, 7, 7, 3, 3, 3, 3, 0, 0, 0, 0);
    const __m512i second = _mm512_set_epi32(7, 7, 7, 7, 3, 3, 3, 3, 0, 0, 0, 0, 0, 0, 0, 0);
    values = _mm512_add_epi32(values, _mm512_maskz_permutexvar_epi32(0xFFF0, neighbour, values));
    return _mm512_add_epi32(values, _mm512_maskz_permutexvar_epi32(0xFF00, second, values));
}

MORVA_AVX512 inline __m512i last_of(__m512i values) {
    return _mm512_permutexvar_epi32(_mm512_set1_epi32(15), values);
}

struct Avx512 {
    static constexpr std::size_t kVector = gen::kVector;

    MORVA_AVX512 static void unpack(const std::uint8_t* data, std::size_t start, std::size_t width,
                                    std::size_t count, std::int32_t* values) {
        const __m512i bits = _mm512_add_epi32(_mm512_loadu_si512(kFirstBits[width].data()),
                                              _mm512_set1_epi32(static_cast<int>(start)));
        const __m512i repeat =
            _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kRepeat)));
        const __m512i bytes =
            _mm512_add_epi32(_mm512_shuffle_epi8(_mm512_srli_epi32(bits, 3), repeat),
                             _mm512_set1_epi32(kMostSignificantFirst));
        const __m512i up = _mm512_and_si512(bits, _mm512_set1_epi32(7));
        const __m128i down = _mm_cvtsi32_si128(static_cast<int>(32 - width));
        for (std::size_t i = 0; i < count; i += kVector, data += 2 * width) {
            const __m512i lanes = _mm512_permutexvar_epi8(bytes, _mm512_loadu_si512(data));
            _mm512_store_si512(values + i, _mm512_sra_epi32(_mm512_sllv_epi32(lanes, up), down));
        }
    }

    // The order changes from block to block in no foreseeable way: both sums are always made, and
    // masks choose, which is less than a branch foretold wrongly.
    MORVA_AVX512 static void integrate(unsigned order, const std::int32_t* values,
                                       std::size_t count, std::int32_t* samples) {
        const __mmask16 once = order != kSamples ? 0xFFFF : 0;
        const __mmask16 twice = order == kSecondDifferences ? 0xFFFF : 0;
        __m512i sample = _mm512_set1_epi32(samples[-1]);
        __m512i difference = _mm512_sub_epi32(sample, _mm512_set1_epi32(samples[-2]));
        for (std::size_t i = 0; i < count; i += kVector) {
            const __m512i value = _mm512_load_si512(values + i);
            const __m512i first = running_sums(value);
            const __m512i differences = _mm512_mask_add_epi32(value, twice, first, difference);
            difference = _mm512_add_epi32(difference, last_of(first));
            const __m512i second = running_sums(differences);
            _mm512_storeu_si512(samples + i, _mm512_mask_add_epi32(value, once, second, sample));
            sample = _mm512_add_epi32(sample, last_of(second));
        }
    }
};

}  // namespace

MORVA_AVX512 void decode_avx512(const Source& source, std::int32_t* samples) {
    decode_blocks<Avx512>(source, samples);
}

}  // namespace morva::gen

#else

namespace morva::gen {

void decode_avx512(const Source& source, std::int32_t* samples) {
    decode_plain(source, samples);
}

}  // namespace morva::gen

#endif
