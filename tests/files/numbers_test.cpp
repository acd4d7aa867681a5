// fix_strtod against the C library's strtod in the "C" locale.
#include <locale.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <random>

#include "support/kit.hpp"

namespace {

// The same number, the same end, and, where the C library's verdict is not a matter of taste (it
// calls subnormal numbers out of range only when they are inexact), the same errno.
void expect_like_strtod(const std::string& text) {
    const kit::Guarded guarded(text + '\0');
    char *end = nullptr, *expected_end = nullptr;
    errno = 0;
    const double expected = ::strtod(text.c_str(), &expected_end);
    const int expected_errno = errno;
    errno = 0;
    const double value = fix_strtod(guarded.data(), &end);
    const int error = errno;
    EXPECT_EQ(end - guarded.data(), expected_end - text.c_str()) << text;
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(value)) << text;
        EXPECT_EQ(std::signbit(value), std::signbit(expected)) << text;
        return;
    }
    EXPECT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected)) << text;
    const bool subnormal = expected != 0 && std::fabs(expected) <= DBL_MIN;
    EXPECT_EQ(error, subnormal ? error : expected_errno) << text;
}

TEST(FixStrtod, ReadsWhatStrtodReads) {
    for (const char* text : {"0",
                             "-0",
                             "+0",
                             "1",
                             "-1.5",
                             "+2.25e3",
                             "  \t\n\v\f\r 7 x",
                             "1e",
                             "1e+",
                             "1e+x",
                             "1E-2z",
                             ".5",
                             "5.",
                             ".",
                             "-.",
                             "+",
                             "-",
                             "",
                             "e5",
                             ".e5",
                             "..5",
                             "1..5",
                             "1.5.5",
                             "+-1",
                             "--1",
                             "0x",
                             "0xg",
                             "0x.",
                             "0x.p1",
                             "0x1",
                             "0X1.8P3",
                             "-0x.8",
                             "0x1p",
                             "0x1p+",
                             "0x1.8p-1z",
                             "inf",
                             "-INF",
                             "Infinity",
                             "infinit",
                             "in",
                             "nan",
                             "-NaN",
                             "nan(",
                             "nan()",
                             "nan(a_1)",
                             "nan(a-1)",
                             "nan(12",
                             "na",
                             "1,5",
                             "1e400",
                             "-1e400",
                             "1e-400",
                             "-1e-400",
                             "1e99999999999999999999",
                             "1e-99999999999999999999",
                             "0e99999999999999999999",
                             "1.7976931348623157e308",
                             "1.7976931348623159e308",
                             "2.2250738585072014e-308",
                             "4.9e-324",
                             "2.4e-324",
                             "-2.4e-324",
                             "0x1p1023",
                             "0x1p1024",
                             "0x1p-1074",
                             "0x1p-1075",
                             "0x1.8p-1075",
                             "0x1p99999999999999999999",
                             "0x0p9999",
                             "9007199254740993",
                             "9007199254740992.99999999999999999999",
                             "1e23",
                             "0x1.00000000000008p0",
                             "0x1.00000000000018p0",
                             "0x123456789abcdef012345p-80",
                             "1 2",
                             "1_000"})
        expect_like_strtod(text);
}

TEST(FixStrtod, LargenessIsJudgedByTheWholeNumber) {
    const std::string zeros(400, '0');
    for (const std::string& text :
         {"1" + zeros, "-1" + zeros + ".5", "0." + zeros + "1", "1" + zeros + "e-400",
          "0." + zeros + "1e401", "0." + zeros + "1e800", "1" + zeros + "e-800",
          zeros + "1" + zeros, "0x1" + zeros, "0x0." + zeros + "1", "0x1" + zeros + "p-1600",
          "0x0." + zeros + "1p5000", "0x1" + zeros + "p-5000", zeros + "." + zeros})
        expect_like_strtod(text);
}

TEST(FixStrtod, RandomNumbers) {
    std::mt19937_64 random(11);
    char text[64];
    for (int i = 0; i < 30000; ++i) {
        const double value = std::bit_cast<double>(random());
        const int precision = static_cast<int>(random() % 20);
        std::snprintf(text, sizeof text, i % 4 == 0 ? "%.*a" : "%.*e", precision, value);
        expect_like_strtod(text);
    }
}

TEST(FixStrtod, RandomTexts) {
    std::mt19937 random(12);
    constexpr std::string_view kLetters = "0011259..eExXpP+--+ naif(1)";
    for (int i = 0; i < 100000; ++i) {
        std::string text(random() % 14, ' ');
        for (char& c : text) c = kLetters[random() % kLetters.size()];
        expect_like_strtod(text);
    }
}

TEST(FixStrtod, ErrnoIsLeftAloneInRange) {
    errno = 77;
    EXPECT_EQ(fix_strtod("12.5", nullptr), 12.5);
    EXPECT_EQ(fix_strtod("none", nullptr), 0);
    EXPECT_EQ(errno, 77);
    fix_strtod("1e-310", nullptr);
    EXPECT_EQ(errno, ERANGE);
    char* end;
    EXPECT_EQ(fix_strtod(nullptr, &end), 0);
    EXPECT_EQ(end, nullptr);
}

TEST(FixStrtod, IgnoresTheLocale) {
    const kit::CommaLocale locale;
    if (!locale) GTEST_SKIP() << "no locale with a decimal comma to be had";
    const char text[] = "1.5,7";
    char* end;
    EXPECT_EQ(::strtod(text, nullptr), 1) << "the locale is not what this test needs";
    EXPECT_EQ(fix_strtod(text, &end), 1.5);
    EXPECT_EQ(end, text + 3);
}

}  // namespace
