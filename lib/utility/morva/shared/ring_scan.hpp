// The loops over many points behind maxring, minring and meanring: one clear version, and one for
// AVX2 that takes four points at a time. Each works on a piece of points that lie one behind the
// other.
#pragma once

#include <cstdint>
#include <limits>
#include <span>

#include "shared/ring.hpp"

namespace morva::ring {

using Piece = std::span<const Ring_point>;

// The largest value, or with sign -1 the negative of the smallest, and the first point that has it.
struct Extreme {
    double value = -std::numeric_limits<double>::infinity();
    int64_t at = -1;
};

Extreme extreme_plain(Piece piece, const Selection& selection, double sign);
Extreme extreme_avx2(Piece piece, const Selection& selection, double sign);

// Number, sum and sum of squared deviations from the mean.
struct Moments {
    int64_t n = 0;
    double sum = 0;
    double mean = 0;
    double squares = 0;

    // Takes in those of other points: Chan, Golub and LeVeque, Updating Formulae and a Pairwise
    // Algorithm for Computing Sample Variances (1979).
    void add(const Moments& other) {
        if (other.n == 0) return;
        const double total = static_cast<double>(n + other.n), delta = other.mean - mean;
        const double share = static_cast<double>(other.n) / total;
        squares += other.squares + delta * delta * static_cast<double>(n) * share;
        mean += delta * share;
        sum += other.sum;
        n += other.n;
    }
};

// So many points stay in the first cache while they are gone through twice.
constexpr std::size_t kBlock = 256;

Moments moments_plain(Piece piece, const Selection& selection);
Moments moments_avx2(Piece piece, const Selection& selection);

}  // namespace morva::ring
