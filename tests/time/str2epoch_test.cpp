// Time strings: what each is worth, what is wrong with it, how it is explained.
#include <cmath>
#include <ctime>
#include <random>
#include <span>
#include <sstream>
#include <thread>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using kit::Env;
using kit::Logged;
using kit::taken;

constexpr double kDay = 86400;
constexpr double kJune = 1403568000;  // 2014-06-24
constexpr double kNoon = kJune + 43200;
constexpr double kHalfPast = kJune + 45015.5;  // 12:30:15.5

// Whether month or day comes first in dates with slashes.
class Order {
  public:
    explicit Order(bool month_first) : before_(is_month_first()) { Month_first = month_first; }
    ~Order() { Month_first = before_; }
    Order(const Order&) = delete;
    Order& operator=(const Order&) = delete;

  private:
    int before_;
};

struct Row {
    const char* text;
    double epoch;
    int errors = 0;
    const char* message = "";
};

// The four calls agree on each text; only zstr2epoch says what is wrong, and only what is first.
void expect(const Row& row) {
    SCOPED_TRACE(row.text);
    const Logged logged;
    double epoch = -7, silent = -7, always = -7;
    const int ok = is_epoch_string(row.text, &silent);
    EXPECT_EQ(time_string2epoch(row.text, &always), 1);
    EXPECT_EQ(str2epoch(row.text), row.epoch);
    EXPECT_EQ(logged.text(), "");
    EXPECT_EQ(zstr2epoch(row.text, &epoch), -row.errors);
    EXPECT_EQ(epoch, row.epoch);
    EXPECT_EQ(silent, row.epoch);
    EXPECT_EQ(always, row.epoch);
    EXPECT_EQ(ok, row.errors == 0);
    std::string text = logged.text();
    const std::size_t name = text.find("str2epoch: ");
    if (!text.empty()) text = text.substr(name + 11, text.size() - name - 12);
    EXPECT_EQ(text, row.message);
}

