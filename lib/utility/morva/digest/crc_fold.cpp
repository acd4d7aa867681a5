#include "digest/crc_fold.hpp"

#include <iterator>

#ifdef __x86_64__
#include "digest/x86.hpp"
#endif

namespace morva {

namespace {

template <class C>
typename C::Word add_plain(typename C::Word crc, const unsigned char* bytes, std::size_t n,
                           typename C::Word* result) {
    return *result = C::add_plain(crc, bytes, n);
}

}  // namespace

constinit CrcVersion g_crcs = {"plain",          [] { return true; }, add_plain<Crc16>,
                               add_plain<Crc32>, add_plain<Crc64>,    add_plain<QtCrc>};

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

// Masks that slide the bytes of a register by up to 16 places, zeros behind them.
alignas(64) constexpr unsigned char kSlide[3 * kPiece] = {
    128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128,
    0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
    128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128};

// The last step: the product of 128 bits to the 64 of the CRC.
template <bool kReflected>
MORVA_CLMUL inline std::uint64_t reduced(__m128i rest, const Constants& c) {
    constexpr int kFirst = kReflected ? 0x00 : 0x01;  // the half of a register that comes first
    __m128i times = _mm_clmulepi64_si128(rest, word(c.inverse), kFirst);
    if (!kReflected) times = _mm_xor_si128(times, rest);
    const __m128i product = _mm_clmulepi64_si128(times, word(c.polynomial), kFirst);
    const __m128i result = _mm_xor_si128(rest, product);
    if (!kReflected)
        return __builtin_bswap64(static_cast<std::uint64_t>(_mm_cvtsi128_si64(result)));
    return static_cast<std::uint64_t>(_mm_extract_epi64(result, 1)) ^
           (static_cast<std::uint64_t>(_mm_cvtsi128_si64(times)) & c.lost_term);
}

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
    return reduced<kReflected>(moved(a, c.last[15]), c);
}

template <class C>
MORVA_CLMUL typename C::Word add_clmul(typename C::Word crc, const unsigned char* bytes,
                                       std::size_t n, typename C::Word* result) {
    static constexpr Constants kConstants = fold::constants<C>();
    if (n < kPiece) return add_plain<C>(crc, bytes, n, result);
    return *result = fold::crc_of<C>(
               fold_clmul<C::kReflected>(fold::start_of<C>(crc), bytes, n, kConstants));
}

// Turns round the bits of every byte, as a product with this matrix of bits.
constexpr long long kTurned = static_cast<long long>(0x8040201008040201);

template <bool kReflected>
MORVA_VCLMUL inline __m128i turned(__m128i bytes) {
    return kReflected ? bytes : _mm_gf2p8affine_epi64_epi8(bytes, _mm_set1_epi64x(kTurned), 0);
}
template <bool kReflected>
MORVA_VCLMUL inline __m512i turned(__m512i bytes) {
    return kReflected ? bytes : _mm512_gf2p8affine_epi64_epi8(bytes, _mm512_set1_epi64(kTurned), 0);
}

MORVA_VCLMUL inline __m128i added(__m128i a, __m128i factors, __m128i b) {
    return _mm_ternarylogic_epi64(_mm_clmulepi64_si128(a, factors, 0x00),
                                  _mm_clmulepi64_si128(a, factors, 0x11), b, 0x96);
}
MORVA_VCLMUL inline __m512i added(__m512i a, __m512i factors, __m512i b) {
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(a, factors, 0x00),
                                     _mm512_clmulepi64_epi128(a, factors, 0x11), b, 0x96);
}

template <bool kReflected>
MORVA_VCLMUL inline std::uint64_t turned_rest(__m128i sum, const Constants& c) {
    const __m128i times = _mm_clmulepi64_si128(sum, word(c.inverse), 0x00);
    const __m128i product = _mm_clmulepi64_si128(times, word(c.polynomial), 0x00);
    const __m128i rest = turned<kReflected>(_mm_xor_si128(sum, product));
    const auto result = static_cast<std::uint64_t>(_mm_extract_epi64(rest, 1));
    if (!kReflected) return result;
    return result ^ (static_cast<std::uint64_t>(_mm_cvtsi128_si64(times)) & c.lost_term);
}

