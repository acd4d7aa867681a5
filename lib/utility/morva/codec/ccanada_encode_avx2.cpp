// The AVX2 version of the encoder. A group is a vector of four, which shifts squeeze together. It
// is stored as 16 bytes whatever its width: the next group overwrites what is too much.
#include "codec/ccanada_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>
#include <bit>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/ccanada_code.hpp"
#include "codec/ccanada_vectors.hpp"

namespace morva::canada {

namespace {

// How four values become bits one behind the other, at the top of 16 bytes. In little-endian words
// of 64 bits, of which each holds two values, the first one low:
//
//   first    moves the first of two values to the top, and the second one out
//   clear    moves the second one to the top of its half, and clears the first
//   second   moves the second one down behind the first
//   down     moves the second pair behind the first pair, as far as it fits there
//   up       moves the rest of the second pair to the top
struct alignas(32) Squeezing {
    std::uint64_t first[2];
    std::uint32_t clear[4];
    std::uint64_t second[2];
    std::uint64_t down[2];
    std::uint64_t up[2];
    unsigned code;
    unsigned size;
};

constexpr Squeezing squeezing_of(unsigned flag, unsigned code) {
    const unsigned width = kWidths[flag][code], half = 32 - width;
    return {{64 - width, 64 - width},
            {32, half, 32, half},
            {width, width},
            {2 * width, 64},
            {0, 64 - 2 * width},
            code,
            static_cast<unsigned>(group_size(flag, code))};
}

// By flag, and the number of bits that a group needs less one.
constexpr auto kSqueezings = [] {
    std::array<std::array<Squeezing, 32>, 2> rows{};
    for (unsigned flag = 0; flag < 2; ++flag)
        for (unsigned bits = 1; bits <= 32; ++bits)
            rows[flag][bits - 1] = squeezing_of(flag, kCodes[flag][bits]);
    return rows;
}();

MORVA_AVX2 inline __m128i load(const void* items) {
    return _mm_loadu_si128(static_cast<const __m128i*>(items));
}

// The second differences of four samples, from the ones before to the ones behind them.
MORVA_AVX2 inline __m128i second_differences(const std::int32_t* samples) {
    const __m128i here = load(samples);
    return _mm_sub_epi32(_mm_sub_epi32(load(samples + 1), here),
                         _mm_sub_epi32(here, load(samples - 1)));
}

MORVA_AVX2 inline std::uint32_t changes_of(__m128i values) {
    const __m128i changes = _mm_xor_si128(values, _mm_add_epi32(values, values));
    const __m128i halves = _mm_or_si128(changes, _mm_unpackhi_epi64(changes, changes));
    const auto pair = static_cast<std::uint64_t>(_mm_cvtsi128_si64(halves));
    return static_cast<std::uint32_t>(pair | pair >> 32);
}

// Stores four values, and zeros up to 16 bytes.
MORVA_AVX2 inline void store_group(__m128i values, const Squeezing& how, std::uint8_t* out) {
    const __m128i bytes = _mm_set_epi8(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7);
    const __m128i first = _mm_sllv_epi64(values, load(how.first));
    const __m128i second =
        _mm_srlv_epi64(_mm_sllv_epi32(values, load(how.clear)), load(how.second));
    const __m128i pairs = _mm_or_si128(first, second);
    const __m128i down = _mm_srlv_epi64(_mm_unpackhi_epi64(pairs, pairs), load(how.down));
    const __m128i all = _mm_or_si128(_mm_sllv_epi64(pairs, load(how.up)), down);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(all, bytes));
}

struct Avx2 {
    MORVA_AVX2 static std::uint8_t* encode_block(const std::int32_t* samples, std::uint8_t* key,
                                                 std::uint8_t* data) {
        __m128i values[kGroups];
        std::uint32_t changes[kGroups], all = 0;
        for (std::size_t group = 0; group < kGroups; ++group) {
            values[group] = second_differences(samples + group * kGroup);
            changes[group] = changes_of(values[group]);
            all |= changes[group];
        }
        const unsigned flag = all >> kWidestUnflagged != 0;
        const auto& rows = kSqueezings[flag];
        unsigned bits = flag;
        for (std::size_t group = 0; group < kGroups; ++group) {
            const Squeezing& row =
                rows[static_cast<unsigned>(31 - std::countl_zero(changes[group] | 1))];
            store_group(values[group], row, data);
            bits = bits << 3 | row.code;
            data += row.size;
        }
        store_big_endian(key, static_cast<std::uint16_t>(bits));
        return data;
    }
};

}  // namespace

MORVA_AVX2 std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_blocks<Avx2>(series, keys, data);
}

}  // namespace morva::canada

#else

namespace morva::canada {

std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_plain(series, keys, data);
}

}  // namespace morva::canada

#endif
