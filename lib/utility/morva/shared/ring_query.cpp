// What a ring tells about its points. Every answer is of one instant; see settled() in ring.hpp.
#include <algorithm>
#include <cmath>
#include <limits>

#include "base/memory.hpp"
#include "base/simd.hpp"
#include "morva/ring.h"
#include "shared/ring.hpp"
#include "shared/ring_scan.hpp"

namespace {

using morva::Simd;
using morva::ring::Extreme;
using morva::ring::Moments;
using morva::ring::same;
using morva::ring::Selection;
using morva::ring::settled;
using morva::ring::View;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

template <class T, class From>
void give(T* to, From value) {
    if (to != nullptr) *to = static_cast<T>(value);
}

// The early end of a span; NaN in an empty ring.
double start_of(const View& view, double span) {
    return view.count == 0 ? kNan : view.time(0) - span;
}

Selection from_start(const View& view, double span) {
    return {start_of(view, span), morva::ring::break_value(view.ring)};
}

Selection behind_start(const View& view, double span) {
    return {morva::ring::just_after(start_of(view, span)), morva::ring::break_value(view.ring)};
}

// Calls visit(time, value) for every point of the selection, from the newest on.
template <class Visit>
void for_each(const View& view, const Selection& selection, Visit visit) {
    for (const auto piece : {view.first_piece(), view.second_piece()})
        for (const Ring_point& point : piece)
            if (selection.takes(point))
                visit(morva::ring::load(point.time), morva::ring::load(point.value));
}

// ---- largest and smallest

Extreme extreme_of(const View& view, const Selection& selection, double sign) {
    const auto scan =
        morva::may_use(Simd::kAvx2) ? morva::ring::extreme_avx2 : morva::ring::extreme_plain;
    const auto newer = view.first_piece();
    const Extreme first = scan(newer, selection, sign);
    const Extreme second = scan(view.second_piece(), selection, sign);
    if (second.at < 0 || (first.at >= 0 && first.value >= second.value)) return first;
    return {second.value, second.at + static_cast<int64_t>(newer.size())};
}

double extreme_ring(Ring* ring, int* i, double span, double sign) {
    const Extreme extreme = settled(
        ring, [&](const View& view) { return extreme_of(view, behind_start(view, span), sign); });
    give(i, extreme.at);
    return sign * extreme.value;
}

// ---- mean and line

Moments moments_of(const View& view, const Selection& selection) {
    const auto scan =
        morva::may_use(Simd::kAvx2) ? morva::ring::moments_avx2 : morva::ring::moments_plain;
    Moments moments = scan(view.first_piece(), selection);
    moments.add(scan(view.second_piece(), selection));
    return moments;
}

struct Line {
    int n = 0;
    double slope = 0;
    double intercept = 0;
    double r = 0;
};

// Sums over the points as seen from an origin.
struct Sums {
    double n = 0, x = 0, y = 0;
    double xx = 0, xy = 0, yy = 0;
};

// Two passes: times and values are first taken from the newest point that counts, so that equal
// times stay exactly equal, then from their means, so that nothing cancels.
Line line_through(const View& view, const Selection& selection) {
    double time0 = 0, value0 = 0;
    Sums sums;
    for_each(view, selection, [&](double time, double value) {
        if (sums.n == 0) time0 = time, value0 = value;
        sums.n += 1;
        sums.x += time - time0;
        sums.y += value - value0;
    });
    if (sums.n < 2) return {static_cast<int>(sums.n)};
    const double mean_x = sums.x / sums.n, mean_y = sums.y / sums.n;
    for_each(view, selection, [&](double time, double value) {
        const double x = time - time0 - mean_x, y = value - value0 - mean_y;
        sums.xx += x * x;
        sums.xy += x * y;
        sums.yy += y * y;
    });
    Line line;
    line.n = static_cast<int>(sums.n);
    if (sums.xx == 0) {
        line.slope = line.intercept = kInfinity;
        return line;
    }
    line.slope = sums.xy / sums.xx;
    line.intercept = value0 + mean_y - line.slope * (time0 + mean_x);
    line.r = sums.xy / std::sqrt(sums.xx * sums.yy);
    return line;
}

// ---- quantiles

morva::Vector<double> sorted_values(const View& view, const Selection& selection) {
    morva::Vector<double> values;
    for_each(view, selection, [&](double, double value) {
        if (value == value) values.push_back(value);
    });
    std::sort(values.begin(), values.end());
    return values;
}

double quantile(const morva::Vector<double>& sorted, double fraction) {
    if (sorted.empty() || !(fraction >= 0 && fraction <= 1)) return kNan;
    const double place = fraction * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    if (sorted[below] == sorted[above]) return sorted[below];  // infinities, too
    const double share = place - static_cast<double>(below);
    return share == 0 ? sorted[below] : sorted[below] * (1 - share) + sorted[above] * share;
}

// ---- single points

// The first point for which `wanted` is true, or -1.
template <class Wanted>
int64_t first_of(const View& view, int64_t from, Wanted wanted) {
    for (int64_t i = from; i < view.count; ++i)
        if (wanted(i)) return i;
    return -1;
}

// The best point near a time, or -1.
int64_t nearby_max(const View& view, double time, double halfwidth, double least) {
    int64_t best = -1;
    for (int64_t i = 0; i < view.count && view.time(i) >= time - halfwidth; ++i) {
        if (!(view.time(i) <= time + halfwidth) || !(view.value(i) > least)) continue;
        least = view.value(i);
        best = i;
    }
    return best;
}

struct Found {
    bool found = false;
    Ring_point point{};
};

Found found_at(const View& view, int64_t i) {
    if (i < 0) return {};
    return {true, view.point(i)};
}

}  // namespace

