#include "time/zones.hpp"

#include <ctime>
#include <random>
#include <thread>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using kit::Env;
using kit::Logged;
using kit::taken;
using kit::TempDir;
using morva::time::find_zone;
using morva::time::instant_of;
using morva::time::local_time;
using morva::time::local_zone;
using morva::time::LocalTime;
using morva::time::Zone;
using morva::time::ZoneRef;

constexpr std::int64_t kYear = 31556952;

std::vector<std::string> database() {
    const std::filesystem::path folder = "/usr/share/zoneinfo";
    std::vector<std::string> names;
    if (!std::filesystem::exists(folder)) return names;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = std::filesystem::relative(file.path(), folder);
        if (file.is_regular_file() && is_timezone(name.c_str())) names.push_back(name);
    }
    return names;
}

// Instants around every transition, over all years of four digits, and far beyond.
std::vector<std::int64_t> instants_of(const Zone& zone, std::mt19937_64& random) {
    std::vector<std::int64_t> instants = {0, -1, 253402300799, 253402300800, -62135596801};
    for (const std::int64_t transition : zone.transitions)
        if (std::abs(transition) < 60'000'000'000'000'000)
            for (int near : {-1, 0, 1}) instants.push_back(transition + near);
    for (const auto& leap : zone.leaps)
        for (int near : {-1, 0, 1}) instants.push_back(leap.instant + near);
    const auto within = [&](std::int64_t first, std::int64_t last) {
        return std::uniform_int_distribution(first, last)(random);
    };
    for (int i = 0; i < 60; ++i) {
        instants.push_back(within(0, 70 * kYear));
        instants.push_back(within(-1969 * kYear, 8030 * kYear));
        instants.push_back(within(-1'000'000 * kYear, 1'000'000 * kYear));
    }
    return instants;
}

std::string shown(const LocalTime& t) {
    char text[128];
    std::snprintf(text, sizeof text, "%d-%02d-%02d (%d) %02d:%02d:%02d %s %d %d", t.year, t.month,
                  t.day, t.doy, t.hour, t.minute, t.second, std::string(t.abbreviation).c_str(),
                  t.offset, t.daylight);
    return text;
}

std::string shown_by_c_library(std::int64_t instant) {
    const std::time_t time = instant;
    std::tm tm{};
    if (::localtime_r(&time, &tm) == nullptr) return "none";
    return shown({.abbreviation = tm.tm_zone,
                  .offset = static_cast<std::int32_t>(tm.tm_gmtoff),
                  .daylight = tm.tm_isdst > 0,
                  .year = tm.tm_year + 1900,
                  .month = tm.tm_mon + 1,
                  .day = tm.tm_mday,
                  .doy = tm.tm_yday + 1,
                  .hour = tm.tm_hour,
                  .minute = tm.tm_min,
                  .second = tm.tm_sec});
}

// mktime remembers the offset of its last call; a call in UTC makes it forget.
std::optional<std::int64_t> instant_by_c_library(const char* zone, const LocalTime& local) {
    ::setenv("TZ", "UTC0", 1);
    std::tm utc{};
    utc.tm_mday = 2;
    utc.tm_year = 70;
    std::mktime(&utc);
    ::setenv("TZ", zone, 1);
    std::tm tm{};
    tm.tm_year = local.year - 1900;
    tm.tm_mon = local.month - 1;
    tm.tm_mday = local.day;
    tm.tm_hour = local.hour;
    tm.tm_min = local.minute;
    tm.tm_sec = local.second;
    tm.tm_isdst = -1;
    tm.tm_wday = 9;
    const std::time_t instant = std::mktime(&tm);
    return tm.tm_wday == 9 ? std::nullopt : std::optional<std::int64_t>(instant);
}

// 0 when everything agrees with the C library, else the number of differences.
int compare(const char* name, std::mt19937_64& random) {
    const Env tz("TZ", name);
    ::tzset();
    const ZoneRef zone = find_zone(name);
    if (!zone) return ADD_FAILURE() << name << " is unknown", 1;
    int differences = 0;
    for (const std::int64_t instant : instants_of(*zone, random)) {
        const std::string found = shown(local_time(*zone, instant));
        const std::string expected = shown_by_c_library(instant);
        if (found == expected) continue;
        if (++differences <= 2)
            ADD_FAILURE() << name << " " << instant << ": " << found << ", not " << expected;
    }
    return differences;
}

TEST(LocalTimes, ShowEveryInstantAsTheCLibraryDoes) {
    std::mt19937_64 random(1);
    const auto names = database();
    if (names.empty()) GTEST_SKIP() << "no zone database";
    int differences = 0;
    for (const std::string& name : names) differences += compare(name.c_str(), random);
    EXPECT_EQ(differences, 0);
}

constexpr const char* kTexts[] = {
    "EST5EDT4,M3.2.0,M11.1.0",
    "EST+5EDT,M3.2.0/2,M11.1.0/2:30:15",
    "CET-1CEST,M3.5.0,M10.5.0/3",
    "AEST-10AEDT,M10.1.0,M4.1.0/3",
    "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
    "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
    "IST-1GMT0,M10.5.0,M3.5.0/1",
    "XXX3",
    "XXX-14:59:59",
    "XXX25",
    "AAA5BBB,J60,J300/24",
    "AAA5BBB,59,300/26:10",
    "AAA5BBB,0/0,J365/25",
    "AAA-5BBB,M12.5.6,M1.1.0",
    "AAA5BBB,M2.5.4/167,M9.3.3/-167",
};

TEST(LocalTimes, ReadPosixTextsAsTheCLibraryDoes) {
    std::mt19937_64 random(2);
    int differences = 0;
    for (const char* text : kTexts)
        for (int i = 0; i < 10; ++i) differences += compare(text, random);
    EXPECT_EQ(differences, 0);
}

TEST(LocalTimes, TakeLocalTimesAsTheCLibraryDoes) {
    const Env tz("TZ", nullptr);
    std::mt19937_64 random(3);
    std::vector<std::string> names = {
        "America/New_York", "Europe/Berlin",     "Australia/Lord_Howe",
        "Pacific/Apia",     "Africa/Casablanca", "Europe/Dublin",
        "right/Asia/Tokyo", "America/Caracas",   "Asia/Pyongyang"};
    names.insert(names.end(), std::begin(kTexts), std::end(kTexts));
    int differences = 0;
    for (const std::string& name : names) {
        const ZoneRef zone = find_zone(name);
        if (!zone) continue;
        for (const std::int64_t instant : instants_of(*zone, random)) {
            LocalTime local = local_time(*zone, instant + std::int64_t(random() % 7201) - 3600);
            if (random() % 4 == 0) local.day += static_cast<int>(random() % 90) - 45;
            if (random() % 4 == 0) local.month += static_cast<int>(random() % 90) - 45;
            const auto found = instant_of(*zone, local);
            const auto expected = instant_by_c_library(name.c_str(), local);
            if (found == expected) continue;
            if (++differences < 20)
                ADD_FAILURE() << name << " " << shown(local) << ": " << found.value_or(-1)
                              << ", not " << expected.value_or(-1);
        }
    }
    EXPECT_EQ(differences, 0);
}

}  // namespace