const Row kEitherOrder[] = {
    {"2014-06-24 12:30:15.5", kHalfPast},
    {"2014-175 12:30:15.5", kHalfPast},
    {"2014175:12:30:15.5", kHalfPast},
    {"2014:175:12:30:15.5", kHalfPast},
    {"2014:175:12:30:15:500", kHalfPast},
    {"2014:Jun:24:12:30:15.5", kHalfPast},
    {"2014:JUN:24:12:30:15.5 sun", kHalfPast},
    {"12:30 2014/6/24\t:30:15.5", kHalfPast},
    {"Tuesday JUNE 24, 2014\n12:30:15.5", kHalfPast},
    {"24 jun 2014 12:30:15.5 pm", kHalfPast},
    {"2014 (175) 12:30:15.5", kHalfPast},
    {"2014175 12:30:15.5", kHalfPast},
    {"2014175:12:30", kNoon + 1800},
    {"2014175:12:30.9", kNoon + 1800},
    {"June 24", 174 * kDay},
    {"Jun 24 2014", kJune},
    {"Jun 24 14", 1718323200},
    {"Sep 2014", 1409529600},
    {"2014 12:00", 1388577600},
    {"12:00 am 2014175", kJune},
    {"12:00 pm 2014175", kNoon},
    {"1:00 pm 2014175", kNoon + 3600},
    {"2014-02-31", 1393804800},
    {"2000-02-29 24:00", 951868800},
    {"1403568000", kJune},
    {"1403568000.5", kJune + 0.5},
    {"2014", 2014},
    {"24, 2014", 2014},
    {"0 5 0", 5},
    {"0 5 12:00", 4 * kDay + 43200},
    {"now 5", 5},
    {"-1", -1},
    {"-0700", -700},
    {"-1 12:00", -1},
    {".5", 0.5},
    {"+5.", 5},
    {"-.5", -0.5},
    {"1.5E9", 1.5e9},
    {"15e+8", 1.5e9},
    {"-1.5e-9", -1.5e-9},
    {"3days", 3 * kDay},
    {"1day 1:00", kDay + 3600},
    {"24,", 23 * kDay},
    {"100:00", 360000},
    {"168:00", 604800},
    {"Monday", 0},
    {"2014-06-24 12:00 US/Mountain", kNoon + 21600},
    {"2014-06-24 12:00:00.25 MST", kNoon + 25200.25},
    {"2014175 Etc/GMT+7", kJune + 25200},
    {"1969-12-31 23:59:59 UTC", -1},
    {"1969-12-31 23:59:59.5 MST", 25199.5},
    {"1403568000 MST UTC", kJune},
    {"2014-03-09 02:30 US/Mountain", 1394357400},
    {"9999-12-31 23:59:59 UTC", 253402300799},
    {"UTC", 0},
    {"", 0, 1},
    {" \t\n", 0, 1},
    {"0", 0, 1},
    {"00:00", 0, 1},
    {"today", 0, 2, "no timezone 'today'"},
    {"Jun24 2014", 2014, 1, "no timezone 'Jun24'"},
    {"Sept 2014", 2014, 1, "no timezone 'Sept'"},
    {"24 Thurs", 24, 1, "no timezone 'Thurs'"},
    {"../../etc/passwd", 0, 8, "can't interpret '.'"},
    {"2014-06-24T12:00:00Z", kJune, 2, "no timezone 'T12'"},
    {"Z", 0, 2, "can't interpret 'Z'"},
    {"\xe9 5", 5, 1, "can't interpret character 0xe9"},
    {"+5 \x01", 5, 2, "can't interpret '+'"},
    {"1 2 3 4", 1009843200, 2, "extra number '3'"},
    {"2014-367", 1420156800, 2, "Bad date format:'2014-367'"},
    {"2014367", 1420156800, 2, "Bad jdate format:'2014367'"},
    {"2014-6-24", 1503792000, 3, "Bad date format:'2014-6-24'"},
    {"12:60:10", 0, 2, "bad input '12:60:10'"},
    {"2100001:12:30", 0, 2, "bad input '2100001:12:30'"},
    {"2014:175:61:00:00", kJune + 61 * 3600, 1, "Hour = 61 is too large"},
    {"50 60 Jun", 2857507200, 2, "number 50 not understood"},
    {"2300 12:00", 43200, 1, "number 2300.000000 not understood"},
    {"Jun 32,", 182 * kDay, 1, "day = 32 is too large"},
    {"1:61", 7260, 1, "Minute = 61 is too large"},
    {":5:60.5", 360.5, 1, "Second = 60.50000 is too large"},
    {"169:00", 169 * 3600, 1, "Hour = 169 is too large"},
    {"1970-02-01 25:00", 2768400, 1, "Hour = 25 is too large"},
    {"99999999999, Jun", 67768073798400, 2, "day = 2147483647 is too large"},
    {"1e300 UTC", 1e300, 1, "Can't convert to local timezone before 1970"},
    {"(367) 12:00", 366 * kDay + 43200, 1, "Doy = 367 is too large"},
};

const Row kMonthFirst[] = {
    {"6/24/2014 12:30:15.5", kHalfPast},
    {"24/6/2014", 1420502400, 3, "Bad date format:'24/6/2014'"},
    {"6/24/69", -16502400},
    {"6/24/68", 3107721600},
    {"06-24-2014", 151 * kDay},
};

const Row kDayFirst[] = {
    {"24/6/2014 12:30:15.5", kHalfPast},
    {"6/24/2014", 1420502400, 3, "Bad date format:'6/24/2014'"},
    {"24-06-2014", 23 * kDay},
};

TEST(TimeString, IsWorth) {
    for (const bool month_first : {true, false}) {
        const Order order(month_first);
        for (const Row& row : kEitherOrder) expect(row);
        for (const Row& row : month_first ? std::span<const Row>(kMonthFirst) : kDayFirst)
            expect(row);
    }
}

