// The AVX-512 version of the encoder. Values, sixteen at a time, become units of four or two in
// lanes of 64 bits. Shifts and two shuffles bring eight units one behind the other; one more shift,
// across all lanes, puts them behind what is written already.
#include "codec/gencompress_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"
#include "codec/gencompress_encode_vectors.hpp"

namespace morva::gen {

namespace {

constexpr std::size_t kVector = 16;  // values
constexpr int kUnits = 8;            // in a vector
constexpr std::size_t kBytes = 64;   // in a vector

// Values in a unit. Units begin anywhere in a byte and must still fit in 64 bits, which pairs of 31
// bits don't.
constexpr int values_of_unit(int width) {
    return width <= 16 ? 4 : width == 31 ? 1 : 2;
}

// How values of a width become units, and these come one behind the other: shifted up in their
// lanes, so that they begin at the bit of a byte that is theirs, and the bytes then moved. As
// neighbours may share a byte, those of even and odd units are moved apart, and masks tell where
// there are any. Lanes become words whose first byte is the highest.
//
// What is the same for all lanes is read from memory, which takes less than a shuffle.
struct alignas(64) Layout {
    std::uint8_t from[2][kBytes];
    std::uint64_t up[kUnits];
    std::uint64_t mask[2];
    std::uint64_t value;  // the bits of one
    std::uint64_t width, rest, twice;
};

constexpr Layout layout_of(int width) {
    Layout layout{};
    layout.value = low_bits(width);
    layout.width = static_cast<std::uint64_t>(width);
    layout.rest = 32 - layout.width;
    layout.twice = 2 * layout.width;
    const int bits = width * values_of_unit(width);
    for (int unit = 0; unit < kUnits; ++unit) {
        const int first = unit * bits / 8, last = ((unit + 1) * bits - 1) / 8;
        layout.up[unit] = static_cast<std::uint64_t>(64 - bits - unit * bits % 8);
        for (int byte = first; byte <= last; ++byte) {
            const int place = byte ^ 7;
            layout.from[unit % 2][place] = static_cast<std::uint8_t>(8 * unit + 7 - (byte - first));
            layout.mask[unit % 2] |= std::uint64_t{1} << place;
        }
    }
    return layout;
}

// By width.
constexpr auto kLayouts = [] {
    std::array<Layout, 33> layouts{};
    for (int width = 1; width <= 32; ++width)
        layouts[static_cast<std::size_t>(width)] = layout_of(width);
    return layouts;
}();

// Counts of bits, to be read likewise.
constexpr auto kNumbers = [] {
    std::array<std::uint64_t, 64> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
    return numbers;
}();

MORVA_AVX512 inline __m512i in_all_lanes(const std::uint64_t& number) {
    return _mm512_set1_epi64(static_cast<long long>(number));
}

// As narrowest() of gencompress_encode.hpp.
MORVA_AVX512 inline Key narrowest(const __m512i changes[3]) {
    // In each part of four lanes those of order 0, order 1, and twice order 2.
    const __m512i low = _mm512_unpacklo_epi32(changes[0], changes[1]);
    const __m512i high = _mm512_unpackhi_epi32(changes[0], changes[1]);
    const __m512i two = _mm512_or_si512(low, high);
    __m512i third = changes[2];
    third = _mm512_or_si512(third, _mm512_shuffle_epi32(third, _MM_PERM_BADC));
    third = _mm512_or_si512(third, _mm512_shuffle_epi32(third, _MM_PERM_CDAB));
    const __m512i four =
        _mm512_or_si512(_mm512_unpacklo_epi64(two, third), _mm512_unpackhi_epi64(two, third));
    const __m256i half =
        _mm256_or_si256(_mm512_castsi512_si256(four), _mm512_extracti64x4_epi64(four, 1));
    const __m128i all =
        _mm_or_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    // The least of the numbers that have the width on top and below it the order.
    const __m128i unused_bits = _mm_lzcnt_epi32(all);
    const __m128i keys =
        _mm_sub_epi32(_mm_set_epi32(130, 130, 129, 128), _mm_slli_epi32(unused_bits, 2));
    const __m128i least = _mm_minpos_epu16(_mm_packus_epi32(keys, keys));
    const auto best = static_cast<unsigned>(_mm_cvtsi128_si32(least)) & 0xFFFF;
    return {best & 3, static_cast<int>(best >> 2)};
}

MORVA_AVX512 inline __m512i singles_of(const std::uint32_t* values, const Layout& layout) {
    const __m256i eight = _mm256_load_si256(reinterpret_cast<const __m256i*>(values));
    return _mm512_and_si512(_mm512_cvtepu32_epi64(eight), in_all_lanes(layout.value));
}

MORVA_AVX512 inline __m512i pairs_of(const std::uint32_t* values, const Layout& layout) {
    const __m512i both = _mm512_load_si512(values);
    const __m512i first = _mm512_and_si512(both, in_all_lanes(layout.value));
    const __m512i second = _mm512_sllv_epi64(both, in_all_lanes(layout.rest));
    return _mm512_shldv_epi64(first, second, in_all_lanes(layout.width));
}

MORVA_AVX512 inline __m512i fours_of(const std::uint32_t* values, const Layout& layout) {
    const __m512i low = pairs_of(values, layout), high = pairs_of(values + kVector, layout);
    const __m512i even = _mm512_set_epi64(14, 12, 10, 8, 6, 4, 2, 0);
    const __m512i odd = _mm512_set_epi64(15, 13, 11, 9, 7, 5, 3, 1);
    const __m512i first = _mm512_permutex2var_epi64(low, even, high);
    const __m512i second = _mm512_permutex2var_epi64(low, odd, high);
    return _mm512_or_si512(_mm512_sllv_epi64(first, in_all_lanes(layout.twice)), second);
}

class Avx512 {
  public:
    MORVA_AVX512 Avx512(std::uint8_t* out, std::uint8_t* end)
        : out_(out), end_(end), written_(_mm512_setzero_si512()) {}

