#include <cmath>
#include <limits>
#include <memory>

#include "skerrows.h"
#include "support/kit.hpp"

// By value, for the matchers.
static bool operator==(const Vkpoint& a, const Vkpoint& b) {
    return a.x == b.x && a.y == b.y;
}
static bool operator==(const Vkipoint& a, const Vkipoint& b) {
    return a.x == b.x && a.y == b.y;
}
static bool operator==(const Vklpt& a, const Vklpt& b) {
    return a.x == b.x && a.low == b.low && a.high == b.high;
}

namespace {

using testing::ElementsAre;

// A list that its functions make; frees it.
template <class Point>
class List {
  public:
    List(std::initializer_list<Point> points = {}) {
        if (points.size() > 0) tbl_ = inittbl(1, 1, 1, nullptr, sizeof(Point));
        for (const Point& point : points) pushtbl(tbl_, &point);
    }
    ~List() {
        if (tbl_ != nullptr) freetbl(tbl_, nullptr);
    }
    List(const List&) = delete;
    List& operator=(const List&) = delete;
    Tbl* get() const { return tbl_; }
    Tbl** address() { return &tbl_; }
    std::vector<Point> points() const {
        std::vector<Point> all;
        for (long i = 0; i < maxtbl(tbl_); ++i)
            all.push_back(*static_cast<Point*>(gettbl(tbl_, i)));
        return all;
    }

  private:
    Tbl* tbl_ = nullptr;
};

TEST(RingPoints, AreTheNewestUpToAnEndOldestFirst) {
    const kit::TempDir dir;
    const std::string path = dir.file("ring");
    Ring* ring = openring(path.c_str(), nullptr, 10, 0);
    for (int i = 1; i <= 6; ++i) pushring(ring, i, 10 * i);
    List<Vkpoint> points;
    EXPECT_EQ(ptsring(ring, points.address(), 5, 3), 3);
    EXPECT_THAT(points.points(), ElementsAre(Vkpoint{3, 30}, Vkpoint{4, 40}, Vkpoint{5, 50}));
    EXPECT_EQ(static_cast<Vkpoint*>(gettbl(points.get(), 99))->x, Vknullpt.x);
    EXPECT_EQ(points.get()->itemsize, 16);
    EXPECT_EQ(ptsring(ring, points.address(), 2, 1.5), 2) << "in front of what is there";
    EXPECT_EQ(points.points()[0], (Vkpoint{1, 10}));
    EXPECT_EQ(maxtbl(points.get()), 5);
    EXPECT_EQ(ptsring(ring, points.address(), 0, 100), 0) << "the last 100 seconds";
    EXPECT_EQ(pushring(ring, std_now() - 5, 1), 0);
    EXPECT_EQ(ptsring(ring, points.address(), 0, 100), 2) << "with the end of the break";
    closering(ring);
}

TEST(RingPoints, HaveARange) {
    double range[4];
    List<Vkpoint> none;
    EXPECT_EQ(ptsrange(none.get(), range), -1);
    EXPECT_THAT(range, testing::Each(-9.9e-34));
    const List<Vkpoint> points = {{3, -1}, {1, 5}, {2, std::nan("")}};
    EXPECT_EQ(ptsrange(points.get(), range), 0);
    EXPECT_THAT(range, ElementsAre(1, 3, -1, 5));
}

TEST(RingPoints, AreScaled) {
    const List<Vkpoint> points = {{1, 2}, {-3, 0.5}};
    const double scale[4] = {2, 1, -10, 0.25};
    List<Vkpoint> scaled;
    List<Vkipoint> rounded;
    EXPECT_EQ(scalepts(points.get(), scaled.address(), scale), 0);
    EXPECT_THAT(scaled.points(), ElementsAre(Vkpoint{3, -19.75}, Vkpoint{-5, -4.75}));
    EXPECT_EQ(iscalepts(points.get(), rounded.address(), scale), 0);
    EXPECT_THAT(rounded.points(), ElementsAre(Vkipoint{3, -19}, Vkipoint{-4, -4}));
    const List<Vkpoint> absurd = {{1e300, -1e300}, {std::nan(""), 0}};
    EXPECT_EQ(iscalepts(absurd.get(), rounded.address(), scale), 0);
    EXPECT_EQ(rounded.points()[2], (Vkipoint{INT32_MAX, INT32_MAX}));
    EXPECT_EQ(rounded.points()[3].x, 0);
    EXPECT_EQ(scalepts(scaled.get(), scaled.address(), scale), 0) << "to itself";
    EXPECT_EQ(maxtbl(scaled.get()), 4);
}

TEST(RingPoints, BecomeRunsInColumns) {
    const struct {
        const char* what;
        std::initializer_list<Vkipoint> points;
        std::vector<Vklpt> runs;
    } rows[] = {
        {"one column", {{4, 3}, {4, 9}, {4, 5}}, {{4, 3, 9}}},
        {"neighbours", {{0, 3}, {1, 9}, {2, 5}}, {{0, 3, 3}, {1, 9, 9}, {2, 5, 5}}},
        {"a jump", {{1, 2}, {1, 4}, {6, 8}, {6, 1}}, {{1, 2, 4}, {3, 4, 8}, {6, 1, 8}}},
        {"a jump of two", {{1, 7}, {3, 2}}, {{1, 7, 7}, {2, 2, 7}, {3, 2, 2}}},
        {"outside in y", {{1, -50}, {2, 101}, {2, 500}}, {{1, -1, -1}, {2, 101, 101}}},
        {"outside in x", {{-5, 1}, {-1, 2}, {100, 3}, {101, 4}, {7, 7}}, {{100, 3, 3}}},
        {"nothing", {{-1, 1}}, {}},
    };
    for (const auto& row : rows) {
        const List<Vkipoint> points = row.points;
        List<Vklpt> runs;
        EXPECT_EQ(decimatepts(points.get(), 100, 100, runs.address()), 0);
        EXPECT_EQ(runs.points(), row.runs) << row.what;
        EXPECT_EQ(runs.get()->itemsize, 12);
    }
}

TEST(RingPoints, ArePrinted) {
    const List<Vkpoint> points = {{1, 2}, {3, 4}, {5, 6}};
    const List<Vkipoint> integers = {{-1, 2}};
    const List<Vklpt> runs = {{1, 2, 3}};
    EXPECT_EQ(kit::captured(1,
                            [&] {
                                debug_some_points(points.get(), 1);
                                debug_vkipoint_tbl(integers.get());
                                debug_vklpt_tbl(runs.get());
                            }),
              "    0           1.00000 2\n  ...\n    2           5.00000 6\n"
              "    0     -1      2\n    0      1      2      3\n");
    EXPECT_EQ(kit::captured(1, [&] { debug_vkpoint_tbl(points.get()); }),
              kit::captured(1, [&] { debug_some_points(points.get(), 2); }));
}

}  // namespace
