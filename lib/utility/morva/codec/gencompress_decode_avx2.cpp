// The AVX2 version of the decoder. Values of up to 25 bits fit, wherever they begin in a byte, into
// the four bytes around them, and eight values of w bits are w bytes: one shuffle and two shifts,
// the same for the whole block, unpack eight at a time. Running sums make samples of them.
#include "codec/gencompress_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"
#include "codec/gencompress_vectors.hpp"

namespace morva::gen {

namespace {

constexpr std::size_t kVector = 8;  // values

// How four values come out of the bytes around them: which bytes make a lane, and by how much they
// are shifted up to lose the bits before the value.
struct Unpacking {
    std::uint8_t bytes[16];
    std::uint32_t up[4];
};

// By width and the bit of the first byte, from its top, that the first value begins at.
constexpr auto kUnpackings = [] {
    std::array<std::array<Unpacking, 8>, kWidestNarrow + 1> rows{};
    for (std::size_t width = 0; width <= kWidestNarrow; ++width)
        for (std::size_t start = 0; start < 8; ++start)
            for (std::size_t i = 0; i < 4; ++i) {
                const std::size_t bit = start + i * width;
                Unpacking& row = rows[width][start];
                row.up[i] = static_cast<std::uint32_t>(bit % 8);
                for (std::size_t byte = 0; byte < 4; ++byte)
                    row.bytes[4 * i + byte] = static_cast<std::uint8_t>(bit / 8 + 3 - byte);
            }
    return rows;
}();

MORVA_AVX2 inline __m256i joined(const void* low, const void* high) {
    return _mm256_loadu2_m128i(static_cast<const __m128i*>(high), static_cast<const __m128i*>(low));
}

// Unpacks at least `count` values of 1 to 25 bits that begin at a bit of data[0].
MORVA_AVX2 inline void unpack_narrow(const std::uint8_t* data, std::size_t start, std::size_t width,
                                     std::size_t count, std::int32_t* values) {
    const std::size_t middle = start + 4 * width;
    const Unpacking& low = kUnpackings[width][start];
    const Unpacking& high = kUnpackings[width][middle % 8];
    const __m256i bytes = joined(low.bytes, high.bytes), up = joined(low.up, high.up);
    const __m128i down = _mm_cvtsi32_si128(static_cast<int>(32 - width));
    for (std::size_t i = 0; i < count; i += kVector, data += width) {
        const __m256i lanes = _mm256_shuffle_epi8(joined(data, data + middle / 8), bytes);
        _mm256_store_si256(reinterpret_cast<__m256i*>(values + i),
                           _mm256_sra_epi32(_mm256_sllv_epi32(lanes, up), down));
    }
}

MORVA_AVX2 inline __m256i running_sums(__m256i values) {
    values = _mm256_add_epi32(values, _mm256_slli_si256(values, 4));
    values = _mm256_add_epi32(values, _mm256_slli_si256(values, 8));
    const __m256i low = _mm256_permute2x128_si256(values, values, 0x08);
    return _mm256_add_epi32(values, _mm256_shuffle_epi32(low, _MM_SHUFFLE(3, 3, 3, 3)));
}

MORVA_AVX2 inline __m256i last_of(__m256i values) {
    return _mm256_permutevar8x32_epi32(values, _mm256_set1_epi32(7));
}

// Makes samples of at least `count` values; the two samples before them are read.
template <unsigned order>
MORVA_AVX2 inline void integrate(const std::int32_t* values, std::size_t count,
                                 std::int32_t* samples) {
    __m256i sample = _mm256_set1_epi32(samples[-1]);
    __m256i difference = _mm256_sub_epi32(sample, _mm256_set1_epi32(samples[-2]));
    for (std::size_t i = 0; i < count; i += kVector) {
        __m256i result = _mm256_load_si256(reinterpret_cast<const __m256i*>(values + i));
        if constexpr (order == kSecondDifferences) {
            const __m256i sums = running_sums(result);
            result = _mm256_add_epi32(sums, difference);
            difference = _mm256_add_epi32(difference, last_of(sums));
        }
        if constexpr (order != kSamples) {
            const __m256i sums = running_sums(result);
            result = _mm256_add_epi32(sums, sample);
            sample = _mm256_add_epi32(sample, last_of(sums));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(samples + i), result);
    }
}

struct Avx2 {
    static constexpr std::size_t kVector = gen::kVector;
    MORVA_AVX2 static void unpack(const std::uint8_t* data, std::size_t start, std::size_t width,
                                  std::size_t count, std::int32_t* values) {
        unpack_narrow(data, start, width, count, values);
    }
    MORVA_AVX2 static void integrate(unsigned order, const std::int32_t* values, std::size_t count,
                                     std::int32_t* samples) {
        if (order == kSecondDifferences)
            gen::integrate<kSecondDifferences>(values, count, samples);
        else if (order == kDifferences)
            gen::integrate<kDifferences>(values, count, samples);
        else
            gen::integrate<kSamples>(values, count, samples);
    }
};

}  // namespace

MORVA_AVX2 void decode_avx2(const Source& source, std::int32_t* samples) {
    decode_blocks<Avx2>(source, samples);
}

}  // namespace morva::gen

#else

namespace morva::gen {

void decode_avx2(const Source& source, std::int32_t* samples) {
    decode_plain(source, samples);
}

}  // namespace morva::gen

#endif
