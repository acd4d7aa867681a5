// Adler-32 by vectors. Of a row of vectors v[0], v[1] ... the first sum needs the sum of all bytes,
// and the second, beside it, for each byte the number of bytes from it to the end. That is the
// place of the byte in its vector, counted from the end, plus the length of the vectors behind: the
// one is a product with 64, 63 ... 1 (or 32 ... 1), the other comes from summing up the first sum
// as it was in front of every vector.
#include "digest/adler32.hpp"

#include <algorithm>
#include <array>

#ifdef __x86_64__
#include "digest/x86.hpp"
#endif

namespace morva::adler {

constinit Add g_add = add_plain;

#ifdef __x86_64__
namespace {

#define MORVA_ADLER_AVX2 __attribute__((target("avx2")))
#define MORVA_ADLER_VNNI __attribute__((target("avx512f,avx512bw,avx512vnni")))

constexpr std::size_t kAhead = 2048;  // how far ahead of the work memory is asked for

// What a row of bytes adds, not reduced.
struct Sums {
    std::uint64_t bytes;     // of the bytes
    std::uint64_t weighted;  // of each byte times the number of bytes from it to the end
};

// Rows are so short that no lane of 32 bits overflows: each takes four bytes of a vector.
constexpr std::size_t kRow = 8192;
constexpr std::uint64_t kLane = 4 * 255;
static_assert(kLane * kRow * kRow / 64 / 2 + kLane * kRow <= UINT32_MAX);
static_assert(255ull * kRow * kRow / 32 / 2 <= UINT32_MAX);

MORVA_ADLER_AVX2 inline std::uint32_t total(__m256i lanes) {
    const __m128i four =
        _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    const __m128i two = _mm_add_epi32(four, _mm_shuffle_epi32(four, 0x4e));
    return static_cast<std::uint32_t>(
        _mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 0xb1))));
}

MORVA_ADLER_AVX2 Sums sums_avx2(const unsigned char* bytes, std::size_t n) {
    const __m256i places =
        _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                         13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    const __m256i zero = _mm256_setzero_si256(), ones = _mm256_set1_epi16(1);
    __m256i sum = zero, placed = zero, fronts = zero;
    for (const unsigned char* const end = bytes + n; bytes < end; bytes += 32) {
        const __m256i vector = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
        fronts = _mm256_add_epi32(fronts, sum);
        sum = _mm256_add_epi32(sum, _mm256_sad_epu8(vector, zero));
        placed =
            _mm256_add_epi32(placed, _mm256_madd_epi16(_mm256_maddubs_epi16(vector, places), ones));
    }
    return {total(sum), total(placed) + std::uint64_t{32} * total(fronts)};
}

// Of both sums at once: that of the bytes stands above the other, which takes less than 40 bits.
constexpr int kAbove = 40;
static_assert(255ull * kRow * (kRow + 64) >> kAbove == 0);

// Lanes of 32 bits added up in pairs.
MORVA_ADLER_VNNI inline __m512i in_pairs(__m512i lanes) {
    const __m512i low = _mm512_and_si512(lanes, _mm512_set1_epi64(UINT32_MAX));
    return _mm512_add_epi64(low, _mm512_srli_epi64(lanes, 32));
}

MORVA_ADLER_VNNI inline Sums totals(__m512i sums, __m512i weighted) {
    const __m512i eight = _mm512_add_epi64(_mm512_slli_epi64(sums, kAbove), in_pairs(weighted));
    const __m256i four =
        _mm256_add_epi64(_mm512_castsi512_si256(eight), _mm512_extracti64x4_epi64(eight, 1));
    const __m128i two =
        _mm_add_epi64(_mm256_castsi256_si128(four), _mm256_extracti128_si256(four, 1));
    const auto both = static_cast<std::uint64_t>(
        _mm_cvtsi128_si64(_mm_add_epi64(two, _mm_unpackhi_epi64(two, two))));
    return {both >> kAbove, both & ((std::uint64_t{1} << kAbove) - 1)};
}

alignas(64) constexpr auto kPlaces = [] {
    std::array<signed char, 64> places{};
    for (int i = 0; i < 64; ++i)
        places[static_cast<std::size_t>(i)] = static_cast<signed char>(64 - i);
    return places;
}();

