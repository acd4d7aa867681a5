#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include "support/kit.hpp"

namespace {

using kit::Env;
using kit::taken;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kJune = 1403613015.2504;

class HouseFormats : public testing::Test {
  protected:
    void TearDown() override { Unset_formats = 1; }

    // Loads the formats as a fresh process would, with this time_formats.pf (none when empty).
    void load(const std::string& text) {
        std::filesystem::remove(folder_.file("time_formats.pf"));
        if (!text.empty()) kit::write_file(folder_.file("time_formats.pf"), text);
        Unset_formats = 1;
    }

    kit::TempDir folder_;
    const Env path_{"PFPATH", folder_.path().c_str()};
    const Env european_{"EUROPEAN_DATE", nullptr};
    const Env tz_{"TZ", "MST7MDT,M3.2.0,M11.1.0"};
};

const char* const kFile =
    "location mine\n"
    "mine &Arr{\n time %H.%M.%S.%s\n ydtime %j %H\n uydtime %j %u\n date %d.%m.%Y\n month_first "
    "no\n}\n"
    "european &Arr{\n time %k\n ydtime %j\n uydtime %u\n date %e\n month_first yes\n}\n";

TEST_F(HouseFormats, AreBuiltIn) {
    load("");
    EXPECT_EQ(taken(strtime(kJune)), "06/24/2014  12:30:15.250");
    EXPECT_EQ(taken(strydtime(kJune)), "06/24/2014  (175) 12:30:15.250");
    EXPECT_EQ(taken(strdate(kJune)), "06/24/2014");
    EXPECT_EQ(taken(strlocaltime(kJune)), "06/24/2014  06:30:15.250 MDT");
    EXPECT_EQ(taken(strlocalydtime(kJune)), "06/24/2014  (175) 06:30:15.250 MDT");
    EXPECT_EQ(taken(strlocaldate(kJune)), "06/24/2014 MDT");
    EXPECT_STREQ(UStrydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%u");
    EXPECT_STREQ(UZStrydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%u %z");
    EXPECT_EQ(is_month_first(), 1);
    EXPECT_EQ(Unset_formats, 0);
}

TEST_F(HouseFormats, AreEuropeanOnDemand) {
    const Env european("EUROPEAN_DATE", "");
    load("");
    EXPECT_EQ(is_month_first(), 0);
    EXPECT_EQ(taken(strydtime(kJune)), "24/06/2014  (175) 12:30:15.250");
    EXPECT_EQ(taken(strlocaldate(kJune)), "24/06/2014 MDT");
    EXPECT_EQ(taken(epoch2str("%D", kJune)), "24/06/14");
    load(kFile);
    EXPECT_EQ(taken(strdate(kJune)), "24");
    EXPECT_TRUE(is_month_first());
}

TEST_F(HouseFormats, ComeFromTheFileOnce) {
    load(kFile);
    EXPECT_EQ(taken(strtime(kJune)), "12.30.15.250");
    EXPECT_EQ(taken(strlocaltime(kJune)), "06.30.15.250 MDT");
    EXPECT_FALSE(is_month_first());
    kit::write_file(folder_.file("time_formats.pf"), "time t\nydtime y\nuydtime u\ndate d\n");
    const Env european("EUROPEAN_DATE", "1");
    EXPECT_EQ(taken(strdate(kJune)), "24.06.2014");
    ::unsetenv("EUROPEAN_DATE");
    load("time t\nydtime y\nuydtime u\ndate d%S\nmonth_first t\n");
    EXPECT_EQ(taken(strdate(kJune)), "d15");
    EXPECT_STREQ(UZStrydtime_format, "u %z");
    EXPECT_TRUE(is_month_first());
}

TEST_F(HouseFormats, InstalledFileIsTheBuiltInOne) {
    const std::string text = kit::read_file(MORVA_SOURCE_DIR "/data/pf/time_formats.pf");
    ASSERT_NE(text, "");
    for (const char* european : {static_cast<const char*>(nullptr), "1"}) {
        const Env location("EUROPEAN_DATE", european);
        std::vector<std::string> loaded[2];
        for (int from_file = 0; from_file < 2; ++from_file) {
            load(from_file ? text : "");
            set_time_formats();
            loaded[from_file] = {ZStrtime_format, ZStrydtime_format, UZStrydtime_format,
                                 ZStrdate_format, Strtime_format,    std::to_string(Month_first)};
        }
        EXPECT_EQ(loaded[0], loaded[1]);
    }
}

class HouseFormatsDeathTest : public HouseFormats {};

TEST_F(HouseFormatsDeathTest, NeedTheirKeys) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"ydtime y\nuydtime u\ndate d\n", "Could not read 'time' from time_formats.pf"},
        {"time t\nuydtime u\ndate d\n", "Could not read 'ydtime' from time_formats.pf"},
        {"time t\nydtime y\ndate d\n", "Could not read 'ydtime' from time_formats.pf"},
        {"time t\nydtime y\nuydtime u\n", "Could not read 'date' from time_formats.pf"},
        {"location x\nx &Arr{\n time t\n ydtime y\n date d\n}\n",
         "Could not read 'x{uydtime}' from time_formats.pf"},
        {"location x\ntime t\n", "Could not read 'x{time}' from time_formats.pf"},
    };
    for (const auto& row : rows) {
        load(row.text);
        EXPECT_EXIT(std::free(strtime(0)), testing::ExitedWithCode(1),
                    testing::HasSubstr(row.message));
    }
}