// Few pieces: none waits for another, because each is moved to the end at once. The first may be
// short. What remains of the start value behind less than eight bytes is added to the result.
template <bool kReflected>
MORVA_VCLMUL inline std::uint64_t fold_pieces(std::uint64_t start, const unsigned char* bytes,
                                              std::size_t n, const Constants& c) {
    const unsigned char* const end = bytes + n;
    const std::size_t odd = (n - 1) % kPiece + 1, whole = (n - 1) / kPiece;
    const auto some = static_cast<__mmask16>((1u << odd) - 1);
    __m128i more = word(start);
    const __m128i first = n < kPiece ? _mm_maskz_loadu_epi8(some, bytes) : load(bytes);
    const __m128i front = _mm_shuffle_epi8(_mm_xor_si128(first, more), load(kSlide + odd));
    more = _mm_shuffle_epi8(more, load(kSlide + kPiece + odd));
    const Pair* const last = std::end(c.last) - 1;
    __m128i sum = added(turned<kReflected>(front), load(last - whole), _mm_setzero_si128());
    const auto add = [&](std::ptrdiff_t before) MORVA_VCLMUL {
        const __m128i piece = load(end - (before + 1) * static_cast<std::ptrdiff_t>(kPiece));
        sum = added(turned<kReflected>(_mm_xor_si128(piece, more)), load(last - before), sum);
        more = _mm_setzero_si128();
    };
    switch (whole) {
        case 3:
            add(2);
            [[fallthrough]];
        case 2:
            add(1);
            [[fallthrough]];
        case 1:
            add(0);
            [[fallthrough]];
        default:
            break;
    }
    return turned_rest<kReflected>(sum, c) ^ static_cast<std::uint64_t>(_mm_cvtsi128_si64(more));
}

// The four pieces of a register added up.
MORVA_VCLMUL inline __m128i in_one(__m512i four) {
    const __m256i two =
        _mm256_xor_si256(_mm512_castsi512_si256(four), _mm512_extracti64x4_epi64(four, 1));
    return _mm_xor_si128(_mm256_castsi256_si128(two), _mm256_extracti128_si256(two, 1));
}

// As fold_pieces, by registers of four pieces, for more than one of them.
template <bool kReflected>
MORVA_VCLMUL std::uint64_t fold_registers(std::uint64_t start, const unsigned char* bytes,
                                          std::size_t n, const Constants& c) {
    const unsigned char* const end = bytes + n;
    const std::size_t odd = (n - 1) % kWide + 1, whole = (n - 1) / kWide;
    const __mmask64 back = ~std::uint64_t{0} << (kWide - odd);
    const __m512i first =
        _mm512_xor_si512(_mm512_loadu_si512(bytes), _mm512_zextsi128_si512(word(start)));
    const __m512i front = _mm512_maskz_expand_epi8(back, first);
    __m512i more = _mm512_zextsi128_si512(word(odd < sizeof start ? start >> (8 * odd) : 0));
    const Pair* const last = std::end(c.last) - 4;
    __m512i sum = added(turned<kReflected>(front), _mm512_load_si512(last - 4 * whole),
                        _mm512_setzero_si512());
    const auto add = [&](std::ptrdiff_t before) MORVA_VCLMUL {
        const __m512i pieces =
            _mm512_loadu_si512(end - (before + 1) * static_cast<std::ptrdiff_t>(kWide));
        sum = added(turned<kReflected>(_mm512_xor_si512(pieces, more)),
                    _mm512_load_si512(last - 4 * before), sum);
        more = _mm512_setzero_si512();
    };
    switch (whole) {
        case 3:
            add(2);
            [[fallthrough]];
        case 2:
            add(1);
            [[fallthrough]];
        default:
            add(0);
    }
    return turned_rest<kReflected>(in_one(sum), c);
}