TEST(TimeString, CountsFromNow) {
    const struct {
        const char* text;
        double offset;
    } rows[] = {
        {"now", 0},          {"Now tuesday 12:00", 0}, {"-:30", -1800},
        {"-1:30", -5400},    {"-1:00:05", -3605},      {"+:30", 1800},
        {"+100:30", 361800}, {"+1:02:03 UTC", 3723},   {"-99999999999:00", -2147483647. * 3600}};
    for (const auto& row : rows) {
        const double before = std_now();
        const double read = str2epoch(row.text) - row.offset;
        EXPECT_GE(read, before - 1e-3) << row.text;
        EXPECT_LE(read, std_now() + 1e-3) << row.text;
    }
    const double today = dtoepoch(yearday(std_now()));
    EXPECT_THAT(today - str2epoch("-3DAYS"), testing::AnyOf(3 * kDay, 2 * kDay));
    EXPECT_THAT(today - str2epoch("-1day 6:00"), testing::AnyOf(0.75 * kDay, -0.25 * kDay));
    // A year before 0 is not one of this century.
    EXPECT_LT(str2epoch("-800000days"), dtoepoch(0));
}

TEST(TimeString, LocalIsTheZoneOfTheProcess) {
    for (const char* zone : {"Australia/Sydney", "EST5EDT,M3.2.0,M11.1.0"}) {
        const Env tz("TZ", zone);
        std::tm tm{};
        tm.tm_year = 114, tm.tm_mon = 5, tm.tm_mday = 24, tm.tm_isdst = -1;
        EXPECT_EQ(str2epoch("2014-06-24 local"), static_cast<double>(std::mktime(&tm)));
        EXPECT_STREQ(std::getenv("TZ"), zone);
    }
}

// What carries full information reads back as the same millisecond, in years of four digits that
// are taken for years when they stand alone.
TEST(TimeString, ReadsWhatIsFormatted) {
    constexpr const char* kFormats[] = {"%E",
                                        "%Y-%m-%d %H:%M:%S.%s",
                                        "%G %T",
                                        "%g %T",
                                        "%Y%j:%H:%M:%S.%s",
                                        "%Y:%b:%d:%H:%M:%S.%s",
                                        "%Y:%j:%T",
                                        "%A %B %Y (%j) %T %z",
                                        "%a %d, %b %Y %I:%M:%S.%s %p",
                                        "%k:%M:%S.%s %t %e, %B %Y %Z"};
    std::mt19937_64 random(7);
    std::uniform_int_distribution<std::int64_t> some(-30610224000000, 7258118399999);
    for (int i = 0; i < 3000; ++i) {
        const double t = static_cast<double>(some(random)) / 1000;
        for (const char* format : kFormats) {
            const std::string text = taken(epoch2str(format, t));
            EXPECT_NEAR(str2epoch(text.c_str()), t, 6e-4) << text;
        }
        for (char* (*house)(double) : {strtime, strydtime}) {
            const std::string text = taken(house(t));
            EXPECT_NEAR(str2epoch(text.c_str()), t, 6e-4) << text;
        }
    }
}

// Each thread in its own zones; an hour that occurs twice may be either one.
TEST(TimeString, ZonesOfThreadsDoNotMix) {
    const auto work = [](const char* zone, unsigned seed, int* wrong) {
        std::mt19937_64 random(seed);
        for (int i = 0; i < 2000; ++i) {
            const double t = static_cast<double>(random() % 2145916800000) / 1000;
            const std::string local = taken(zepoch2str("%Y-%m-%d %H:%M:%S.%s ", zone, t)) + zone;
            const double read = str2epoch(local.c_str());
            *wrong += std::abs(read - t) > 3601;
            *wrong += taken(zepoch2str("%Y-%m-%d %H:%M:%S.%s ", zone, read)) + zone != local;
        }
    };
    const char* const zones[] = {"US/Mountain", "Asia/Kathmandu", "Australia/Sydney", "UTC"};
    int wrong[std::size(zones)] = {};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < std::size(zones); ++i)
        threads.emplace_back(work, zones[i], i, &wrong[i]);
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(wrong, testing::Each(0));
}

TEST(TimeString, StrictTakesNoAmbiguousDate) {
    const struct {
        const char* text;
        int result;
    } rows[] = {{"6/24/2014", 0}, {"2014/6/4", 0}, {"6/6/2014", 0}, {"6/4/2014", -1}, {"blah", -2}};
    const Order order(true);
    for (const auto& row : rows) {
        const Logged logged;
        double epoch = -7;
        EXPECT_EQ(str2epoch_strict(row.text, &epoch), row.result) << row.text;
        EXPECT_EQ(epoch, row.result == 0 ? str2epoch(row.text) : -7) << row.text;
        EXPECT_EQ(logged.text().empty(), row.result == 0) << row.text;
    }
}

