#include <cmath>
#include <ctime>
#include <limits>
#include <random>

#include "support/kit.hpp"
#include "time/calendar.hpp"

namespace {

using kit::taken;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// The documented steps, word by word.
DateTime by_steps(double epoch) {
    DateTime t{};
    const double day = std::floor(epoch / 86400);
    double seconds = epoch - day * 86400;
    if (seconds > 86400) seconds = 0;
    t.hour = static_cast<int>(std::floor(seconds / 3600));
    t.minute = static_cast<int>(std::floor((seconds - 3600 * t.hour) / 60));
    t.second = seconds - 3600 * t.hour - 60 * t.minute;
    double year = std::floor(day / 365) + 1970, rest = day - year2days(year);
    if (rest < -366) {
        rest = 0;
    } else if (rest < 0) {
        year -= 1;
        rest += isleap(static_cast<int>(year)) ? 366 : 365;
    } else if (rest >= 730) {
        rest = 0;
    } else if (isleap(static_cast<int>(year)) && rest > 365) {
        year += 1;
        rest -= 366;
    } else if (!isleap(static_cast<int>(year)) && rest > 364) {
        year += 1;
        rest -= 365;
    }
    t.doy = static_cast<int>(rest) + 1;
    t.year = static_cast<int>(year);
    t.date = t.year * 1000L + t.doy;
    t.day = t.doy;
    for (t.month = 1; t.month <= 12; ++t.month) {
        const int length = days_in_month[t.month - 1] + (t.month == 2 && isleap(t.year));
        if (t.day <= length) break;
        t.day -= length;
    }
    t.month = std::min(t.month, 12);
    std::snprintf(t.mname, sizeof t.mname, "%s", month_name[t.month - 1]);
    t.epoch = epoch;
    return t;
}

void expect_same(const DateTime& a, const DateTime& b) {
    ASSERT_EQ(std::tie(a.date, a.year, a.month, a.day, a.doy, a.hour, a.minute, a.second),
              std::tie(b.date, b.year, b.month, b.day, b.doy, b.hour, b.minute, b.second))
        << std::hexfloat << a.epoch << " " << a.date << " " << b.date;
    ASSERT_STREQ(a.mname, b.mname);
}

double day_start(int year) {
    return 86400 * year2days(year);
}

TEST(Calendar, BreaksTimesDownByTheDocumentedSteps) {
    std::mt19937_64 random(1);
    const auto check = [](double epoch) {
        DateTime t{};
        t.epoch = epoch;
        etoh(&t);
        expect_same(t, by_steps(epoch));
    };
    std::uniform_real_distribution<double> within(day_start(-3000), day_start(13000));
    std::uniform_real_distribution<double> now(day_start(1900), day_start(2100));
    for (int i = 0; i < 300000 && !testing::Test::HasFatalFailure(); ++i) {
        check(within(random));
        check(now(random));
        const double hour = 3600 * std::floor(now(random) / 3600);
        for (const double to : {-kInfinity, kInfinity}) check(std::nextafter(hour, to));
        check(hour);
    }
    for (const double edge : {day_start(462), day_start(3476), 0.0, -1e-20, 1e-20, 1e14, -1e14})
        for (const double to : {-kInfinity, kInfinity}) check(std::nextafter(edge, to));
}

TEST(Calendar, AgreesWithTheCLibraryWhereTheStepsAreExact) {
    for (int year = 462; year < 3476; ++year) {
        for (int doy = 1; doy <= 365 + isleap(year); ++doy) {
            const double start = h2e(year, doy, 0, 0, 0);
            const auto seconds = static_cast<std::time_t>(start);
            std::tm tm{};
            gmtime_r(&seconds, &tm);
            int month = 0, day = 0;
            doy2mday(doy, year, &month, &day);
            ASSERT_EQ(std::tie(year, doy), std::make_tuple(tm.tm_year + 1900, tm.tm_yday + 1));
            ASSERT_EQ(std::tie(month, day), std::make_tuple(tm.tm_mon + 1, tm.tm_mday));
            ASSERT_EQ(yearday(start + 86399.999), year * 1000 + doy);
            ASSERT_EQ(mday2doy(year, month, day), doy);
            ASSERT_EQ(taken(epoch2str("%A", start)), Week[(tm.tm_wday + 6) % 7]);
        }
    }
}

TEST(Calendar, DaysGoForthAndBackInAllYears) {
    for (std::int64_t day = -5'000'000'000; day < 5'000'000'000; day += 7919) {
        const auto [year, doy] = morva::time::year_and_day(day);
        ASSERT_EQ(morva::time::day_number(year, doy), day);
        ASSERT_TRUE(doy >= 1 && doy <= 365 + morva::time::is_leap(year)) << day;
    }
}

TEST(Calendar, KnowsLeapYears) {
    EXPECT_EQ((std::vector<int>{isleap(2000), isleap(1900), isleap(2100), isleap(2012), isleap(1)}),
              (std::vector<int>{1, 0, 0, 1, 0}));
    EXPECT_EQ(year2days(1969.5), -183.0 + 0.5);
}

TEST(Calendar, LetsFieldsCarry) {
    EXPECT_EQ(dtoepoch(2014001), 1388534400);
    EXPECT_EQ(epoch(2014175), 1403568000);
    EXPECT_EQ(h2e(2013, 366, 25, -60, 90.5), 1388534400 + 86400 + 90.5);
    EXPECT_EQ(h2e(2014, 0, 24, 0, 0), 1388534400);
    EXPECT_EQ(h2e(2013, 1001, 0, 0, 0), h2e(2014, 1, 0, 0, 0)) << "year * 1000 + doy";
    EXPECT_EQ(mday2doy(2012, 13, 1), 367);
    EXPECT_EQ(mday2doy(2012, 0, -3), -3);
    struct Row {
        int doy, year, month, day;
    };
    for (const Row& row : {Row{60, 2000, 2, 29},
                           {60, 2001, 3, 1},
                           {366, 2001, 12, 1},
                           {400, 2000, 12, 34},
                           {0, 2000, 1, 0},
                           {-9, 2000, 1, -9}}) {
        int month = 0, day = 0;
        doy2mday(row.doy, row.year, &month, &day);
        EXPECT_EQ(std::tie(month, day), std::tie(row.month, row.day)) << row.doy;
    }
}

TEST(Calendar, EpochComesFromTheDateAlone) {
    DateTime t{};
    t.date = 2014175;
    t.year = 1999;
    t.month = 13;
    t.hour = 12;
    t.minute = 30;
    t.second = 15.5;
    htoe(&t);
    EXPECT_EQ(t.epoch, 1403613015.5);
    t.year = 2012;
    t.month = 3;
    t.day = 1;
    mdtodate(&t);
    EXPECT_EQ(t.date, 2012061);
    month_day(&t);
    EXPECT_STREQ(t.mname, "Mar");
}

TEST(Calendar, ClampsWhatNoFieldHolds) {
    for (const double absurd : {kInfinity, -kInfinity, kNan, 1e300, -1e300, 1e18, -1e18}) {
        DateTime t{};
        t.epoch = absurd;
        etoh(&t);
        EXPECT_TRUE(t.month >= 1 && t.month <= 12) << absurd;
        EXPECT_EQ(t.year, std::isnan(absurd) ? 0
                          : absurd > 0       ? std::numeric_limits<int>::max()
                                             : std::numeric_limits<int>::min());
        std::free(epoch2str("%A %B %D %E %G %g %O %T %s %u %Y %y", absurd));
    }
    DateTime t{};
    t.epoch = 1e300;
    etoh(&t);
    EXPECT_EQ(t.date, 922337203685477001);
}

TEST(Calendar, KnowsToday) {
    DateTime t{};
    int before = 0;
    do {
        before = todaysdate();
        zh_today(&t);
    } while (before != todaysdate());
    EXPECT_EQ(t.date, before);
    EXPECT_EQ(t.epoch, dtoepoch(before));
    EXPECT_GT(before, 2024000);
}

// As printf does in the "C" locale, and only there.
TEST(Calendar, PrintsALine) {
    std::vector<std::pair<DateTime, std::string>> rows;
    for (const double epoch : {1403613015.25, 0.0, -0.0625, -1e300, kInfinity, -kInfinity, kNan}) {
        DateTime t{};
        t.epoch = epoch;
        etoh(&t);
        for (const double second : {t.second, -0.0004, 1e300}) {
            t.second = second;
            char line[1024];
            std::snprintf(line, sizeof line, "%15.3f %8ld %s %2d,%4d %2d:%02d:%02.3f\n", t.epoch,
                          t.date, t.mname, t.day, t.year, t.hour, t.minute, t.second);
            rows.emplace_back(t, line);
            t.date = std::numeric_limits<long>::min();
            t.minute = -t.minute;
        }
    }
    const kit::CommaLocale locale;
    for (const auto& [t, line] : rows)
        EXPECT_EQ(kit::captured(1, [&, &fields = t] { timeprint(&fields); }), line);
}

TEST(Clocks, AreReadFromText) {
    struct Row {
        const char* text;
        double seconds;
    };
    for (const Row& row : {Row{"12:30:15.25", 45015.25},
                           {"12", 43200},
                           {"12:", 43200},
                           {"12-30", 45000},
                           {"0:0:.5", 0.5},
                           {":1", 60},
                           {"", 0},
                           {"1:2:3.5.6", 3723.5},
                           {"1:2:3e5", 3723},
                           {"00:00:0000000000.123456", 0.12},
                           {"x", 0},
                           {nullptr, 0}})
        EXPECT_EQ(timecon(row.text), row.seconds) << okstr(row.text);
}

TEST(Clocks, GoThroughBcd) {
    const kit::Guarded bcd(std::string(6, '\xff'));
    auto* bytes = reinterpret_cast<unsigned char*>(bcd.data());
    epoch2bcd(bytes, 1403613015.259);
    EXPECT_EQ(std::string(bcd.data(), 6), "\x17\x51\x23\x01\x50\x25");
    DateTime t{};
    t.month = 7;
    bcdtime(bytes, &t);
    EXPECT_EQ(std::tie(t.doy, t.hour, t.minute, t.second), std::make_tuple(175, 12, 30, 15.25));
    EXPECT_EQ(t.year, todaysdate() / 1000);
    EXPECT_EQ(t.date, t.year * 1000 + 175);
    EXPECT_EQ(t.epoch, h2e(t.year, 175, 12, 30, 15.25));
    EXPECT_EQ(t.month, 7) << "not filled";
}

}  // namespace