// Four registers in a row are moved on side by side, and at last to the end. In front of them are
// zeros, and what does not fill a register.
template <bool kReflected>
MORVA_VCLMUL std::uint64_t fold_wide(std::uint64_t start, const unsigned char* bytes, std::size_t n,
                                     const Constants& c) {
    const unsigned char* const end = bytes + n;
    const auto next = [&]() MORVA_VCLMUL {
        const __m512i pieces = turned<kReflected>(_mm512_loadu_si512(bytes));
        bytes += kWide;
        return pieces;
    };
    const __m512i by_four = _mm512_broadcast_i32x4(load(&c.fold[16])),
                  zero = _mm512_setzero_si512();
    __m512i more = _mm512_zextsi128_si512(word(start));
    __m512i a = zero, b = zero, d = zero, e = zero;
    if (n % (4 * kWide) == 0) {
        a = _mm512_xor_si512(next(), turned<kReflected>(more));
        b = next(), d = next(), e = next();
    } else {
        const std::size_t odd = n % kWide;
        if (odd > 0) {
            const __mmask64 back = ~std::uint64_t{0} << (kWide - odd);
            const __m512i front = _mm512_xor_si512(_mm512_loadu_si512(bytes), more);
            d = turned<kReflected>(_mm512_maskz_expand_epi8(back, front));
            more = _mm512_zextsi128_si512(word(odd < sizeof start ? start >> (8 * odd) : 0));
            bytes += odd;
        }
        const __m512i front = d;
        e = _mm512_xor_si512(next(), turned<kReflected>(more));
        while ((end - bytes) % static_cast<std::ptrdiff_t>(4 * kWide) != 0) {
            a = b;
            b = d;
            d = e;
            e = next();
        }
        if (n / kWide % 4 == 0) e = added(front, by_four, e);  // there were five
    }
    while (bytes < end) {
        for (std::size_t line = 0; line < 4; ++line)
            _mm_prefetch(bytes + kAhead + line * kWide, _MM_HINT_T0);
        a = added(a, by_four, next());
        b = added(b, by_four, next());
        d = added(d, by_four, next());
        e = added(e, by_four, next());
    }
    const auto to_end = [&](__m512i pieces, int place, __m512i others) MORVA_VCLMUL {
        return added(pieces, _mm512_load_si512(c.last + 4 * place), others);
    };
    a = _mm512_xor_si512(to_end(a, 0, to_end(b, 1, zero)), to_end(d, 2, to_end(e, 3, zero)));
    return turned_rest<kReflected>(in_one(a), c);
}

template <class C>
MORVA_VCLMUL typename C::Word add_vclmul(typename C::Word crc, const unsigned char* bytes,
                                         std::size_t n, typename C::Word* result) {
    static_assert(C::kReflected || C::kWidth < 64);  // no term of the mirror image is lost
    static constexpr Constants kConstants = fold::constants<fold::Reflected<C>>();
    const std::uint64_t start = fold::start_of<C>(crc);
    std::uint64_t rest;
    if (n <= kWide)
        rest = fold_pieces<C::kReflected>(start, bytes, n, kConstants);
    else if (n <= 4 * kWide)
        rest = fold_registers<C::kReflected>(start, bytes, n, kConstants);
    else
        rest = fold_wide<C::kReflected>(start, bytes, n, kConstants);
    return *result = fold::crc_of<C>(rest);
}

bool has_clmul() {
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
}

bool has_vclmul() {
    return has_clmul() && __builtin_cpu_supports("vpclmulqdq") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("gfni");
}

constexpr CrcVersion kVersions[] = {
    {"AVX-512", has_vclmul, add_vclmul<Crc16>, add_vclmul<Crc32>, add_vclmul<Crc64>,
     add_vclmul<QtCrc>},
    {"PCLMULQDQ", has_clmul, add_clmul<Crc16>, add_clmul<Crc32>, add_clmul<Crc64>,
     add_clmul<QtCrc>},
};

[[gnu::constructor]] void choose() {
    __builtin_cpu_init();
    for (const CrcVersion& version : kVersions)
        if (version.runs()) {
            g_crcs = version;
            return;
        }
}

}  // namespace

std::span<const CrcVersion> crc_versions() {
    return kVersions;
}

#else

std::span<const CrcVersion> crc_versions() {
    return {};
}

#endif

}  // namespace morva
