// The kernel of the encoder for AVX2: eight values at a time.
#include "codec/cm6_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <cstring>

#include "base/simd.hpp"
#include "codec/cm6_encode_vectors.hpp"

namespace morva {

using namespace cm6code;

namespace {

// Stores the low bytes of up to four words one behind the other.
MORVA_AVX2 inline std::uint8_t* store_words(__m256i words, __m256i lengths, std::uint8_t* out) {
    alignas(32) std::uint64_t word[4], length[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(word), words);
    _mm256_store_si256(reinterpret_cast<__m256i*>(length), lengths);
    for (int i = 0; i < 4; ++i) {
        std::memcpy(out, &word[i], sizeof word[i]);
        out += length[i];
    }
    return out;
}

// The number of characters of eight magnitudes.
MORVA_AVX2 inline __m256i lengths_of(__m256i magnitudes) {
    // Compares are signed: 2^31, the magnitude of the most negative value, counts as 2^31 - 1.
    const __m256i limited = _mm256_min_epu32(magnitudes, _mm256_set1_epi32(INT32_MAX));
    __m256i lengths = _mm256_set1_epi32(1);
    for (int bits = 4; bits < 31; bits += 5)
        lengths = _mm256_sub_epi32(lengths,
                                   _mm256_cmpgt_epi32(limited, _mm256_set1_epi32((1 << bits) - 1)));
    return lengths;
}

// The same for magnitudes that need at most four.
MORVA_AVX2 inline __m256i short_lengths_of(__m256i magnitudes) {
    const auto longer_than = [&](int bits) MORVA_AVX2 {
        return _mm256_cmpgt_epi32(magnitudes, _mm256_set1_epi32((1 << bits) - 1));
    };
    const __m256i longer =
        _mm256_add_epi32(longer_than(4), _mm256_add_epi32(longer_than(9), longer_than(14)));
    return _mm256_sub_epi32(_mm256_set1_epi32(1), longer);
}

// Spreads groups of ten bits in each half of 32 bits, the upper one first, over two bytes of five
// bits each: the last two steps of taking a number apart into characters.
MORVA_AVX2 inline __m256i spread_twenty_bits(__m256i numbers) {
    const __m256i tens = _mm256_or_si256(
        _mm256_srli_epi32(numbers, 10),
        _mm256_and_si256(_mm256_slli_epi32(numbers, 16), _mm256_set1_epi32(0x03ff0000)));
    return _mm256_or_si256(
        _mm256_and_si256(_mm256_srli_epi32(tens, 5), _mm256_set1_epi32(0x001f001f)),
        _mm256_and_si256(_mm256_slli_epi32(tens, 8), _mm256_set1_epi32(0x1f001f00)));
}

// Eight values of at most four characters: 32 bits hold the codes of each. Neighbours are joined,
// so that one store writes two values.
MORVA_AVX2 inline std::uint8_t* put_short(__m256i magnitudes, __m256i signs, std::uint8_t* out) {
    const __m256i lengths = short_lengths_of(magnitudes);
    const __m256i bits = _mm256_slli_epi32(lengths, 3);
    // The first character's group of five bits is moved to the top of twenty.
    const __m256i unused = _mm256_sub_epi32(
        _mm256_set1_epi32(20), _mm256_add_epi32(lengths, _mm256_slli_epi32(lengths, 2)));
    __m256i codes = spread_twenty_bits(_mm256_sllv_epi32(magnitudes, unused));
    const __m256i continues = _mm256_srlv_epi32(_mm256_set1_epi32(0x20202020),
                                                _mm256_sub_epi32(_mm256_set1_epi32(40), bits));
    codes = _mm256_or_si256(codes, _mm256_or_si256(continues, signs));

    const __m256i low = _mm256_set1_epi64x(0xffffffff);
    const __m256i joined = _mm256_or_si256(
        _mm256_and_si256(codes, low),
        _mm256_sllv_epi64(_mm256_srli_epi64(codes, 32), _mm256_and_si256(bits, low)));
    const __m256i joined_lengths =
        _mm256_and_si256(_mm256_add_epi32(lengths, _mm256_srli_epi64(lengths, 32)), low);
    return store_words(joined, joined_lengths, out);
}

// Four values of any size, each in 64 bits.
MORVA_AVX2 inline std::uint8_t* put_four(__m128i magnitudes, __m128i lengths, __m128i signs,
                                         std::uint8_t* out) {
    const __m256i length = _mm256_cvtepu32_epi64(lengths);
    const __m256i unused = _mm256_sub_epi64(_mm256_set1_epi64x(40),
                                            _mm256_add_epi64(length, _mm256_slli_epi64(length, 2)));
    const __m256i number = _mm256_sllv_epi64(_mm256_cvtepu32_epi64(magnitudes), unused);
    const __m256i twenties = _mm256_or_si256(
        _mm256_srli_epi64(number, 20),
        _mm256_slli_epi64(_mm256_and_si256(number, _mm256_set1_epi64x(0xfffff)), 32));
    const __m256i continues =
        _mm256_srlv_epi64(_mm256_set1_epi64x(0x2020202020202020),
                          _mm256_sub_epi64(_mm256_set1_epi64x(72), _mm256_slli_epi64(length, 3)));
    const __m256i codes = _mm256_or_si256(spread_twenty_bits(twenties),
                                          _mm256_or_si256(continues, _mm256_cvtepu32_epi64(signs)));
    return store_words(codes, length, out);
}

MORVA_AVX2 inline std::uint8_t* put_values(__m256i values, std::uint8_t* out) {
    const __m256i magnitudes = _mm256_abs_epi32(values);
    const __m256i signs =
        _mm256_and_si256(_mm256_srli_epi32(values, 27), _mm256_set1_epi32(kNegative));
    if (_mm256_testz_si256(magnitudes, _mm256_set1_epi32(~0x7ffff)))
        return put_short(magnitudes, signs, out);
    const __m256i lengths = lengths_of(magnitudes);
    out = put_four(_mm256_castsi256_si128(magnitudes), _mm256_castsi256_si128(lengths),
                   _mm256_castsi256_si128(signs), out);
    return put_four(_mm256_extracti128_si256(magnitudes, 1), _mm256_extracti128_si256(lengths, 1),
                    _mm256_extracti128_si256(signs, 1), out);
}

MORVA_AVX2 inline __m256i load(const std::int32_t* samples) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples));
}

