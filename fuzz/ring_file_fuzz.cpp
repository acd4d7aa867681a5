// Opens the input as a ring file, asks it everything, and pushes points into it. Whatever opens
// must say the same of itself twice, and hold what was pushed.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/simd.hpp"
#include "morva.h"

namespace {

void demand(bool held) {
    if (!held) std::abort();
}

bool equal(double a, double b) {
    return a == b || (a != a && b != b) || std::abs(a - b) <= 1e-6 * (std::abs(a) + std::abs(b));
}

void ask(Ring* ring, double span) {
    int at[2], n[2];
    double most[2], mean[2], deviation[2];
    for (const int k : {0, 1}) {
        morva::force_simd(k == 0 ? morva::Simd::kPlain : morva::best_simd());
        most[k] = maxring(ring, &at[k], span);
        meanring(ring, &n[k], &mean[k], &deviation[k], span);
    }
    demand(most[0] == most[1] && at[0] == at[1] && n[0] == n[1]);
    demand(!(std::abs(mean[0]) < 1e100) || equal(mean[0], mean[1]) || std::abs(mean[1]) < 1e300);
    double time = 0, value = 0, slope, intercept, r;
    const double median = 0.5;
    minring(ring, nullptr, span);
    linearfitring(ring, n, &slope, &intercept, &r, span);
    quantilesring(ring, &median, &value, 1, span);
    demand(tallyring(ring, span) < countring(ring));
    demand(changedring(ring, span) >= 0);
    valring(ring, &time, &value);
    nearbymaxring(ring, &time, &value, span);
    Tbl *points = nullptr, *pixels = nullptr, *runs = nullptr;
    const long added = ptsring(ring, &points, 1e9, span);
    demand(added == maxtbl(points) && added <= countring(ring));
    double range[4];
    ptsrange(points, range);
    const double scale[4] = {1, 0, 1, 0};
    iscalepts(points, &pixels, scale);
    decimatepts(pixels, 100, 100, &runs);
    for (Tbl* list : {points, pixels, runs}) freetbl(list, nullptr);
}

void push(Ring* ring) {
    double time, value;
    demand(addring(ring, 5, 7) == 0);
    demand(getring(ring, 0, &time, &value) == 0 && time == 5 && value == 7);
    demand(pushring(ring, 4, 7) == -2 && pushring(ring, 5, 7) == -2);
    demand(pushring(ring, 500, 8) == 0 && cramring(ring, "collapse", 501, 8) == 0);
    std::vector<Ring_point> all(static_cast<std::size_t>(ring->size));
    demand(snapring(ring, all.data(), ring->size) == countring(ring));
    demand(all[0].time == 501 && all[0].value == 8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int fd = ::memfd_create("ring", 0);
    if (::ftruncate(fd, static_cast<off_t>(size)) != 0 ||
        ::pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    for (const int flags : {RING_READONLY, 0}) {
        Ring* ring = openring(path, nullptr, 1, flags);
        if (ring == nullptr) continue;
        demand(ring->size >= 1 && 104 + 16 * static_cast<size_t>(ring->size) <= size);
        constexpr double kSpans[] = {0.0, 10.0, 1e300, -1.0};
        ask(ring, kSpans[bytes[size - 1] % 4]);
        if (flags == 0) push(ring);
        closering(ring);
    }
    elog_clear();
    return 0;
}
