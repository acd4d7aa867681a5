#include <cmath>
#include <limits>
#include <random>

#include "support/kit.hpp"

namespace {

using kit::Env;
using kit::Logged;
using kit::taken;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kJune = 1403613015.25;   // 2014-06-24 12:30:15.25, a Tuesday
constexpr double kJanuary = 978653106.0;  // 2001-01-05 00:05:06, a Friday

struct Row {
    const char* format;
    double epoch;
    const char* text;
};

constexpr Row kRows[] = {Row{"%A %a", kJune, "Tuesday Tue"},
                         Row{"%A %a", 0, "Thursday Thu"},
                         Row{"%A", -1, "Wednesday"},
                         Row{"%B %b", kJune, "June Jun"},
                         Row{"%D", kJune, " 6/24/14"},
                         Row{"%d %e", kJanuary, "05  5"},
                         Row{"%E", kJune, " 1403613015.250"},
                         Row{"%E", -0.0625, "         -0.062"},
                         Row{"%E", 1e20, "100000000000000000000.000"},
                         Row{"%G %g", kJune, "2014-06-24 2014-175"},
                         Row{"%H %k", kJanuary, "00  0"},
                         Row{"%I %l %p", kJanuary, "12 12 AM"},
                         Row{"%I %l %p", kJanuary + 13 * 3600, "01  1 PM"},
                         Row{"%I%p", kJune, "12PM"},
                         Row{"%j", kJanuary, "005"},
                         Row{"%L %m", kJanuary, " 1 01"},
                         Row{"%M %S", kJanuary, "05 06"},
                         Row{"%n%t", 0, "\n\t"},
                         Row{"%O %o", kJune, "175th 24th"},
                         Row{"%O %o", kJanuary, "5th 5th"},
                         Row{"%s", 0.9996, "1000"},
                         Row{"%s", 0.9994, "999"},
                         Row{"%s", 1.0014, "001"},
                         Row{"%T", 59.9996, "00:00:60.000"},
                         Row{"%T", 0.0625, "00:00:00.062"},
                         Row{"%T", 0.1875, "00:00:00.188"},
                         Row{"%u", 0.123456, "12346"},
                         Row{"%u", 0.999999, "99999"},
                         Row{"%Y %y", kJune, "2014 14"},
                         Row{"%Y %y", -48000000000.0, " 448 48"},
                         Row{"%G", -48000000000.0, "0448-12-09"},
                         Row{"%Z%z", 0, "UTCUTC"},
                         Row{"100%% %q %", 0, "100% q "},
                         Row{"", 0, ""},
                         Row{"\xc3\xa9%\xc3\xa9", 0, "\xc3\xa9\xc3\xa9"},
                         Row{"%H:%M:%S", -1e-20, "24:00:00"},
                         Row{"%H:%M:%S.%s", -0.25, "23:59:59.750"},
                         Row{"%Y-%m-%d %H:%M:%S.%s", 0, "1970-01-01 00:00:00.000"}};

TEST(FormatCodes, MakeTexts) {
    for (const Row& row : kRows)
        EXPECT_EQ(taken(epoch2str(row.format, row.epoch)), row.text) << row.format;
}

// %E and %T round as printf does, which is exact.
TEST(FormatCodes, RoundAsPrintfDoes) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 200000; ++i) {
        double value =
            std::ldexp(static_cast<double>(random() >> 11), -static_cast<int>(random() % 70));
        if (i % 2 == 0) value = std::floor(value) + static_cast<double>(random() % 2001) / 2000;
        if (i % 4 == 1) value = -value;
        char expected[400];
        std::snprintf(expected, sizeof expected, "%15.3f", value);
        ASSERT_EQ(taken(epoch2str("%E", value)), expected) << std::hexfloat << value;
        const double second = std::fmod(std::fabs(value), 60);
        std::snprintf(expected, sizeof expected, "00:00:%06.3f", second);
        ASSERT_EQ(taken(epoch2str("%T", second)), expected) << std::hexfloat << second;
    }
}

TEST(FormatCodes, MakeTextsOfAnyLength) {
    std::string format, expected;
    for (int i = 0; i < 3000; ++i) {
        format += "%B,";
        expected += "June,";
    }
    EXPECT_EQ(taken(epoch2str(format.c_str(), kJune)), expected);
    EXPECT_EQ(taken(zepoch2str(format.c_str(), "UTC", kJune)), expected);
}