extern "C" {

int valring(Ring* ring, double* time, double* value) {
    const Found earlier = settled(ring, [&](const View& view) -> Found {
        if (view.count == 0 || !(view.time(0) > *time)) return {};
        return found_at(view, first_of(view, 0, [&](int64_t i) { return view.time(i) < *time; }));
    });
    if (!earlier.found) return -1;
    *time = earlier.point.time;
    give(value, earlier.point.value);
    return 0;
}

int nearbymaxring(Ring* ring, double* time, double* value, double halfwidth) {
    constexpr double kLeast = -9e38;
    const Found best = settled(ring, [&](const View& view) {
        return found_at(view, nearby_max(view, *time, halfwidth, kLeast));
    });
    give(value, best.found ? best.point.value : kLeast);
    if (!best.found) return -1;
    *time = best.point.time;
    return 0;
}

long findring(Ring* ring, double value, double span) {
    return settled(ring, [&](const View& view) {
        const double start = start_of(view, span);
        return first_of(view, 0,
                        [&](int64_t i) { return view.value(i) == value && view.time(i) > start; });
    });
}

long tallyring(Ring* ring, double span) {
    return settled(ring, [&](const View& view) {
        const Selection whole = behind_start(view, span);
        const int64_t end = first_of(view, 0, [&](int64_t i) { return !whole.takes(view.at(i)); });
        return (end < 0 ? view.count : end) - 1;
    });
}

long changedring(Ring* ring, double span) {
    return settled(ring, [&](const View& view) {
        if (view.count == 0) return int64_t{0};
        const double newest = view.value(0), start = start_of(view, span);
        const int64_t end = first_of(view, 1, [&](int64_t i) {
            return !(view.value(i) == newest) || !(view.time(i) > start);
        });
        return end > 0 && !(view.value(end) == newest) ? end : 0;
    });
}

double maxring(Ring* ring, int* i, double span) {
    return extreme_ring(ring, i, span, 1.0);
}

double minring(Ring* ring, int* i, double span) {
    return extreme_ring(ring, i, span, -1.0);
}

int meanring(Ring* ring, int* n, double* mean, double* deviation, double span) {
    const Moments moments =
        settled(ring, [&](const View& view) { return moments_of(view, from_start(view, span)); });
    const auto count = static_cast<double>(moments.n);
    give(n, moments.n);
    give(mean, moments.n < 1 ? 0 : moments.sum / count);
    give(deviation, moments.n < 2 ? 0 : std::sqrt(moments.squares / (count - 1)));
    return moments.n < 1 ? -1 : 0;
}

double avgring(Ring* ring, double span) {
    double mean;
    meanring(ring, nullptr, &mean, nullptr, span);
    return mean;
}

int linearfitring(Ring* ring, int* n, double* slope, double* intercept, double* r, double span) {
    const Line line =
        settled(ring, [&](const View& view) { return line_through(view, from_start(view, span)); });
    give(n, line.n);
    give(slope, line.slope);
    give(intercept, line.intercept);
    give(r, line.r);
    return line.n < 2 ? -1 : 0;
}

long quantilesring(Ring* ring, const double* fractions, double* values, int n, double span) {
    const morva::Vector<double> sorted = settled(
        ring, [&](const View& view) { return sorted_values(view, behind_start(view, span)); });
    for (int k = 0; k < n; ++k) values[k] = quantile(sorted, fractions[k]);
    return static_cast<long>(sorted.size());
}

// What the writer overwrote while it was copied comes last, and is left out.
long snapring(Ring* ring, Ring_point* points, long max) {
    constexpr int kAttempts = 100;
    for (int attempt = 1;; ++attempt) {
        const View view = morva::ring::look(ring);
        const int64_t wanted = std::clamp<int64_t>(max, 0, view.count);
        for (int64_t i = 0; i < wanted; ++i) points[i] = view.point(i);
        int64_t whole = std::min(morva::ring::intact(view), wanted);
        // Pushes are seen by where the index is: not those that went all the way round.
        if (wanted > 0 && !same(points[0], view.point(0))) whole = 0;
        if (whole == wanted || attempt == kAttempts) return whole;
    }
}

}  // extern "C"