// The last vector is filled up with zeros, which make the places of all bytes too high.
MORVA_ADLER_VNNI inline __m512i last_vector(const unsigned char* bytes, std::size_t n) {
    return _mm512_maskz_loadu_epi8(~std::uint64_t{0} >> (64 - n), bytes);
}
inline Sums placed_lower(Sums sums, std::size_t n) {
    return {sums.bytes, sums.weighted - (64 - n) * sums.bytes};
}

MORVA_ADLER_VNNI Sums sums_vnni(const unsigned char* bytes, std::size_t n) {
    const __m512i places = _mm512_load_si512(kPlaces.data()), ones = _mm512_set1_epi8(1);
    const __m512i none = _mm512_setzero_si512();
    if (n <= 64) {
        const __m512i vector = n == 64 ? _mm512_loadu_si512(bytes) : last_vector(bytes, n);
        return placed_lower(
            totals(_mm512_sad_epu8(vector, none), _mm512_dpbusd_epi32(none, vector, places)), n);
    }
    const auto load = [&]() MORVA_ADLER_VNNI {
        const __m512i vector = _mm512_loadu_si512(bytes);
        bytes += 64;
        return vector;
    };
    // Two vectors at a time, summed up apart so that neither waits for the other. The bytes of the
    // former one have one more vector behind them.
    __m512i former = none, latter = none, placed = none, placed_too = none, fronts = none;
    if (n / 64 % 2 != 0) {
        const __m512i vector = load();
        latter = _mm512_dpbusd_epi32(latter, vector, ones);
        placed = _mm512_dpbusd_epi32(placed, vector, places);
    }
    for (std::size_t pairs = n / 128; pairs > 0; --pairs) {
        _mm_prefetch(bytes + kAhead, _MM_HINT_T0);
        _mm_prefetch(bytes + kAhead + 64, _MM_HINT_T0);
        fronts = _mm512_add_epi32(fronts, _mm512_add_epi32(former, latter));
        const __m512i one = load(), other = load();
        former = _mm512_dpbusd_epi32(former, one, ones);
        latter = _mm512_dpbusd_epi32(latter, other, ones);
        placed = _mm512_dpbusd_epi32(placed, one, places);
        placed_too = _mm512_dpbusd_epi32(placed_too, other, places);
    }
    fronts = _mm512_add_epi32(_mm512_add_epi32(fronts, fronts), former);
    __m512i sums = _mm512_add_epi32(former, latter);
    const std::size_t odd = n % 64;
    if (odd > 0) {
        const __m512i vector = last_vector(bytes, odd);
        fronts = _mm512_add_epi32(fronts, sums);
        sums = _mm512_dpbusd_epi32(sums, vector, ones);
        placed = _mm512_dpbusd_epi32(placed, vector, places);
    }
    placed = _mm512_add_epi32(_mm512_add_epi32(placed, placed_too), _mm512_slli_epi32(fronts, 6));
    const Sums result = totals(in_pairs(sums), placed);
    return odd > 0 ? placed_lower(result, odd) : result;
}

// By a version that takes multiples of kWhole bytes.
template <std::size_t kWhole, Sums (*kSums)(const unsigned char*, std::size_t)>
std::uint32_t add_rows(std::uint32_t adler, const unsigned char* bytes, std::size_t n) {
    std::uint64_t sum = adler & 0xffff, sums = adler >> 16;
    while (n >= kWhole) {
        const std::size_t row = std::min(n, kRow) / kWhole * kWhole;
        const Sums more = kSums(bytes, row);
        sums = (sums + sum * row + more.weighted) % kModulus;
        sum = (sum + more.bytes) % kModulus;
        bytes += row;
        n -= row;
    }
    const auto result = static_cast<std::uint32_t>(sums << 16 | sum);
    return n > 0 ? add_plain(result, bytes, n) : result;
}

constexpr Version kVersions[] = {
    {"AVX-512 VNNI",
     [] {
         return __builtin_cpu_supports("avx512bw") != 0 &&
                __builtin_cpu_supports("avx512vnni") != 0;
     },
     add_rows<1, sums_vnni>},
    {"AVX2", [] { return __builtin_cpu_supports("avx2") != 0; }, add_rows<32, sums_avx2>},
};

[[gnu::constructor]] void choose() {
    __builtin_cpu_init();
    for (const Version& version : kVersions)
        if (version.runs()) {
            g_add = version.add;
            return;
        }
}

}  // namespace

std::span<const Version> versions() {
    return kVersions;
}

#else

std::span<const Version> versions() {
    return {};
}

#endif

}  // namespace morva::adler
