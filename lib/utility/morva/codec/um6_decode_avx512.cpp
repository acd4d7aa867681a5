// The AVX-512 version of the decoder's steps. Characters become codes, 64 at a time, and those of
// line ends are squeezed out. For each place of 64 codes the number is then computed that a value
// has which ends there, from the codes up to it; those of the places where values do end are moved
// together and summed up twice to samples.
#include "codec/um6_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"
#include "codec/cm6_code.hpp"

namespace morva {

using namespace cm6code;

namespace {

constexpr std::size_t kWord = 64;
constexpr std::size_t kWords = kMostCodes / kWord + 1;
constexpr std::size_t kLanes = 16;
constexpr int kShort = 4;  // characters of a value whose bits fit in 20

// Codes of characters, for _mm512_permutex2var_epi8. Whatever has none has the sign bit.
constexpr std::uint8_t kSkipped = 128;
constexpr std::array<std::uint8_t, 128> kCodes = [] {
    std::array<std::uint8_t, 128> codes = Decode;
    for (std::size_t c = 0; c < codes.size(); ++c)
        if (is_skipped(static_cast<char>(c))) codes[c] = kSkipped;
    return codes;
}();

// What is found out about the codes before numbers are made of them.
struct Marked {
    std::uint8_t front[kWord] = {};  // read before the first digit, under masks
    std::uint8_t digits[kWords * kWord];
    std::uint64_t continues[kWords + 1] = {};  // behind a word of nothing
    std::uint64_t negative[kWords];            // first codes of negative values
};

// Bit i is set when the codes back from i to i - back are of one value.
std::uint64_t joined(const std::uint64_t* continues, int back) {
    std::uint64_t places = ~std::uint64_t{0};
    for (int k = 1; k <= back; ++k) places &= continues[0] << k | continues[-1] >> (64 - k);
    return places;
}

// False when a value has more characters than it needs.
MORVA_AVX512 bool mark(const std::uint8_t* codes, std::size_t count, Marked& marked) {
    std::uint64_t too_long = 0;
    for (std::size_t word = 0; word * kWord < count; ++word) {
        const std::size_t left = count - word * kWord;
        const __mmask64 there = left < kWord
                                    ? _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(left))
                                    : ~std::uint64_t{0};
        const __m512i here = _mm512_maskz_loadu_epi8(there, codes + word * kWord);
        std::uint64_t* const continues = marked.continues + word + 1;
        *continues = _mm512_test_epi8_mask(here, _mm512_set1_epi8(kContinues));
        const std::uint64_t first = ~joined(continues, 1);
        const __m512i bits =
            _mm512_mask_blend_epi8(first, _mm512_set1_epi8(31), _mm512_set1_epi8(15));
        _mm512_storeu_si512(marked.digits + word * kWord, _mm512_and_si512(here, bits));
        marked.negative[word] = first & _mm512_test_epi8_mask(here, _mm512_set1_epi8(kNegative));
        too_long |= joined(continues, kMaxCharacters);
    }
    return too_long == 0;
}

// 64 bytes so ordered that two unpackings bring them into four vectors one behind the other.
MORVA_AVX512 inline __m512i ordered(__m512i bytes) {
    return _mm512_permutexvar_epi32(
        _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), bytes);
}

// The digits `back` places before each place of a word, 0 where another value stands there.
MORVA_AVX512 inline __m512i digits_before(const Marked& marked, std::size_t word, int back) {
    const std::uint64_t places = joined(marked.continues + word + 1, back);
    return ordered(_mm512_maskz_loadu_epi8(places, marked.digits + word * kWord - back));
}

// Numbers of ten bits from an upper and a lower digit each, of all 64 places.
struct Tens {
    __m512i low, high;
};

MORVA_AVX512 inline Tens tens(__m512i lower, __m512i upper) {
    const __m512i weights = _mm512_set1_epi16(0x2001);
    return {_mm512_maddubs_epi16(_mm512_unpacklo_epi8(lower, upper), weights),
            _mm512_maddubs_epi16(_mm512_unpackhi_epi8(lower, upper), weights)};
}

// Numbers of twenty bits, of sixteen places each.
MORVA_AVX512 inline void twenties(const Tens& lower, const Tens& upper, __m512i* numbers) {
    const __m512i weights = _mm512_set1_epi32(0x04000001);
    numbers[0] = _mm512_madd_epi16(_mm512_unpacklo_epi16(lower.low, upper.low), weights);
    numbers[1] = _mm512_madd_epi16(_mm512_unpackhi_epi16(lower.low, upper.low), weights);
    numbers[2] = _mm512_madd_epi16(_mm512_unpacklo_epi16(lower.high, upper.high), weights);
    numbers[3] = _mm512_madd_epi16(_mm512_unpackhi_epi16(lower.high, upper.high), weights);
}