// Where the alphabet jumps: characters are codes plus 46, but for the two signs in front, and
// letters lie behind a gap, small ones behind two.
MORVA_AVX2 inline __m256i characters(__m256i codes) {
    const auto above = [&](char limit, char step) MORVA_AVX2 {
        return _mm256_and_si256(_mm256_cmpgt_epi8(codes, _mm256_set1_epi8(limit)),
                                _mm256_set1_epi8(step));
    };
    const __m256i from_plus = _mm256_add_epi8(codes, _mm256_set1_epi8('+'));
    const __m256i signs = _mm256_add_epi8(above(0, 1), above(1, 2));
    return _mm256_add_epi8(_mm256_add_epi8(from_plus, signs),
                           _mm256_add_epi8(above(11, 'A' - '9' - 1), above(37, 'a' - 'Z' - 1)));
}
static_assert(Encode[0] == '+' && Encode[1] == '+' + 1 + 1 && Encode[2] == '+' + 2 + 3);

// Writes `count` codes as characters. Reads up to 31 bytes more than that, and writes none more.
MORVA_AVX2 inline void put_line(const std::uint8_t* codes, char* out) {
    static_assert(kLineLength == 80);
    const auto convert = [&](int at) MORVA_AVX2 {
        return characters(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + at)));
    };
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), convert(0));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), convert(32));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 64), _mm256_castsi256_si128(convert(64)));
}

struct Kernel {
    static constexpr std::size_t kBlock = 8;
    MORVA_AVX2 static std::uint8_t* put_block(const std::int32_t* samples, std::uint8_t* out) {
        const __m256i middle = load(samples - 1);
        const __m256i outer = _mm256_add_epi32(load(samples), load(samples - 2));
        return put_values(_mm256_sub_epi32(outer, _mm256_add_epi32(middle, middle)), out);
    }
    MORVA_AVX2 static void write_line(const std::uint8_t* codes, char* out) {
        put_line(codes, out);
    }
};

}  // namespace

MORVA_AVX2 Encoded encode_avx2(const std::int32_t* samples, std::size_t count, char* out) {
    return encode_with<Kernel>(samples, count, out);
}

}  // namespace morva

#else

namespace morva {

Encoded encode_avx2(const std::int32_t* samples, std::size_t count, char* out) {
    return encode_plain(samples, count, out);
}

}  // namespace morva

#endif
