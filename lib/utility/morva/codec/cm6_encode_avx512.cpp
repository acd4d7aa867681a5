// The kernel of the encoder for AVX-512: sixteen values at a time. All places that a value may take
// are filled, least significant bits last, and those that it needs are then moved together.
#include "codec/cm6_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>
#include <bit>

#include "base/simd.hpp"
#include "codec/cm6_encode_vectors.hpp"

namespace morva {

using namespace cm6code;

namespace {

constexpr int kShort = 4;  // characters of a value whose places are 32 bits, otherwise 64
constexpr std::int32_t kShortValues = (1 << 19) - 1;

// What the places of a value are: the ones that it needs have the top bit set, and the first of
// these the bit of the sign.
constexpr std::uint8_t kNeeded = 128;

template <class Places>
constexpr Places places_of(int characters) {
    constexpr int kAll = sizeof(Places);
    Places places = 0;
    for (int place = kAll - characters; place < kAll; ++place) {
        const int bits = place == kAll - characters ? kNeeded | kNegative : kNeeded;
        places |= static_cast<Places>(bits) << 8 * place;
    }
    return places;
}
static_assert(places_of<std::uint32_t>(2) == 0x80900000);

// By the zero bits before a magnitude of 32 bits, of which at least one counts as set.
constexpr auto kLengths = [] {
    std::array<std::uint32_t, 32> lengths{};
    for (std::size_t zeros = 0; zeros < 32; ++zeros)
        lengths[zeros] = static_cast<std::uint32_t>(characters_of(~0U >> zeros));
    return lengths;
}();
constexpr auto kShortPlaces = [] {
    std::array<std::uint32_t, 32> places{};
    for (std::size_t zeros = 0; zeros < 32; ++zeros)
        if (kLengths[zeros] <= kShort)
            places[zeros] = places_of<std::uint32_t>(static_cast<int>(kLengths[zeros]));
    return places;
}();

// By the number of characters.
constexpr auto kLongPlaces = [] {
    std::array<std::uint64_t, kMaxCharacters + 1> places{};
    for (int length = 1; length <= kMaxCharacters; ++length)
        places[static_cast<std::size_t>(length)] = places_of<std::uint64_t>(length);
    return places;
}();

// Which bits of 64 go to which place: five for each, of one value or of two.
constexpr std::int64_t kLongShifts = 0x00050A0F14191E23;
constexpr std::int64_t kShortShifts = 0x20252A2F00050A0F;
constexpr std::int64_t kLongContinues = 0x0020202020202020;
constexpr std::int32_t kShortContinues = 0x00202020;

MORVA_AVX512 inline __m512i looked_up(const std::array<std::uint32_t, 32>& table, __m512i places) {
    return _mm512_permutex2var_epi32(_mm512_loadu_si512(table.data()), places,
                                     _mm512_loadu_si512(table.data() + 16));
}

// Codes but for the sign, from magnitudes.
MORVA_AVX512 inline __m512i codes_of(__m512i magnitudes, std::int64_t shifts, __m512i continues) {
    const __m512i bits = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(shifts), magnitudes);
    return _mm512_or_si512(_mm512_and_si512(bits, _mm512_set1_epi8(31)), continues);
}

// Writes the codes at the places that are needed.
MORVA_AVX512 inline std::uint8_t* store(__m512i codes, __m512i places, std::uint8_t* out) {
    const std::uint64_t needed = _mm512_movepi8_mask(places);
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(needed, codes));
    return out + std::popcount(needed);
}

MORVA_AVX512 inline std::uint8_t* put_short(__m512i magnitudes, __m512i zeros, __mmask16 negative,
                                            std::uint8_t* out) {
    const __m512i places = looked_up(kShortPlaces, zeros);
    const __m512i signs = _mm512_maskz_and_epi32(negative, places, _mm512_set1_epi8(kNegative));
    const __m512i codes = codes_of(magnitudes, kShortShifts, _mm512_set1_epi32(kShortContinues));
    return store(_mm512_or_si512(codes, signs), places, out);
}

MORVA_AVX512 inline std::uint8_t* put_long(__m256i magnitudes, __m256i lengths, __mmask8 negative,
                                           std::uint8_t* out) {
    const __m512i places = _mm512_permutexvar_epi64(_mm512_cvtepu32_epi64(lengths),
                                                    _mm512_loadu_si512(kLongPlaces.data()));
    const __m512i signs = _mm512_maskz_and_epi64(negative, places, _mm512_set1_epi8(kNegative));
    const __m512i codes =
        codes_of(_mm512_cvtepu32_epi64(magnitudes), kLongShifts, _mm512_set1_epi64(kLongContinues));
    return store(_mm512_or_si512(codes, signs), places, out);
}

MORVA_AVX512 inline __m512i load(const std::int32_t* samples) {
    return _mm512_loadu_si512(samples);
}

struct Kernel {
    static constexpr std::size_t kBlock = 16;

    MORVA_AVX512 static std::uint8_t* put_block(const std::int32_t* samples, std::uint8_t* out) {
        const __m512i middle = load(samples - 1);
        const __m512i outer = _mm512_add_epi32(load(samples), load(samples - 2));
        const __m512i values = _mm512_sub_epi32(outer, _mm512_add_epi32(middle, middle));
        const __m512i magnitudes = _mm512_abs_epi32(values);
        const __mmask16 negative = _mm512_cmplt_epi32_mask(values, _mm512_setzero_si512());
        const __m512i zeros = _mm512_lzcnt_epi32(_mm512_or_si512(magnitudes, _mm512_set1_epi32(1)));
        if (_mm512_cmpgt_epu32_mask(magnitudes, _mm512_set1_epi32(kShortValues)) == 0)
            return put_short(magnitudes, zeros, negative, out);
        const __m512i lengths = looked_up(kLengths, zeros);
        out = put_long(_mm512_castsi512_si256(magnitudes), _mm512_castsi512_si256(lengths),
                       static_cast<__mmask8>(negative), out);
        return put_long(_mm512_extracti64x4_epi64(magnitudes, 1),
                        _mm512_extracti64x4_epi64(lengths, 1), static_cast<__mmask8>(negative >> 8),
                        out);
    }

    MORVA_AVX512 static void write_line(const std::uint8_t* codes, char* out) {
        static_assert(kLineLength == 80);
        const __m512i alphabet = _mm512_loadu_si512(Encode);
        const __m512i rest =
            _mm512_castsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(codes + 64)));
        _mm512_storeu_si512(out, _mm512_permutexvar_epi8(_mm512_loadu_si512(codes), alphabet));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 64),
                         _mm512_castsi512_si128(_mm512_permutexvar_epi8(rest, alphabet)));
    }
};

}  // namespace

MORVA_AVX512 Encoded encode_avx512(const std::int32_t* samples, std::size_t count, char* out) {
    return encode_with<Kernel>(samples, count, out);
}

}  // namespace morva

#else

namespace morva {

Encoded encode_avx512(const std::int32_t* samples, std::size_t count, char* out) {
    return encode_plain(samples, count, out);
}

}  // namespace morva

#endif
