#include "digest/crc_fold.hpp"

#ifdef __x86_64__
#include "digest/x86.hpp"
#endif

namespace morva {

constinit const FoldVersion* g_fold = nullptr;
constinit const FoldVersion* g_fold_short = nullptr;

#ifdef __x86_64__
namespace {

#define MORVA_CLMUL __attribute__((target("pclmul,ssse3,sse4.1")))
#define MORVA_VCLMUL                                                       \
    __attribute__((                                                        \
        target("pclmul,ssse3,sse4.1,vpclmulqdq,avx512f,avx512bw,avx512vl," \
               "avx512vbmi2,gfni")))

using Constants = FoldConstants;
using Pair = FoldConstants::Pair;
constexpr std::size_t kPiece = 16;
constexpr std::size_t kWide = 64;
constexpr std::size_t kAhead = 2048;  // how far ahead of the work memory is asked for

MORVA_CLMUL inline __m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

MORVA_CLMUL inline __m128i reversal() {
    return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

template <bool kReflected>
MORVA_CLMUL inline __m128i ordered(__m128i bytes) {
    return kReflected ? bytes : _mm_shuffle_epi8(bytes, reversal());
}

MORVA_CLMUL inline __m128i moved(__m128i piece, const Pair& by) {
    const __m128i factors = load(&by);
    return _mm_xor_si128(_mm_clmulepi64_si128(piece, factors, 0x00),
                         _mm_clmulepi64_si128(piece, factors, 0x11));
}

MORVA_CLMUL inline __m128i word(std::uint64_t low) {
    return _mm_cvtsi64_si128(static_cast<long long>(low));
}

// The last step of both versions: the product of 128 bits to the 64 of the CRC.
template <bool kReflected>
MORVA_CLMUL inline std::uint64_t reduced(__m128i rest, const Constants& c) {
    constexpr int kFirst = kReflected ? 0x00 : 0x01;  // the half of a register that comes first
    __m128i times = _mm_clmulepi64_si128(rest, word(c.inverse), kFirst);
    if (!kReflected) times = _mm_xor_si128(times, rest);
    const __m128i product = _mm_clmulepi64_si128(times, word(c.polynomial), kFirst);
    const __m128i result = _mm_xor_si128(rest, product);
    if (!kReflected) return static_cast<std::uint64_t>(_mm_cvtsi128_si64(result));
    return static_cast<std::uint64_t>(_mm_extract_epi64(result, 1)) ^
           (static_cast<std::uint64_t>(_mm_cvtsi128_si64(times)) & c.lost_term);
}

// Masks that slide the bytes of a register by up to 16 places, zeros behind them.
constexpr unsigned char kSlide[3 * kPiece] = {
    128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128,
    0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
    128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128};

// What does not fill a piece comes first, behind zeros, which add nothing. The start value belongs
// to the first eight bytes of the message, wherever these stand.
template <bool kReflected>
MORVA_CLMUL std::uint64_t fold_clmul(std::uint64_t start, const unsigned char* bytes, std::size_t n,
                                     const Constants& c) {
    const unsigned char* const end = bytes + n;
    const std::size_t odd = n % kPiece;
    const __m128i first = _mm_xor_si128(load(bytes), word(start));
    const __m128i front = _mm_shuffle_epi8(first, load(kSlide + odd));
    const __m128i more = _mm_shuffle_epi8(word(start), load(kSlide + kPiece + odd));
    __m128i a = _mm_xor_si128(ordered<kReflected>(_mm_xor_si128(load(bytes + odd), more)),
                              moved(ordered<kReflected>(front), c.fold[1]));
    bytes += odd + kPiece;
    const auto next = [&]() MORVA_CLMUL {
        const __m128i piece = ordered<kReflected>(load(bytes));
        bytes += kPiece;
        return piece;
    };
    if (end - bytes >= static_cast<std::ptrdiff_t>(3 * kPiece)) {
        __m128i b = next(), d = next(), e = next();
        while (end - bytes >= static_cast<std::ptrdiff_t>(4 * kPiece)) {
            a = _mm_xor_si128(moved(a, c.fold[4]), next());
            b = _mm_xor_si128(moved(b, c.fold[4]), next());
            d = _mm_xor_si128(moved(d, c.fold[4]), next());
            e = _mm_xor_si128(moved(e, c.fold[4]), next());
        }
        a = _mm_xor_si128(_mm_xor_si128(moved(a, c.fold[3]), moved(b, c.fold[2])),
                          _mm_xor_si128(moved(d, c.fold[1]), e));
    }
    while (bytes < end) a = _mm_xor_si128(moved(a, c.fold[1]), next());
    return reduced<kReflected>(moved(a, c.last[3]), c);
}

// Turns round the bits of every byte, as a product with this matrix of bits.
constexpr long long kTurned = static_cast<long long>(0x8040201008040201);

template <bool kReflected>
MORVA_VCLMUL inline __m512i turned(__m512i bytes) {
    return kReflected ? bytes : _mm512_gf2p8affine_epi64_epi8(bytes, _mm512_set1_epi64(kTurned), 0);
}

MORVA_VCLMUL inline __m512i added(__m512i a, __m512i factors, __m512i b) {
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(a, factors, 0x00),
                                     _mm512_clmulepi64_epi128(a, factors, 0x11), b, 0x96);
}

// Moves every lane, and adds.
MORVA_VCLMUL inline __m512i added(__m512i a, const Pair& by, __m512i b) {
    return added(a, _mm512_broadcast_i32x4(load(&by)), b);
}

template <bool kReflected>
MORVA_VCLMUL std::uint64_t fold_vclmul(std::uint64_t start, const unsigned char* bytes,
                                       std::size_t n, const Constants& c) {
    const unsigned char* const end = bytes + n;
    const std::size_t odd = n % kWide;
    __m512i more = _mm512_zextsi128_si512(word(start));
    const auto next = [&]() MORVA_VCLMUL {
        const __m512i pieces = turned<kReflected>(_mm512_loadu_si512(bytes));
        bytes += kWide;
        return pieces;
    };
    __m512i a;
    if (odd > 0) {
        const __mmask64 front = ~std::uint64_t{0} >> (kWide - odd), back = front << (kWide - odd);
        a = n < kWide ? _mm512_maskz_loadu_epi8(front, bytes) : _mm512_loadu_si512(bytes);
        a = turned<kReflected>(_mm512_maskz_expand_epi8(back, _mm512_xor_si512(a, more)));
        more = _mm512_zextsi128_si512(word(odd < sizeof start ? start >> (8 * odd) : 0));
        bytes += odd;
        if (bytes < end)
            a = added(a, c.fold[4], _mm512_xor_si512(next(), turned<kReflected>(more)));
    } else {
        a = turned<kReflected>(_mm512_xor_si512(_mm512_loadu_si512(bytes), more));
        bytes += kWide;
    }
    if (end - bytes >= static_cast<std::ptrdiff_t>(3 * kWide)) {
        __m512i b = next(), d = next(), e = next();
        while (end - bytes >= static_cast<std::ptrdiff_t>(4 * kWide)) {
            for (std::size_t line = 0; line < 4; ++line)
                _mm_prefetch(bytes + kAhead + line * kWide, _MM_HINT_T0);
            a = added(a, c.fold[16], next());
            b = added(b, c.fold[16], next());
            d = added(d, c.fold[16], next());
            e = added(e, c.fold[16], next());
        }
        a = added(a, c.fold[12], added(b, c.fold[8], added(d, c.fold[4], e)));
    }
    while (bytes < end) a = added(a, c.fold[4], next());
    a = added(a, _mm512_loadu_si512(c.last), _mm512_setzero_si512());
    const __m256i two =
        _mm256_xor_si256(_mm512_castsi512_si256(a), _mm512_extracti64x4_epi64(a, 1));
    const __m128i one =
        _mm_xor_si128(_mm256_castsi256_si128(two), _mm256_extracti128_si256(two, 1));
    const std::uint64_t crc = reduced<true>(one, c);
    if (kReflected) return crc;
    const __m128i bits = _mm_gf2p8affine_epi64_epi8(word(crc), word(kTurned), 0);
    return __builtin_bswap64(static_cast<std::uint64_t>(_mm_cvtsi128_si64(bits)));
}

bool has_clmul() {
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
}

bool has_vclmul() {
    return has_clmul() && __builtin_cpu_supports("vpclmulqdq") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("gfni");
}

constexpr FoldVersion kVersions[] = {
    {"AVX-512", has_vclmul, 8, true, fold_vclmul<true>, fold_vclmul<false>},
    {"PCLMULQDQ", has_clmul, kPiece, false, fold_clmul<true>, fold_clmul<false>},
};

[[gnu::constructor]] void choose() {
    __builtin_cpu_init();
    for (const FoldVersion& version : kVersions)
        if (version.runs()) {
            if (g_fold == nullptr) g_fold = &version;
            g_fold_short = &version;
        }
}

}  // namespace

std::span<const FoldVersion> fold_versions() {
    return kVersions;
}

#else

std::span<const FoldVersion> fold_versions() {
    return {};
}

#endif

}  // namespace morva
