// The AVX2 version of the encoder. A group is a vector of four; its values are squeezed together
// with PEXT, and stored as 16 bytes whatever their width: the next group overwrites what is too
// much.
#include "codec/ccanada_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/bit_field.hpp"
#include "codec/ccanada_code.hpp"

namespace morva::canada {

namespace {

// The low bits of both halves of a word, by width.
constexpr auto kPairMasks = [] {
    std::array<std::uint64_t, 33> masks{};
    for (int width = 0; width <= 32; ++width)
        masks[static_cast<std::size_t>(width)] = low_bits(width) * 0x100000001U;
    return masks;
}();

MORVA_AVX2 inline __m128i load(const std::int32_t* samples) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples));
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

// Stores four values of a width, and zeros up to 16 bytes.
MORVA_AVX2 inline void store_group(__m128i values, unsigned width, std::uint8_t* out) {
    const __m128i swapped = _mm_shuffle_epi32(values, _MM_SHUFFLE(2, 3, 0, 1));
    const std::uint64_t mask = kPairMasks[width];
    const unsigned rest = 64 - 2 * width;
    const std::uint64_t front =
        _pext_u64(static_cast<std::uint64_t>(_mm_cvtsi128_si64(swapped)), mask) << rest;
    const std::uint64_t back =
        _pext_u64(static_cast<std::uint64_t>(_mm_extract_epi64(swapped, 1)), mask) << rest;
    store_big_endian(out, front | back >> width >> width);
    store_big_endian(out + 8, back << rest);
}

// As the plain encode_block, from the samples: also the one before and the one behind are read.
MORVA_AVX2 inline std::uint8_t* encode_block(const std::int32_t* samples, std::uint8_t* key,
                                             std::uint8_t* data) {
    __m128i values[kGroups];
    std::uint32_t changes[kGroups], all = 0;
    for (std::size_t group = 0; group < kGroups; ++group) {
        values[group] = second_differences(samples + group * kGroup);
        changes[group] = changes_of(values[group]);
        all |= changes[group];
    }
    const unsigned flag = all >> kWidestUnflagged != 0;
    unsigned bits = flag;
    for (std::size_t group = 0; group < kGroups; ++group) {
        const auto needed = static_cast<unsigned>(std::bit_width(changes[group]));
        const unsigned code = kCodes[flag][needed];
        bits = bits << 3 | code;
        store_group(values[group], kWidths[flag][code], data);
        data += group_size(flag, code);
    }
    store_big_endian(key, static_cast<std::uint16_t>(bits));
    return data;
}

}  // namespace

MORVA_AVX2 std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    for (std::size_t block = 0; block < series.blocks; ++block) {
        const std::int32_t* samples = series.samples + block * kBlock;
        std::uint8_t* const key = keys + block * kKeySize;
        const bool is_first = block == 0, is_last = block + 1 == series.blocks;
        if (!is_first && !is_last) {
            data = encode_block(samples, key, data);
            continue;
        }
        std::int32_t framed[1 + kBlock + 1];
        framed[0] = is_first ? samples[0] : samples[-1];
        std::copy_n(samples, kBlock, framed + 1);
        framed[kBlock + 1] = is_last ? series.next : samples[kBlock];
        data = encode_block(framed + 1, key, data);
    }
    return data;
}

}  // namespace morva::canada

#else

namespace morva::canada {

std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_plain(series, keys, data);
}

}  // namespace morva::canada

#endif