TEST_F(HouseFormats, RoundFirst) {
    load("");
    EXPECT_EQ(taken(strtime(0.9996)), "01/01/1970  00:00:01.000");
    EXPECT_EQ(taken(strydtime(86399.9995)), "01/02/1970  (002) 00:00:00.000");
    EXPECT_EQ(taken(strdate(86399.9999)), "01/01/1970") << "not rounded";
    char text[64];
    fmttime(text, 8, nullptr, 1.999996);
    EXPECT_STREQ(text, "01/01/1970  (001) 00:00:02.00000");
    fmttime(text, 8, nullptr, 1.999994);
    EXPECT_STREQ(text, "01/01/1970  (001) 00:00:01.99999");
}

TEST_F(HouseFormats, TellTimesThatNoCalendarShows) {
    load("");
    const struct {
        double epoch;
        const char* text;
    } rows[] = {{kInfinity, "** The End of Time (+infinity) **"},
                {-kInfinity, "** The Beginning of Time (-infinity) **"},
                {std::nan(""), "** Nan **"},
                {3e11, "**   9512 years ahead ** "},
                {-3e11, "**  -9513 years ago ** "},
                {253244534401, "**   8030 years ahead ** "},
                {1e300, "** 3.17098e+292 years ahead ** "}};
    for (const auto& row : rows) {
        char text[64];
        EXPECT_EQ(fmttime(text, 3, "US/Mountain", row.epoch), 0);
        for (const std::string& found : {taken(strtime(row.epoch)), taken(strdate(row.epoch)),
                                         taken(strlocalydtime(row.epoch)), std::string(text)})
            EXPECT_EQ(found, row.text);
    }
    EXPECT_EQ(taken(strtime(253244534400))[0], '0');
}

TEST_F(HouseFormats, FmttimeSelectsByKind) {
    load("");
    const struct {
        int kind;
        const char *plain, *zoned;
    } rows[] = {
        {1, "2014-06-24 12:30:15.250", "2014-06-24 05:30:15.250 PDT"},
        {3, "2014-06-24", "2014-06-24 PDT"},
        {4, "2014-175", "2014-175 PDT"},
        {5, "06/24/2014  12:30:15.250", "06/24/2014  05:30:15.250 PDT"},
        {6, "06/24/2014", "06/24/2014 PDT"},
        {7, "06/24/2014  (175) 12:30:15.250", "06/24/2014  (175) 05:30:15.250 PDT"},
        {8, "06/24/2014  (175) 12:30:15.25040", "06/24/2014  (175) 05:30:15.25040 PDT"},
        {2, "2014-175 12:30:15.250", "2014-175 05:30:15.250 PDT"},
        {-1, "2014-175 12:30:15.250", "2014-175 05:30:15.250 PDT"},
    };
    for (const auto& row : rows) {
        char text[64];
        for (const char* zone : {static_cast<const char*>(nullptr), "UTC"}) {
            EXPECT_EQ(fmttime(text, row.kind, zone, kJune), 0);
            EXPECT_STREQ(text, row.plain);
        }
        fmttime(text, row.kind, "US/Pacific", kJune);
        EXPECT_STREQ(text, row.zoned);
    }
    char text[64];
    fmttime(text, 3, "", kJune);
    EXPECT_STREQ(text, "2014-06-24 MDT");
}

TEST_F(HouseFormats, FmttimeCutsWhatTheSiteMakesTooLong) {
    const std::string x(2000, 'x');
    load("time " + x + "\nydtime y\nuydtime u\ndate d\n");
    const kit::Guarded buffer(std::string(1024, '#'));
    fmttime(buffer.data(), 5, nullptr, kJune);
    EXPECT_EQ(std::string(buffer.data()), x.substr(0, 1023));
    EXPECT_EQ(taken(strtime(kJune)), x);
}

TEST_F(HouseFormats, ThreadsLoadThemAtOnce) {
    load(kFile);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&wrong] {
            for (int k = 0; k < 200; ++k) {
                wrong += taken(strtime(kJune)) != "12.30.15.250";
                wrong += taken(strlocaldate(kJune)) != "24.06.2014 MDT";
                wrong += taken(zepoch2str("%H %z", "Asia/Tokyo", kJune)) != "21 JST";
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
