// The AVX-512 version of the encoder: as the AVX2 version, with four groups in a vector. Widths and
// shifts come from counts of leading zeros, without tables.
#include "codec/ccanada_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/ccanada_code.hpp"
#include "codec/ccanada_vectors.hpp"

namespace morva::canada {

namespace {

constexpr __mmask16 kOddWords = 0xAAAA;
constexpr __mmask8 kEvenPairs = 0x55, kOddPairs = 0xAA;
constexpr int kSmallestWidth = kWidths[0][0];

// Groups, of which a vector holds four, and in every lane all changes between bits of its group.
struct Groups {
    __m512i values, changes;
};

MORVA_AVX512 inline Groups groups_of(__m512i last, __m512i here, __m512i next) {
    const __m512i values =
        _mm512_sub_epi32(_mm512_sub_epi32(next, here), _mm512_sub_epi32(here, last));
    __m512i changes = _mm512_xor_si512(values, _mm512_add_epi32(values, values));
    changes = _mm512_or_si512(changes, _mm512_shuffle_epi32(changes, _MM_PERM_BADC));
    return {values, _mm512_or_si512(changes, _mm512_shuffle_epi32(changes, _MM_PERM_CDAB))};
}

MORVA_AVX512 inline __m512i load_four(const std::int32_t* samples) {
    return _mm512_loadu_si512(samples);
}

MORVA_AVX512 inline __m512i load_one(const std::int32_t* samples) {
    return _mm512_zextsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(samples)));
}

// The width of every lane's group: the bits that it needs, rounded up to steps of one more than
// `rest`.
MORVA_AVX512 inline __m512i widths_of(__m512i changes, __m512i rest) {
    const __m512i bits = _mm512_sub_epi32(_mm512_set1_epi32(32), _mm512_lzcnt_epi32(changes));
    return _mm512_max_epi32(_mm512_andnot_si512(rest, _mm512_add_epi32(bits, rest)),
                            _mm512_set1_epi32(kSmallestWidth));
}

// The values of each group one behind the other, from the top of its sixteen bytes.
MORVA_AVX512 inline __m512i squeezed(__m512i values, __m512i widths) {
    const __m512i width = _mm512_srli_epi64(widths, 32), twice = _mm512_add_epi64(width, width);
    const __m512i full = _mm512_set1_epi64(64), half = _mm512_set1_epi32(32);
    const __m512i first = _mm512_sllv_epi64(values, _mm512_sub_epi64(full, width));
    const __m512i second = _mm512_srlv_epi64(
        _mm512_maskz_sllv_epi32(kOddWords, values, _mm512_sub_epi32(half, widths)), width);
    const __m512i pairs = _mm512_or_si512(first, second);
    const __m512i down =
        _mm512_maskz_srlv_epi64(kEvenPairs, _mm512_unpackhi_epi64(pairs, pairs), twice);
    const __m512i up = _mm512_sllv_epi64(pairs, _mm512_maskz_sub_epi64(kOddPairs, full, twice));
    const __m512i bytes =
        _mm512_broadcast_i32x4(_mm_set_epi8(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
    return _mm512_shuffle_epi8(_mm512_or_si512(up, down), bytes);
}

MORVA_AVX512 inline void store(std::uint8_t* out, __m128i group) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), group);
}

struct Avx512 {
    MORVA_AVX512 static std::uint8_t* encode_block(const std::int32_t* samples, std::uint8_t* key,
                                                   std::uint8_t* data) {
        const std::int32_t* const rest_of_block = samples + 4 * kGroup;
        const Groups four =
            groups_of(load_four(samples - 1), load_four(samples), load_four(samples + 1));
        const Groups one = groups_of(load_one(rest_of_block - 1), load_one(rest_of_block),
                                     load_one(rest_of_block + 1));
        const __m512i too_wide = _mm512_set1_epi32(-1 << kWidestUnflagged);
        const unsigned flag =
            _mm512_test_epi32_mask(_mm512_or_si512(four.changes, one.changes), too_wide) != 0;
        const __m512i rest = _mm512_set1_epi32(flag != 0 ? 3 : 1);
        const __m512i widths_of_four = widths_of(four.changes, rest);
        const __m512i width_of_one = widths_of(one.changes, rest);

        // Five bytes with the widths, group 0 lowest; behind each other's sizes the groups begin.
        const __m512i firsts = _mm512_set_epi32(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 12, 8, 4, 0);
        const __m512i five =
            _mm512_maskz_permutex2var_epi32(0x1F, widths_of_four, firsts, width_of_one);
        const auto widths =
            static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm512_cvtepi32_epi8(five)));
        const std::uint64_t begins = (widths >> 1) * 0x0101010101010100U;
        const auto begin = [&](int group) { return begins >> (8 * group) & 0xFF; };

        const __m512i packed = squeezed(four.values, widths_of_four);
        store(data, _mm512_castsi512_si128(packed));
        store(data + begin(1), _mm512_extracti32x4_epi32(packed, 1));
        store(data + begin(2), _mm512_extracti32x4_epi32(packed, 2));
        store(data + begin(3), _mm512_extracti32x4_epi32(packed, 3));
        store(data + begin(4), _mm512_castsi512_si128(squeezed(one.values, width_of_one)));

        const std::uint64_t codes = (widths - 0x0404040404U) >> (1 + flag);
        const auto bits = _pext_u64(swap_bytes(codes) >> 24, 0x0707070707U);
        store_big_endian(key, static_cast<std::uint16_t>(bits | flag << 15));
        return data + begin(5);
    }
};

}  // namespace

MORVA_AVX512 std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys,
                                         std::uint8_t* data) {
    return encode_blocks<Avx512>(series, keys, data);
}

}  // namespace morva::canada

#else

namespace morva::canada {

std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_plain(series, keys, data);
}

}  // namespace morva::canada

#endif