TEST(ZoneFormats, TakeNamesTextsAndTheLocalZone) {
    const Env tz("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const char* format = "%Y-%m-%d %T %z";
    const struct {
        const char* zone;
        double epoch;
        const char* text;
    } rows[] = {
        {"US/Mountain", kJune, "2014-06-24 06:30:15.250 MDT"},
        {"US/Mountain", kJanuary, "2001-01-04 17:05:06.000 MST"},
        {":Asia/Kolkata", kJune, "2014-06-24 18:00:15.250 IST"},
        {"EST5EDT4,M3.2.0,M11.1.0", kJune, "2014-06-24 08:30:15.250 EDT"},
        {"XXX5YYY", kJune, "2014-06-24 08:30:15.250 YYY"},
        {"<+0330>-3:30", kJune, "2014-06-24 16:00:15.250 +0330"},
        {"UTC", kJune, "2014-06-24 12:30:15.250 UTC"},
        {"", kJune, "2014-06-24 14:30:15.250 CEST"},
        {"LOCAL", kJanuary, "2001-01-05 01:05:06.000 CET"},
        {nullptr, kJanuary, "2001-01-05 01:05:06.000 CET"},
        {"UTC", -0.25, "1970-01-01 00:00:-0.250 UTC"},  // cut towards zero
        {"UTC", -48000000000.0, " 448-12-09 10:40:00.000 UTC"},
        {"UTC", 253402300799.0, "9999-12-31 23:59:59.000 UTC"},
    };
    const Logged log;
    for (const auto& row : rows)
        EXPECT_EQ(taken(zepoch2str(format, row.zone, row.epoch)), row.text) << okstr(row.zone);
    EXPECT_EQ(taken(zepoch2str("%S|%s|%u", "UTC", -0.25)), "00|-249|-24999");
    EXPECT_EQ(log.text(), "");
}

TEST(ZoneFormats, RefuseOtherNames) {
    const Env tz("TZ", "XXX-2");
    for (const char* name : {"Nowhere/Land", "/etc/localtime", "../zoneinfo/UTC", "UTC/..", "foo",
                             "EST5$", "UTC\n", "AAA5BBB,M13.1.0,M1.1.0", "AAA5BBB,J0,J3"}) {
        const Logged log;
        EXPECT_EQ(taken(zepoch2str("%H %z", name, 0)), "02 XXX");
        EXPECT_EQ(log.text(),
                  "Unknown_Program: Unrecognized timezone '" + std::string(name) + "'\n");
    }
}

TEST(ZoneFormats, FollowTzAtEachCall) {
    for (const auto& [value, text] : {std::pair{"Asia/Tokyo", "09 JST"},
                                      {":America/New_York", "19 EST"},
                                      {"", "00 UTC"},
                                      {"/usr/share/zoneinfo/Asia/Tokyo", "09 JST"},
                                      {"foo", "00 foo"},
                                      {"ABC-3:00", "03 ABC"},
                                      {"/nowhere", "00 "},
                                      {"Europe/Dublin", "01 IST"}}) {
        const Env tz("TZ", value);
        EXPECT_EQ(taken(zepoch2str("%H %z", "", 0)), text) << value;
    }
}

TEST(ZoneFormats, LeaveTheEnvironmentAlone) {
    const Env tz("TZ", "Asia/Tokyo");
    ::tzset();
    std::free(zepoch2str("%H", "US/Mountain", 0));
    std::free(zepoch2str("%H", "Nowhere/Land", 0));
    elog_clear_register(0);
    EXPECT_STREQ(::getenv("TZ"), "Asia/Tokyo");
    EXPECT_STREQ(::tzname[0], "JST");
}

TEST(ZoneSwitch, ChangesAndRestoresTz) {
    const Env tz("TZ", "Asia/Tokyo");
    EXPECT_STREQ(mygetTZ(), "TZ=Asia/Tokyo");
    switchTZ("US/Mountain");
    EXPECT_EQ(errno, 0);
    EXPECT_STREQ(mygetTZ(), "TZ=US/Mountain");
    EXPECT_STREQ(::tzname[0], "MST");
    EXPECT_EQ(taken(zepoch2str("%H %z", "", 0)), "17 MST");
    switchTZ("Nowhere/Land");
    EXPECT_NE(errno, 0);
    switchTZ("");
    EXPECT_EQ(::getenv("TZ"), nullptr);
    EXPECT_EQ(mygetTZ(), nullptr);
    switchTZ("Asia/Tokyo");
    switchTZ(nullptr);
    EXPECT_EQ(::getenv("TZ"), nullptr);
    switchTZ((std::string(61, 'x') + "cut").c_str());
    EXPECT_EQ(std::string(mygetTZ()), "TZ=" + std::string(61, 'x'));
    restoreTZ();
    restoreTZ();
    EXPECT_STREQ(mygetTZ(), "TZ=Asia/Tokyo");
    EXPECT_STREQ(::tzname[0], "JST");
    ::unsetenv("TZ");
    switchTZ("Asia/Tokyo");
    restoreTZ();
    EXPECT_EQ(::getenv("TZ"), nullptr);
}

TEST(Deltas, AreAsLongAsTwentyOneCharacters) {
    const struct {
        double seconds;
        const char* text;
    } rows[] = {
        {-5, "  -5.000 seconds     "},
        {0, "   0 seconds         "},
        {90061, " 1 days 1.0 hours    "},
        {-90061, "-1 days 1.0 hours    "},
        {86400, " 1 days              "},
        {86759, " 1 days              "},
        {31536000, " 1 years             "},
        {3 * 31536000 + 2 * 86400 + 5, " 3 years 2 days      "},
        {31536000.0 * 1000000, " 1e+06 years         "},
        {31536000.0 * 1000000 + 86400, " 1000000 years 1 days"},
        {31536000.0 * 1234567 + 86400, " 1.23457e+06 years 1 days"},
        {3600, "  1:00 hours         "},
        {86399, " 24:00 hours         "},
        {-45015, "-12:30 hours         "},
        {60, "  1:00 minutes       "},
        {3599.6, " 60:00 minutes       "},
        {-61, " -1:01 minutes       "},
        {59.9999, "  60.000 seconds     "},
        {0.25, " 250.000 milliseconds"},
        {-0.001, "  -1.000 milliseconds"},
        {2e-6, "   2.000 microseconds"},
        {3e-9, "   3.000 nanoseconds "},
        {4e-13, " 0.4 picoseconds     "},
        {kNan, " nan picoseconds     "},
    };
    for (const auto& row : rows) EXPECT_EQ(taken(strtdelta(row.seconds)), row.text) << row.seconds;
    EXPECT_EQ(taken(strtdelta(-kInfinity)).substr(0, 11), "-inf years ");
}

TEST(Ordinals, EndAsDocumented) {
    const struct {
        int n;
        const char* ending;
    } rows[] = {{0, "th"},   {1, "st"},   {2, "nd"},   {3, "rd"},  {4, "th"},   {11, "th"},
                {12, "th"},  {20, "th"},  {21, "st"},  {33, "rd"}, {101, "th"}, {103, "th"},
                {121, "st"}, {202, "th"}, {222, "nd"}, {-1, "th"}};
    for (const auto& row : rows) EXPECT_STREQ(ordinal(row.n), row.ending) << row.n;
}

TEST(NiceTimes, AreRound) {
    const double noon = 1403611200;  // 12:00:00
    const double day_0 = dtoepoch(2014000);
    const struct {
        int count;
        double t0, span, first, step;
    } rows[] = {
        {10, kJune, 100, noon + 1820, 10},
        {10, kJune, 7, noon + 1816, 1},
        {10, kJune, 3, noon + 1815.5, 0.5},
        {10, kJune, 1.5, noon + 1815.4, 0.2},
        {10, noon, 100, noon + 10, 10},  // on a tick: the next one
        {10, kJune, 600, noon + 1860, 60},
        {10, noon, 600, noon, 60},  // but for minutes and hours
        {10, kJune, 7000, noon + 2700, 900},
        {10, kJune, 36000, noon + 3600, 3600},
        {10, noon, 36000, noon, 3600},
        {10, kJune, 200000, noon + 6 * 3600, 21600},
        {10, kJune, 864000, noon + 43200, 86400},
        {10, kJune, 30 * 86400, 36 * 432000 + day_0, 432000},
    };
    for (const auto& row : rows) {
        double first = -1, step = -1;
        EXPECT_EQ(get_nice_times(row.count, &first, &step, row.t0, row.t0 + row.span), 0);
        EXPECT_NEAR(first, row.first, 1e-6) << row.span;
        EXPECT_NEAR(step, row.step, 1e-12) << row.span;
    }
}

TEST(NiceTimes, NeedAnInterval) {
    for (const auto& [count, t1] :
         {std::pair{10, 5.0}, {0, 9.0}, {-1, 9.0}, {10, kNan}, {10, kInfinity}}) {
        double first = -1, step = -1;
        EXPECT_EQ(get_nice_times(count, &first, &step, 5, t1), 0);
        EXPECT_EQ(std::tie(first, step), std::make_tuple(0.0, -1.0));
    }
}

}  // namespace