// The number of a value that ends there, for each place of a word; without its sign.
MORVA_AVX512 inline void numbers_of(const Marked& marked, std::size_t word, __m512i* numbers) {
    const auto before = [&](int back) MORVA_AVX512 { return digits_before(marked, word, back); };
    twenties(tens(before(0), before(1)), tens(before(2), before(3)), numbers);
    if (joined(marked.continues + word + 1, kShort) == 0) return;
    __m512i upper[4];
    twenties(tens(before(4), before(5)), tens(before(6), _mm512_setzero_si512()), upper);
    for (int i = 0; i < 4; ++i)
        numbers[i] = _mm512_or_si512(numbers[i], _mm512_slli_epi32(upper[i], 20));
}

// Writes the numbers of all values, and some more, and returns how many there are.
MORVA_AVX512 std::size_t write_numbers(const Marked& marked, std::size_t count,
                                       std::int32_t* numbers) {
    std::size_t n = 0;
    std::uint64_t sign = 0;  // of the value that the word before leaves open
    for (std::size_t word = 0; word * kWord < count; ++word) {
        const std::uint64_t* const continues = marked.continues + word + 1;
        const std::uint64_t open = continues[-1] >> 63, first = ~joined(continues, 1);
        const std::size_t left = count - word * kWord;
        std::uint64_t ends = ~*continues;
        if (left < kWord) ends = _bzhi_u64(ends, static_cast<unsigned>(left));
        std::uint64_t signs = _pext_u64(marked.negative[word], first) << open | (open & sign);
        __m512i all[4];
        numbers_of(marked, word, all);
        for (const __m512i& sixteen : all) {
            const auto here = static_cast<__mmask16>(ends);
            const __m512i values = _mm512_maskz_compress_epi32(here, sixteen);
            _mm512_storeu_si512(numbers + n,
                                _mm512_mask_sub_epi32(values, static_cast<__mmask16>(signs),
                                                      _mm512_setzero_si512(), values));
            const auto found = static_cast<unsigned>(__builtin_popcount(here));
            n += found;
            ends >>= kLanes;
            signs >>= found;
        }
        sign = signs & 1;
    }
    return n;
}

// Running sums of sixteen numbers.
MORVA_AVX512 inline __m512i running_sums(__m512i numbers) {
    const __m512i zero = _mm512_setzero_si512();
    __m512i sums = _mm512_add_epi32(numbers, _mm512_alignr_epi32(numbers, zero, 15));
    sums = _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 14));
    sums = _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 12));
    return _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 8));
}

MORVA_AVX512 void integrate(const std::int32_t* numbers, std::size_t count, Integrator& integrator,
                            std::int32_t* samples) {
    const __m512i last = _mm512_set1_epi32(kLanes - 1);
    __m512i difference = _mm512_set1_epi32(integrator.difference());
    __m512i sample = _mm512_set1_epi32(integrator.sample());
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        const __m512i differences =
            _mm512_add_epi32(running_sums(_mm512_loadu_si512(numbers + i)), difference);
        difference = _mm512_permutexvar_epi32(last, differences);
        const __m512i result = _mm512_add_epi32(running_sums(differences), sample);
        sample = _mm512_permutexvar_epi32(last, result);
        _mm512_storeu_si512(samples + i, result);
    }
    integrator = {_mm512_cvtsi512_si32(difference), _mm512_cvtsi512_si32(sample)};
    for (; i < count; ++i) samples[i] = integrator.next(static_cast<std::uint32_t>(numbers[i]));
}

}  // namespace

MORVA_AVX512 Converted convert_avx512(const char* text, std::uint8_t* codes) {
    const __m512i characters = _mm512_loadu_si512(text);
    const __m512i found = _mm512_permutex2var_epi8(_mm512_loadu_si512(kCodes.data()), characters,
                                                   _mm512_loadu_si512(kCodes.data() + 64));
    const std::uint64_t above = _mm512_movepi8_mask(characters);
    const std::uint64_t without = _mm512_movepi8_mask(found) | above;
    const std::uint64_t skipped =
        _mm512_cmpeq_epi8_mask(found, _mm512_set1_epi8(static_cast<char>(kSkipped))) & ~above;
    const auto used = static_cast<std::size_t>(_tzcnt_u64(without & ~skipped));
    const std::uint64_t kept = _bzhi_u64(~without, static_cast<unsigned>(used));
    _mm512_storeu_si512(codes, _mm512_maskz_compress_epi8(kept, found));
    return {used, static_cast<std::size_t>(__builtin_popcountll(kept))};
}

MORVA_AVX512 bool decode_codes_avx512(const std::uint8_t* codes, std::size_t count,
                                      Integrator& integrator, std::int32_t* samples,
                                      std::size_t* decoded) {
    Marked marked;
    if (!mark(codes, count, marked)) return false;
    std::int32_t numbers[kMostCodes + kLanes];
    *decoded = write_numbers(marked, count, numbers);
    integrate(numbers, *decoded, integrator, samples);
    return true;
}

}  // namespace morva

#else

namespace morva {

Converted convert_avx512(const char*, std::uint8_t*) {
    return {0, 0};
}

bool decode_codes_avx512(const std::uint8_t*, std::size_t, Integrator&, std::int32_t*,
                         std::size_t*) {
    return false;
}

}  // namespace morva

#endif