// What the table of docs/times.md has in its last column, and whether the rule was used.
std::string read_as(const std::string& example, int first_rule, int last_rule, std::string form) {
    double epoch = 0;
    int errors = 0;
    bool used = false;
    Tbl* steps = str2epoch_explain(example.c_str(), &epoch, &errors);
    for (long i = 0; i < maxtbl(steps); ++i) {
        const int rule = static_cast<const Epoch_step*>(gettbl(steps, i))->rule;
        used |= first_rule <= rule && rule <= last_rule;
    }
    freetbl(steps, free_epoch_step);
    if (!used || errors != 0) return "an error";
    char text[64];
    if (form.rfind("now", 0) == 0)
        std::snprintf(text, sizeof text, "now %+.0f s", epoch - std_now());
    else if (form.rfind("today", 0) == 0)
        std::snprintf(text, sizeof text, "today %+.0f days",
                      (epoch - dtoepoch(yearday(std_now()))) / kDay);
    else
        return taken(epoch2str("%Y-%m-%d %H:%M:%S.%s", epoch));
    return form == "now" ? "now" : text;
}

TEST(TimeString, IsReadAsThePageSays) {
    const Order order(true);
    const Env tz("TZ", "UTC");
    std::istringstream page(kit::read_file(MORVA_SOURCE_DIR "/docs/times.md"));
    int rows = 0;
    for (std::string line; std::getline(page, line);) {
        int first = 0, last = 0;
        if (std::sscanf(line.c_str(), "| %d-%d", &first, &last) < 1) continue;
        const std::size_t start = line.find('`') + 1, end = line.find('`', start);
        const std::string form = line.substr(end + 4, line.size() - 2 - (end + 4));
        EXPECT_EQ(read_as(line.substr(start, end - start), first, std::max(first, last), form),
                  form)
            << line;
        ++rows;
    }
    EXPECT_GT(rows, 40);
}

TEST(TimeString, HasPointsInEveryLocale) {
    const kit::CommaLocale locale;
    expect({"1403568000.5", kJune + 0.5});
    expect({"2300 12:00", 43200, 1, "number 2300.000000 not understood"});
    expect({":5:60.5", 360.5, 1, "Second = 60.50000 is too large"});
}

std::string explained(const char* text) {
    double epoch = -7;
    int errors = -7;
    Tbl* steps = str2epoch_explain(text, &epoch, &errors);
    EXPECT_EQ(epoch, str2epoch(text));
    std::string told = std::to_string(errors) + "\n";
    for (long i = 0; i < maxtbl(steps); ++i) {
        const auto* step = static_cast<const Epoch_step*>(gettbl(steps, i));
        told += std::to_string(step->rule) + " " + std::to_string(step->first) + "-" +
                std::to_string(step->last) + " " + step->said + "\n";
    }
    freetbl(steps, free_epoch_step);
    return told;
}

TEST(TimeString, IsExplained) {
    const Order order(true);
    const Logged logged;
    EXPECT_EQ(explained("6/4/2014 12:30 MST"),
              "0\n"
              "1 1-8 date: year 2014, month 6, day 4\n"
              "46 10-14 clock time: hour 12, minute 30\n"
              "64 16-18 time zone\n"
              "0 0-0 the clock time is that of the zone\n"
              "0 0-0 could also be 2014-04-06 19:30:00.000, with the day first\n");
    EXPECT_EQ(explained("blah 99:61"),
              "2\n"
              "64 1-4 time zone; error: str2epoch: no timezone 'blah'\n"
              "46 6-10 clock time: hour 99, minute 61\n"
              "0 0-0 str2epoch: Minute = 61 is too large\n");
    EXPECT_EQ(explained("0"), "1\n58 1-1 number\n0 0-0 nothing is set\n");
    EXPECT_EQ(explained(""), "1\n0 0-0 nothing is set\n");
    EXPECT_EQ(logged.text(), "");
}

}  // namespace
