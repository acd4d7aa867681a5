// Adler-32 by vectors. Of a row of vectors v[0], v[1] ... the first sum needs the sum of all bytes,
// and the second, beside it, for each byte the number of bytes from it to the end. That is the
// place of the byte in its vector, counted from the end, plus the length of the vectors behind: the
// one is a product with 64, 63 ... 1 (or 32 ... 1), the other comes from summing up the first sum
// as it was in front of every vector.
#include "digest/adler32.hpp"

#include <algorithm>

#ifdef __x86_64__
#include "digest/x86.hpp"
#endif

namespace morva::adler {

constinit Add g_add = add_plain;

#ifdef __x86_64__
namespace {

#define MORVA_ADLER_AVX2 __attribute__((target("avx2")))
#define MORVA_ADLER_VNNI __attribute__((target("avx512f,avx512bw,avx512vnni")))

// What a row of vectors adds, not reduced.
struct Sums {
    std::uint32_t bytes;   // of the bytes
    std::uint32_t places;  // of each byte times its place in the vector, counted from the end
    std::uint32_t fronts;  // of the sums of the bytes in front of every vector
};

// Rows are so short that none of these passes 32 bits.
constexpr std::size_t kRow = 8192;
static_assert(255ull * 64 * kRow <= UINT32_MAX && 255ull * kRow * kRow / 32 / 2 <= UINT32_MAX);

MORVA_ADLER_AVX2 inline std::uint32_t total(__m256i lanes) {
    const __m128i four =
        _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    const __m128i two = _mm_add_epi32(four, _mm_shuffle_epi32(four, 0x4e));
    return static_cast<std::uint32_t>(
        _mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 0xb1))));
}

MORVA_ADLER_AVX2 Sums sums_avx2(const unsigned char* bytes, std::size_t vectors) {
    const __m256i places =
        _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                         13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    const __m256i zero = _mm256_setzero_si256(), ones = _mm256_set1_epi16(1);
    __m256i sum = zero, placed = zero, fronts = zero;
    for (; vectors > 0; --vectors, bytes += 32) {
        const __m256i vector = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
        fronts = _mm256_add_epi32(fronts, sum);
        sum = _mm256_add_epi32(sum, _mm256_sad_epu8(vector, zero));
        placed =
            _mm256_add_epi32(placed, _mm256_madd_epi16(_mm256_maddubs_epi16(vector, places), ones));
    }
    return {total(sum), total(placed), total(fronts)};
}

MORVA_ADLER_VNNI inline std::uint32_t total(__m512i lanes) {
    return static_cast<std::uint32_t>(_mm512_reduce_add_epi32(lanes));
}

MORVA_ADLER_VNNI Sums sums_vnni(const unsigned char* bytes, std::size_t vectors) {
    alignas(64) signed char counted[64];
    for (int i = 0; i < 64; ++i) counted[i] = static_cast<signed char>(64 - i);
    const __m512i places = _mm512_load_si512(counted), ones = _mm512_set1_epi8(1);
    const auto load = [&]() MORVA_ADLER_VNNI {
        const __m512i vector = _mm512_loadu_si512(bytes);
        bytes += 64;
        return vector;
    };
    // Two vectors at a time, summed up apart so that neither waits for the other. The bytes of the
    // former one have one more vector behind them.
    __m512i former = _mm512_setzero_si512(), latter = former, placed = former, placed_too = former;
    __m512i fronts = former;
    if (vectors % 2 != 0) {
        const __m512i vector = load();
        latter = _mm512_dpbusd_epi32(latter, vector, ones);
        placed = _mm512_dpbusd_epi32(placed, vector, places);
    }
    for (std::size_t pairs = vectors / 2; pairs > 0; --pairs) {
        fronts = _mm512_add_epi32(fronts, _mm512_add_epi32(former, latter));
        const __m512i one = load(), other = load();
        former = _mm512_dpbusd_epi32(former, one, ones);
        latter = _mm512_dpbusd_epi32(latter, other, ones);
        placed = _mm512_dpbusd_epi32(placed, one, places);
        placed_too = _mm512_dpbusd_epi32(placed_too, other, places);
    }
    const std::uint32_t formers = total(former);
    return {total(_mm512_add_epi32(former, latter)), total(_mm512_add_epi32(placed, placed_too)),
            2 * total(fronts) + formers};
}

template <std::size_t kVector, Sums (*kSums)(const unsigned char*, std::size_t)>
std::uint32_t add_vectors(std::uint32_t adler, const unsigned char* bytes, std::size_t n) {
    std::uint64_t sum = adler & 0xffff, sums = adler >> 16;
    while (n >= kVector) {
        const std::size_t vectors = std::min(n, kRow) / kVector, row = vectors * kVector;
        const Sums more = kSums(bytes, vectors);
        sums = (sums + sum * row + more.places + std::uint64_t{kVector} * more.fronts) % kModulus;
        sum = (sum + more.bytes) % kModulus;
        bytes += row;
        n -= row;
    }
    return add_plain(static_cast<std::uint32_t>(sums << 16 | sum), bytes, n);
}

constexpr Version kVersions[] = {
    {"AVX-512 VNNI",
     [] {
         return __builtin_cpu_supports("avx512bw") != 0 &&
                __builtin_cpu_supports("avx512vnni") != 0;
     },
     add_vectors<64, sums_vnni>},
    {"AVX2", [] { return __builtin_cpu_supports("avx2") != 0; }, add_vectors<32, sums_avx2>},
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
