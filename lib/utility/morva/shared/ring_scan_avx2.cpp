// The AVX2 versions. Four points are 64 bytes: two loads, then times and values are sorted apart,
// both in the order 0, 2, 1, 3. Doubles are aligned to 8 bytes, and the processor loads each as a
// whole.
#include "shared/ring_scan.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include "base/simd.hpp"

namespace morva::ring {
namespace {

constexpr std::size_t kFour = 4;

struct Four {
    __m256d values;
    __m256d taken;  // all bits of a lane set: in the selection
};

struct Wanted {
    __m256d from;
    __m256d null;
};

MORVA_AVX2 inline Wanted wanted(const Selection& selection) {
    return {_mm256_set1_pd(selection.from), _mm256_set1_pd(selection.null)};
}

MORVA_AVX2 inline Four load_four(const Ring_point* points, const Wanted& wanted) {
    const double* from = &points->time;
    const __m256d low = _mm256_loadu_pd(from), high = _mm256_loadu_pd(from + kFour);
    const __m256d times = _mm256_unpacklo_pd(low, high), values = _mm256_unpackhi_pd(low, high);
    const __m256d late = _mm256_cmp_pd(times, wanted.from, _CMP_GE_OQ);
    return {values, _mm256_and_pd(late, _mm256_cmp_pd(values, wanted.null, _CMP_NEQ_UQ))};
}

MORVA_AVX2 inline double sum_of(__m256d lanes) {
    alignas(32) double lane[kFour];
    _mm256_store_pd(lane, lanes);
    return (lane[0] + lane[2]) + (lane[1] + lane[3]);
}

MORVA_AVX2 inline double largest_of(__m256d lanes) {
    alignas(32) double lane[kFour];
    _mm256_store_pd(lane, lanes);
    return std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
}

// The largest value of a block of a multiple of four points, or -infinity.
MORVA_AVX2 double largest_in(Piece block, const Wanted& wanted, __m256d flip) {
    const __m256d none = _mm256_set1_pd(-std::numeric_limits<double>::infinity());
    __m256d even = none, odd = none;
    std::size_t i = 0;
    // A NaN in the first operand of max gives the second.
    const auto take = [&](__m256d best, std::size_t at) MORVA_AVX2 {
        const Four four = load_four(&block[at], wanted);
        const __m256d values = _mm256_xor_pd(four.values, flip);
        return _mm256_max_pd(_mm256_blendv_pd(none, values, four.taken), best);
    };
    for (; i + 2 * kFour <= block.size(); i += 2 * kFour) {
        even = take(even, i);
        odd = take(odd, i + kFour);
    }
    if (i < block.size()) even = take(even, i);
    return largest_of(_mm256_max_pd(even, odd));
}

struct Sums {
    double n = 0, sum = 0, squares = 0;
};

// Of what a block of a multiple of four points has beyond an origin.
MORVA_AVX2 Sums sums_beyond(double origin, Piece block, const Wanted& wanted) {
    const __m256d from = _mm256_set1_pd(origin);
    __m256d sums[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
    __m256d squares[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
    __m256i taken = _mm256_setzero_si256();
    const auto take = [&](std::size_t at, int half) MORVA_AVX2 {
        const Four four = load_four(&block[at], wanted);
        const __m256d beyond = _mm256_and_pd(_mm256_sub_pd(four.values, from), four.taken);
        sums[half] = _mm256_add_pd(sums[half], beyond);
        squares[half] = _mm256_add_pd(squares[half], _mm256_mul_pd(beyond, beyond));
        taken = _mm256_sub_epi64(taken, _mm256_castpd_si256(four.taken));
    };
    std::size_t i = 0;
    for (; i + 2 * kFour <= block.size(); i += 2 * kFour) {
        take(i, 0);
        take(i + kFour, 1);
    }
    if (i < block.size()) take(i, 0);
    alignas(32) int64_t counts[kFour];
    _mm256_store_si256(reinterpret_cast<__m256i*>(counts), taken);
    return {static_cast<double>(counts[0] + counts[1] + counts[2] + counts[3]),
            sum_of(_mm256_add_pd(sums[0], sums[1])), sum_of(_mm256_add_pd(squares[0], squares[1]))};
}

// One pass, with the mean so far as the origin. Where the block lies so far from it that its own
// deviations would drown, or holds what is no number, the plain version takes its two passes.
MORVA_AVX2 Moments moments_of_block(Piece block, const Selection& selection, double mean) {
    const double origin = std::abs(mean) < std::numeric_limits<double>::max() ? mean : 0;
    const Sums sums = sums_beyond(origin, block, wanted(selection));
    if (sums.n == 0) return {};
    const double beyond = sums.sum / sums.n, squares = sums.squares - sums.sum * beyond;
    constexpr double kDrowned = 1000;
    if (!(sums.squares <= kDrowned * squares)) return moments_plain(block, selection);
    return {static_cast<int64_t>(sums.n), sums.sum + sums.n * origin, origin + beyond, squares};
}

// How much of a piece goes in fours; the plain version does the rest.
std::size_t whole_fours(Piece piece) {
    return piece.size() / kFour * kFour;
}

}  // namespace

// Finds the block with the largest value first, and the point within it last.
MORVA_AVX2 Extreme extreme_avx2(Piece piece, const Selection& selection, double sign) {
    const Wanted want = wanted(selection);
    const __m256d flip = _mm256_set1_pd(sign < 0 ? -0.0 : 0.0);
    const std::size_t end = whole_fours(piece);
    double best = Extreme().value;
    std::size_t best_at = piece.size();
    for (std::size_t at = 0; at < end; at += kBlock) {
        const double largest =
            largest_in(piece.subspan(at, std::min(kBlock, end - at)), want, flip);
        if (!(largest > best)) continue;
        best = largest;
        best_at = at;
    }
    // Nothing above -infinity: there may still be points of that value, or NaNs.
    if (best_at == piece.size()) return extreme_plain(piece, selection, sign);
    Extreme extreme =
        extreme_plain(piece.subspan(best_at, std::min(kBlock, end - best_at)), selection, sign);
    extreme.at += static_cast<int64_t>(best_at);
    const Extreme rest = extreme_plain(piece.subspan(end), selection, sign);
    if (rest.value > extreme.value) return {rest.value, rest.at + static_cast<int64_t>(end)};
    return extreme;
}

MORVA_AVX2 Moments moments_avx2(Piece piece, const Selection& selection) {
    const std::size_t end = whole_fours(piece);
    Moments moments;
    for (std::size_t at = 0; at < end; at += kBlock) {
        const Piece block = piece.subspan(at, std::min(kBlock, end - at));
        const double origin = moments.n > 0 ? moments.mean : load(block[0].value);
        moments.add(moments_of_block(block, selection, origin));
    }
    moments.add(moments_plain(piece.subspan(end), selection));
    return moments;
}

}  // namespace morva::ring

#else

namespace morva::ring {

Extreme extreme_avx2(Piece piece, const Selection& selection, double sign) {
    return extreme_plain(piece, selection, sign);
}

Moments moments_avx2(Piece piece, const Selection& selection) {
    return moments_plain(piece, selection);
}

}  // namespace morva::ring

#endif