    MORVA_AVX512 static Key fill(const std::int32_t* samples, std::size_t count, Values& values) {
        __m512i changes[3] = {};
        std::size_t i = 0;
        for (; i + kVector <= count; i += kVector)
            add(_mm512_loadu_si512(samples + i), _mm512_loadu_si512(samples + i - 1),
                _mm512_loadu_si512(samples + i - 2), i, values, changes);
        if (i < count) {
            const auto mask = static_cast<__mmask16>((1U << (count - i)) - 1);
            add(_mm512_maskz_loadu_epi32(mask, samples + i),
                _mm512_maskz_loadu_epi32(mask, samples + i - 1),
                _mm512_maskz_loadu_epi32(mask, samples + i - 2), i, values, changes);
        }
        return narrowest(changes);
    }

    MORVA_AVX512 void put(const std::uint32_t* values, std::size_t count, int width) {
        const Layout& layout = kLayouts[static_cast<std::size_t>(width)];
        const auto together = static_cast<std::size_t>(kUnits * values_of_unit(width));
        for (std::size_t i = 0; i < count; i += together) {
            const __m512i units = together == 32   ? fours_of(values + i, layout)
                                  : together == 16 ? pairs_of(values + i, layout)
                                                   : singles_of(values + i, layout);
            append(units, layout, std::min(together, count - i) * static_cast<std::size_t>(width));
        }
    }

    MORVA_AVX512 std::uint8_t* finish() const {
        if (held_ == 0) return out_;
        const auto bits =
            static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm512_castsi512_si128(written_)));
        *out_ = static_cast<std::uint8_t>(bits << (8 - held_));
        return out_ + 1;
    }

  private:
    // Sixteen samples, the ones before them and those before these.
    MORVA_AVX512 static void add(__m512i here, __m512i last, __m512i before, std::size_t at,
                                 Values& values, __m512i* changes) {
        const __m512i difference = _mm512_sub_epi32(here, last);
        const __m512i of[3] = {here, difference,
                               _mm512_sub_epi32(difference, _mm512_sub_epi32(last, before))};
        for (int order = 0; order < 3; ++order) {
            const __m512i change =
                _mm512_xor_si512(of[order], _mm512_add_epi32(of[order], of[order]));
            _mm512_store_si512(values.of[order] + at, of[order]);
            changes[order] = _mm512_or_si512(changes[order], change);
        }
    }

    // Eight units, of which the first `bits` bits count. What lies behind them is overwritten
    // later.
    MORVA_AVX512 void append(__m512i units, const Layout& layout, std::size_t bits) {
        const __m512i up = _mm512_sllv_epi64(units, _mm512_load_si512(layout.up));
        const __m512i words = _mm512_or_si512(
            _mm512_maskz_permutexvar_epi8(layout.mask[0], _mm512_load_si512(layout.from[0]), up),
            _mm512_maskz_permutexvar_epi8(layout.mask[1], _mm512_load_si512(layout.from[1]), up));
        const __m512i before = _mm512_alignr_epi64(words, written_, 7);
        store(_mm512_shrdv_epi64(words, before, in_all_lanes(kNumbers[held_])), held_ + bits);
        if (held_ + bits > 8 * kBytes) {
            const __m128i last = _mm512_extracti32x4_epi32(words, 3);
            const auto word = static_cast<std::uint64_t>(_mm_extract_epi64(last, 1));
            out_[kBytes] = static_cast<std::uint8_t>(word << (8 - held_));
        }
        const __m512i ends =
            _mm512_shrdv_epi64(words, before, in_all_lanes(kNumbers[63 - (bits - 1) % 64]));
        written_ = _mm512_permutexvar_epi64(in_all_lanes(kNumbers[(bits - 1) / 64]), ends);
        out_ += (held_ + bits) / 8;
        held_ = (held_ + bits) % 8;
    }

    // Stores a vector where there is room for one, else the bytes with bits that count.
    MORVA_AVX512 void store(__m512i words, std::size_t bits) const {
        const __m512i order = _mm512_broadcast_i32x4(
            _mm_set_epi8(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
        const __m512i bytes = _mm512_shuffle_epi8(words, order);
        if (static_cast<std::size_t>(end_ - out_) >= kBytes)
            _mm512_storeu_si512(out_, bytes);
        else
            _mm512_mask_storeu_epi8(out_, ~std::uint64_t{0} >> (kBytes - (bits + 7) / 8), bytes);
    }

    std::uint8_t* out_;     // where the next byte goes that fills up
    std::uint8_t* end_;     // of the room
    std::size_t held_ = 0;  // bits behind the last full byte, below 8
    __m512i written_;       // the last 64 bits, in each lane
};

}  // namespace

MORVA_AVX512 std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys,
                                         std::uint8_t* data) {
    return encode_blocks(series, keys, Avx512(data, data + 4 * (series.count - 1) + kSpare));
}

}  // namespace morva::gen

#else

namespace morva::gen {

std::uint8_t* encode_avx512(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_plain(series, keys, data);
}

}  // namespace morva::gen

#endif
