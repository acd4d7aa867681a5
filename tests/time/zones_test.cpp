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

TEST(LocalTimes, AreRightInManyThreads) {
    std::vector<std::string> names = {"XXX3", "EST5EDT4,M3.2.0,M11.1.0", "", "UTC"};
    for (const std::string& name : database())
        if (name.size() % 7 == 0) names.push_back(name);
    const auto texts = [&] {
        std::string all;
        for (const std::string& name : names)
            all += taken(zepoch2str("%G %T %z|", name.c_str(), 1403613015.25));
        return all;
    };
    std::vector<std::string> found(8);
    std::vector<std::thread> threads;
    for (std::string& text : found) threads.emplace_back([&] { text = texts(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(found, std::vector<std::string>(8, texts()));
}

// The table of zones is full at some point; texts are understood all the same.
TEST(LocalTimes, TakeAnyNumberOfTexts) {
    for (int i = 0; i < 1000; ++i) {
        const int minutes = i % 1440;
        char name[32], expected[32];
        std::snprintf(name, sizeof name, "<X%d>-%d:%02d", 100 + i, minutes / 60, minutes % 60);
        std::snprintf(expected, sizeof expected, "%02d:%02d X%d", minutes / 60, minutes % 60,
                      100 + i);
        for (int again = 0; again < 2; ++again)
            ASSERT_EQ(taken(zepoch2str("%H:%M %z", name, 0)), expected);
    }
}

// A zone file with one transition, to the second of its two types, and a text behind it.
std::string zone_file(std::string_view text = "XXX3YYY,M3.2.0,M11.1.0") {
    const auto number = [](std::uint64_t value, int bytes) {
        std::string all;
        while (bytes-- > 0) all += static_cast<char>(value >> 8 * bytes);
        return all;
    };
    const auto header = [&](int transitions, int types, int names) {
        return "TZif2" + std::string(27, '\0') + number(static_cast<unsigned>(transitions), 4) +
               number(static_cast<unsigned>(types), 4) + number(static_cast<unsigned>(names), 4);
    };
    return header(0, 1, 4) + std::string(6, '\0') + "XXX" + std::string(1, '\0') + header(1, 2, 8) +
           number(1000000, 8) + "\1" + number(std::uint64_t(-10800), 4) + std::string(2, '\0') +
           number(std::uint64_t(-7200), 4) + "\1\4" + std::string("XXX\0YYY\0", 8) + "\n" +
           std::string(text) + "\n";
}

TEST(ZoneFiles, GiveTransitionsAndRules) {
    using morva::time::read_zone;
    const auto zone = read_zone(zone_file());
    ASSERT_NE(zone, nullptr);
    EXPECT_EQ(shown(local_time(*zone, 999999)), "1970-01-12 (12) 10:46:39 XXX -10800 0");
    EXPECT_EQ(shown(local_time(*zone, 1000000)), "1970-01-12 (12) 10:46:40 XXX -10800 0");
    EXPECT_EQ(shown(local_time(*read_zone(zone_file("")), 1000000)),
              "1970-01-12 (12) 11:46:40 YYY -7200 1");
}

// Few changes are found by the half year, many close ones by search; both find the same.
TEST(ZoneFiles, MayChangeOftenInHalfAYear) {
    for (const int count : {8, 9, 300}) {
        for (const std::int64_t start : {0L, -(1L << 32) - 3, (1L << 32) - 5, 1L << 40}) {
            Zone zone;
            zone.names = "XXX";
            zone.types = {{0, false, 0}, {3600, true, 0}};
            for (int i = 0; i < count; ++i) {
                zone.transitions.push_back(start + i);
                zone.type_after.push_back(static_cast<std::uint8_t>(1 - i % 2));
            }
            morva::time::make_slots(zone);
            for (int i = -1; i <= count; ++i)
                ASSERT_EQ(local_time(zone, start + i).daylight,
                          i >= 0 && std::min(i, count - 1) % 2 == 0)
                    << count << " from " << start << ": " << i;
        }
    }
}

TEST(ZoneFiles, AreRefusedWhenTheyAreDamaged) {
    using morva::time::read_zone;
    const std::string good = zone_file();
    constexpr std::size_t kEndOfData = 127;
    for (std::size_t length = 0; length < kEndOfData; ++length) {
        const kit::Guarded bytes(good.substr(0, length));
        EXPECT_EQ(read_zone({bytes.data(), bytes.size()}), nullptr) << length;
    }
    const struct {
        std::size_t at;
        char byte;
        const char* why;
    } rows[] = {
        {0, 't', "magic"},           {54, 't', "second magic"},
        {86, '\x7f', "transitions"}, {90, '\x7f', "types"},
        {93, 0, "no types"},         {94, '\x7f', "names"},
        {86 - 4, 1, "leap seconds"}, {98 + 8, 2, "type of transition"},
        {111, 2, "daylight flag"},   {112, 8, "name"},
    };
    for (const auto& row : rows) {
        std::string bad = good;
        bad[row.at] = row.byte;
        EXPECT_EQ(read_zone(bad), nullptr) << row.why;
    }
}

TEST(ZoneFiles, AreFoundWhereTzdirSays) {
    const TempDir folder;
    const Env tzdir("TZDIR", folder.path().c_str());
    kit::write_file(folder.file("Morva_Test"), zone_file(""));
    kit::write_file(folder.file("Morva_Bad"), zone_file().substr(0, 100));
    const Logged log;
    EXPECT_EQ(taken(zepoch2str("%H %z", "Morva_Test", 1e6)), "11 YYY");
    EXPECT_EQ(log.text(), "");
    const Env tz("TZ", "XXX-1");
    EXPECT_EQ(taken(zepoch2str("%H %z", "Morva_Bad", 0)), "01 XXX");
}

}  // namespace
