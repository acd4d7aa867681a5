#include "morva/iso.h"

#include <random>
#include <sstream>

#include "support/kit.hpp"

namespace {

constexpr std::int64_t kNoon = 1403613015;  // 2014-06-24 12:30:15 UTC

TEST(Iso, ReadsOneNotation) {
    const struct {
        const char* text;
        std::int64_t seconds;
        std::int64_t nanoseconds;
    } rows[] = {
        {"2014-06-24T12:30:15Z", kNoon, 0},
        {"2014-06-24T12:30:15", kNoon, 0},
        {"2014-06-24T12:30:15.5Z", kNoon, 500000000},
        {"2014-06-24T12:30:15,123456789999Z", kNoon, 123456789},
        {"2014-06-24T14:30:15+02:00", kNoon, 0},
        {"2014-06-24T14:30:15+0200", kNoon, 0},
        {"2014-06-24T07:30:15-05", kNoon, 0},
        {"2014-175T12:30:15Z", kNoon, 0},
        {"20140624T123015Z", kNoon, 0},
        {"2014175T123015.000000001Z", kNoon, 1},
        {"2014-06-24T12:30.25Z", kNoon, 0},
        {"2014-06-24T12.5Z", kNoon - 15, 0},
        {"20140624T1230Z", kNoon - 15, 0},
        {"2014-06-24", kNoon - 45015, 0},
        {"2014-06-24T24:00:00Z", kNoon - 45015 + 86400, 0},
        {"2016-12-31T23:59:60Z", 1483228800, 0},
        {"1969-12-31T23:59:59.75Z", -1, 750000000},
        {"2000-02-29", 951782400, 0},
    };
    for (const auto& row : rows) {
        double epoch = 0;
        std::int64_t ns = 0;
        ASSERT_EQ(iso2epoch(row.text, &epoch, &ns), 0) << row.text;
        EXPECT_EQ(ns, row.seconds * 1000000000 + row.nanoseconds) << row.text;
        EXPECT_DOUBLE_EQ(
            epoch, static_cast<double>(row.seconds) + static_cast<double>(row.nanoseconds) * 1e-9);
    }
}

TEST(Iso, RefusesEverythingElse) {
    kit::Logged logged;
    double epoch = 7;
    for (const char* text : {"",
                             " 2014-06-24",
                             "2014-06-24 12:30",
                             "2014-6-24",
                             "2014-02-29",
                             "2014-13-01",
                             "2014-366",
                             "2014-000",
                             "2014-06-24T",
                             "2014-06-24T12:60Z",
                             "2014-06-24T24:00:01Z",
                             "2014-06-24T25Z",
                             "2014-06-24T12:30:61Z",
                             "2014-06-24T12:30:15.Z",
                             "2014-06-24T12.5:30Z",
                             "2014-06-24t12Z",
                             "2014-06-24T12:30:15z",
                             "2014-06-24T12:30:15+",
                             "2014-06-24T12:30:15+24:00",
                             "2014-06-24T1230Z",
                             "20140624T12:30Z",
                             "2014-06-24Z",
                             "2014-06-24T12:30:15ZZ",
                             "14-06-24"})
        EXPECT_EQ(iso2epoch(text, &epoch, nullptr), -1) << text;
    EXPECT_EQ(iso2epoch(nullptr, &epoch, nullptr), -1);
    std::int64_t ns;
    EXPECT_EQ(iso2epoch("9999-01-01", nullptr, &ns), -1);
    EXPECT_EQ(epoch, 7);
    EXPECT_EQ(iso2epoch("9999-01-01", &epoch, nullptr), 0);
    EXPECT_EQ(epoch, 253370764800.0);
}

TEST(Iso, ComesBackAsWritten) {
    EXPECT_EQ(kit::taken(epoch2iso(kNoon * 1000000000 + 123456789, 3)), "2014-06-24T12:30:15.123Z");
    EXPECT_EQ(kit::taken(epoch2iso(-1, 0)), "1969-12-31T23:59:59Z");
    std::mt19937_64 random(4);
    std::int64_t edges[] = {INT64_MIN, INT64_MAX, 0, -1};
    for (int i = 0; i < 20000; ++i) {
        const auto ns = i < 4 ? edges[i] : static_cast<std::int64_t>(random());
        std::int64_t back = 0;
        const std::string text = kit::taken(epoch2iso(ns, 9));
        ASSERT_EQ(iso2epoch(text.c_str(), nullptr, &back), 0) << text;
        ASSERT_EQ(back, ns) << text;
    }
}

// The rows of docs/times.md that end in a time as epoch2iso writes it.
TEST(Iso, IsReadAsThePageSays) {
    std::istringstream page(kit::read_file(MORVA_SOURCE_DIR "/docs/times.md"));
    int rows = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.size() < 3 || line.substr(line.size() - 3) != "Z |") continue;
        const std::size_t start = line.find('`') + 1, end = line.find('`', start);
        const std::string form = line.substr(end + 4, line.size() - 2 - (end + 4));
        std::int64_t ns = 0;
        EXPECT_EQ(iso2epoch(line.substr(start, end - start).c_str(), nullptr, &ns), 0) << line;
        EXPECT_EQ(kit::taken(epoch2iso(ns, 9)), form) << line;
        ++rows;
    }
    EXPECT_GT(rows, 15);
}

}  // namespace
