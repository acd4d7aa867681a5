// Lists of points for plotting: taken from a ring, scaled, and reduced to runs in columns.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>

#include "containers/tbl.hpp"
#include "morva/ring.h"
#include "shared/ring.hpp"
#include "skerrows.h"

const Vkpoint Vknullpt = {-9.9e-34, -9.9e-34};

namespace {

constexpr int kRoom = 100;

template <class Point>
const Point& point_at(const Tbl* points, long i) {
    return *reinterpret_cast<const Point*>(morva::tbl_slot(points, i));
}

// The list, made when there is none.
template <class Point>
Tbl* ready(Tbl** list) {
    static_assert(sizeof(Point) <= sizeof Vknullpt);
    if (*list == nullptr) *list = inittbl(kRoom, kRoom, 1, &Vknullpt, sizeof(Point));
    return *list;
}

int32_t rounded(double coordinate) {
    constexpr double kLargest = std::numeric_limits<int32_t>::max();
    constexpr double kSmallest = std::numeric_limits<int32_t>::min();
    const double moved = coordinate + 0.5;
    if (moved != moved) return 0;
    return static_cast<int32_t>(std::clamp(moved, kSmallest, kLargest));
}

// Appends convert(a x + b, c y + d) for each point.
template <class Point, class Convert>
int scale_points(Tbl* points, Tbl** out, const double* scale, Convert convert) {
    Tbl* to = ready<Point>(out);
    const long count = maxtbl(points);  // the list may be its own target
    for (long i = 0; i < count; ++i) {
        const Vkpoint point = point_at<Vkpoint>(points, i);
        const Point scaled = convert(scale[0] * point.x + scale[1], scale[2] * point.y + scale[3]);
        pushtbl(to, &scaled);
    }
    return 0;
}

// Gathers the points of one column at a time.
class Columns {
  public:
    explicit Columns(Tbl* out) : out_(out) {}

    void take(int32_t x, int32_t y) {
        if (some_ && x == run_.x) {
            run_.low = std::min(run_.low, y);
            run_.high = std::max(run_.high, y);
        } else {
            if (some_) pushtbl(out_, &run_);
            if (some_ && x - run_.x > 1) join(x, y);
            run_ = {x, y, y};
            some_ = true;
        }
        last_ = y;
    }
    void finish() {
        if (some_) pushtbl(out_, &run_);
    }

  private:
    void join(int32_t x, int32_t y) {
        const Vklpt joint = {run_.x + (x - run_.x) / 2, std::min(last_, y), std::max(last_, y)};
        pushtbl(out_, &joint);
    }

    Tbl* out_;
    bool some_ = false;
    Vklpt run_{};
    int32_t last_ = 0;
};

int print_point(long i, const Vkpoint& point) {
    return std::printf("%5ld %17.5f %g\n", i, point.x, point.y);
}

int print_point(long i, const Vkipoint& point) {
    return std::printf("%5ld %6d %6d\n", i, point.x, point.y);
}

int print_point(long i, const Vklpt& run) {
    return std::printf("%5ld %6d %6d %6d\n", i, run.x, run.low, run.high);
}

template <class Point>
int print_points(Tbl* points) {
    for (long i = 0; i < maxtbl(points); ++i) print_point(i, point_at<Point>(points, i));
    return 0;
}

}  // namespace

extern "C" {

long ptsring(Ring* ring, Tbl** points, double end, double span) {
    if (end == 0) end = std_now();
    Tbl* list = ready<Vkpoint>(points);
    const morva::ring::View view = morva::ring::look(ring);
    long added = 0;
    for (int64_t i = 0; i < view.count; ++i) {
        const Ring_point point = view.point(i);
        if (morva::ring::intact(view) <= i || point.time <= end - span) break;
        if (point.time > end) continue;
        const Vkpoint item = {point.time, point.value};
        unshifttbl(list, &item);
        ++added;
    }
    return added;
}

int ptsrange(Tbl* points, double* range) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (maxtbl(points) == 0) {
        std::fill_n(range, 4, Vknullpt.x);
        return -1;
    }
    Vkpoint low = {kInfinity, kInfinity}, high = {-kInfinity, -kInfinity};
    for (long i = 0; i < maxtbl(points); ++i) {
        const Vkpoint& point = point_at<Vkpoint>(points, i);
        low = {std::fmin(low.x, point.x), std::fmin(low.y, point.y)};
        high = {std::fmax(high.x, point.x), std::fmax(high.y, point.y)};
    }
    range[0] = low.x;
    range[1] = high.x;
    range[2] = low.y;
    range[3] = high.y;
    return 0;
}

int scalepts(Tbl* points, Tbl** out, const double* scale) {
    return scale_points<Vkpoint>(points, out, scale, [](double x, double y) {
        return Vkpoint{x, y};
    });
}

int iscalepts(Tbl* points, Tbl** out, const double* scale) {
    return scale_points<Vkipoint>(points, out, scale, [](double x, double y) {
        return Vkipoint{rounded(x), rounded(y)};
    });
}

int decimatepts(Tbl* points, int width, int height, Tbl** out) {
    const int32_t top = height == std::numeric_limits<int32_t>::max() ? height : height + 1;
    Columns columns(ready<Vklpt>(out));
    for (long i = 0; i < maxtbl(points); ++i) {
        const Vkipoint& point = point_at<Vkipoint>(points, i);
        if (point.x > width) break;
        if (point.x >= 0) columns.take(point.x, std::max(-1, std::min(point.y, top)));
    }
    columns.finish();
    return 0;
}

int debug_vkpoint_tbl(Tbl* points) {
    return print_points<Vkpoint>(points);
}

int debug_vkipoint_tbl(Tbl* points) {
    return print_points<Vkipoint>(points);
}

int debug_vklpt_tbl(Tbl* points) {
    return print_points<Vklpt>(points);
}

int debug_some_points(Tbl* points, int n) {
    const long count = maxtbl(points), first = std::min<long>(std::max(n, 0), count);
    for (long i = 0; i < first; ++i) print_point(i, point_at<Vkpoint>(points, i));
    if (count - first > first) std::printf("  ...\n");
    for (long i = std::max(first, count - first); i < count; ++i)
        print_point(i, point_at<Vkpoint>(points, i));
    return 0;
}

}  // extern "C"
