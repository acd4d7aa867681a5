#include "morva/cm6.h"

#include <climits>

#include "base/memory.hpp"
#include "codec/codec_kit.hpp"

namespace {

using kit::decoded;
using kit::encoded;
using kit::Forced;
using kit::Grown;
using kit::Logged;
using kit::Samples;
using kit::versions;

// Each alternating step of 2^30 makes a second difference of seven characters.
Samples seven_characters_each(size_t count) {
    Samples samples(count);
    for (size_t i = 0; i < count; ++i) samples[i] = i % 2 == 0 ? 1 << 29 : -(1 << 29);
    return samples;
}

// Characters worked out by hand from the codes: 16 for the sign, 32 for one more character, four
// bits in the first character and five in each other one.
TEST(Cm6Values, HaveAsManyCharactersAsTheirMagnitudeNeeds) {
    const std::pair<int32_t, const char*> rows[] = {
        {0, "+"},
        {1, "-"},
        {-1, "F"},
        {15, "D"},
        {-15, "T"},
        {16, "UE"},
        {-16, "kE"},
        {511, "jT"},
        {512, "Uk+"},
        {16383, "jzT"},
        {16384, "UkU+"},
        {524287, "jzzT"},
        {524288, "UkUU+"},
        {16777215, "jzzzT"},
        {16777216, "UkUUU+"},
        {536870911, "jzzzzT"},
        {536870912, "UkUUUU+"},
        {INT_MAX, "VzzzzzT"},
        {-INT_MAX, "lzzzzzT"},
        {INT_MIN, "mUUUUU+"},
    };
    for (const auto& [value, expected] : rows) {
        char text[8] = {};
        char* cursor = text;
        stuff(value, &cursor);
        EXPECT_STREQ(text, expected) << value;
        EXPECT_EQ(cursor, text + std::strlen(expected));

        int remaining = static_cast<int>(cursor - text) + 3;
        int32_t back = 0;
        cursor = text;
        EXPECT_EQ(unstuff(&back, &cursor, &remaining), 0);
        EXPECT_EQ(back, value);
        EXPECT_EQ(remaining, 3);
        EXPECT_EQ(cursor, text + std::strlen(expected));
    }
}

TEST(Cm6Values, AreReadWithTheirErrorsCounted) {
    struct Row {
        std::string text;
        int errors;
        int32_t value;
        size_t read;
        const char* why;
    };
    const Row rows[] = {
        {"\t\n\rF+", 0, -1, 4, "line ends and tabs before a value are skipped"},
        {"U \t\r\nE+", 0, 16, 6, "inside a value blanks are skipped too"},
        {" +", 1, 0, 1, "a blank in place of a value is read"},
        {"\n D", 1, 0, 2, "the same behind a line end"},
        {"", 1, 0, 0, "nothing to read"},
        {"\n\n", 1, 0, 2, "nothing but line ends to read"},
        {"U", 1, 0, 1, "cut off inside the value"},
        {"VUU   ", 1, 1024, 6, "cut off, with blanks behind"},
        {"*D+", 1, -(15 * 32 + 15), 2, "a character without a code has all bits set"},
        {"\xe9"
         "D+",
         1, -(15 * 32 + 15), 2, "a character above 127"},
        {"U*D+", 1, 31 * 32 + 15, 3, "without a code inside the value"},
        {"**", 2, -(15 * 32 + 31), 2, "each of two, and the cut is not counted again"},
        {"V" + std::string(40, 'U') + "D", 0, 15, 42, "bits beyond the 32nd are lost"},
        {std::string("\0+", 2), 1, -(15 * 32), 2, "a zero byte is a character without a code"},
    };
    for (const Row& row : rows) {
        kit::Guarded guarded(row.text);
        char* cursor = guarded.data();
        int remaining = static_cast<int>(row.text.size());
        int32_t value = 99;
        EXPECT_EQ(unstuff(&value, &cursor, &remaining), row.errors) << row.why;
        EXPECT_EQ(value, row.value) << row.why;
        EXPECT_EQ(cursor, guarded.data() + row.read) << row.why;
        EXPECT_EQ(remaining, static_cast<int>(row.text.size() - row.read)) << row.why;
    }
}

TEST(Cm6Text, IsTheKnownOneForSmallSeries) {
    const std::pair<Samples, const char*> rows[] = {
        {{}, "\nCHK2 0\n"},
        {{-1}, "F\nCHK2 1\n"},
        {{16, 32}, "UE+\nCHK2 48\n"},
        {{0, 1, 2, 3}, "+-++\nCHK2 6\n"},
        // 3, then 0 - 6, then 0 - 0 + 3
        {{3, 0, 0}, "1K1\nCHK2 3\n"},
        // The second difference -2 * INT_MIN wraps to 0.
        {{INT_MIN, 0}, "mUUUUU++\nCHK2 47483648\n"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [samples, text] : rows) {
            EXPECT_EQ(encoded(samples), text);
            EXPECT_EQ(decoded(text), samples) << text;
        }
    }
}

TEST(Cm6Text, BreaksLinesAfterEightyCharacters) {
    const std::pair<size_t, std::string> rows[] = {
        {79, std::string(79, '+') + "\n"},
        {80, std::string(80, '+') + "\n"},
        {81, std::string(80, '+') + "\n+\n"},
        {160, std::string(80, '+') + "\n" + std::string(80, '+') + "\n"},
        {161, std::string(80, '+') + "\n" + std::string(80, '+') + "\n+\n"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [count, data] : rows)
            EXPECT_EQ(encoded(Samples(count)), data + "CHK2 0\n") << count;
        // Values of seven characters run across the line ends: 7 * 23 is 161.
        const std::string text = encoded(seven_characters_each(23));
        EXPECT_EQ(text.find('\n'), 80u);
        EXPECT_EQ(text.find('\n', 81), 161u);
        EXPECT_EQ(text.find('\n', 162), 163u);
    }
}

TEST(Cm6Text, ComesBackAsItWasForEveryLength) {
    for (size_t count = 0; count <= 2000; ++count) {
        for (const auto kind : kit::kKinds) {
            const Samples samples = kit::series(kind, count, static_cast<unsigned>(count));
            std::string plain;
            for (const auto version : versions()) {
                Forced forced(version);
                const std::string text = encoded(samples);
                if (version == morva::Simd::kPlain) plain = text;
                ASSERT_EQ(text, plain) << count;
                ASSERT_EQ(decoded(text), samples) << count;
            }
        }
    }
}

// The stated buffer size falls short of this text by some bytes; an address sanitizer sees each.
TEST(Cm6Buffer, HoldsLongSeriesOfTheLongestValues) {
    const Samples samples = seven_characters_each(20000);
    for (const auto version : versions()) {
        Forced forced(version);
        Grown<char> text;
        int nbytes = 0;
        ASSERT_EQ(cm6(samples.data(), 20000, &text.items, &nbytes, &text.size), 0);
        EXPECT_EQ(nbytes, 140000 + 1749 + 1 + 7);
        EXPECT_EQ(text.size, 140000 + 1750 + 21);
        EXPECT_LT(nbytes, text.size);
    }
}

TEST(Cm6Buffer, IsReusedWhenItsSizeSuffices) {
    // 10 samples: 70 * 1.0123456790123457 + 21 is 91.86.
    const Samples samples(10);
    int nbytes = 0;
    Grown<char> text;
    text.size = 91;
    char* const first = text.items = static_cast<char*>(std::malloc(91));
    EXPECT_EQ(cm6(samples.data(), 10, &text.items, &nbytes, &text.size), 0);
    EXPECT_EQ(text.items, first);
    EXPECT_EQ(text.size, 91);
    text.size = 90;
    EXPECT_EQ(cm6(samples.data(), 10, &text.items, &nbytes, &text.size), 0);
    EXPECT_EQ(text.size, 91);
    EXPECT_EQ(std::string(text.items, 91), "++++++++++\nCHK2 0\n" + std::string(73, '\0'));
}

TEST(Cm6Buffer, OfSizeZeroIsReplacedAndNotFreed) {
    char own_text[4] = "own";
    char* text = own_text;
    int nbytes = 0, size = 0;
    const Samples samples(10);
    EXPECT_EQ(cm6(samples.data(), 10, &text, &nbytes, &size), 0);
    EXPECT_NE(text, own_text);
    EXPECT_STREQ(own_text, "own");

    int32_t own_sample = 5;
    int32_t* decoded = &own_sample;
    int nsamp = 0, room = 0;
    EXPECT_EQ(um6(text, nbytes, &decoded, &nsamp, &room), 10);
    EXPECT_NE(decoded, &own_sample);
    EXPECT_EQ(room, nbytes);
    EXPECT_EQ(decoded[nbytes - 1], 0);

    int32_t* const first = decoded;
    EXPECT_EQ(um6(text, nbytes, &decoded, &nsamp, &room), 10);
    EXPECT_EQ(decoded, first);
    int32_t* none = nullptr;
    EXPECT_EQ(um6(text, nbytes, &none, &nsamp, &room), 10);
    EXPECT_NE(none, nullptr);
    std::free(none);
    std::free(text);
    std::free(decoded);
}

TEST(Cm6Buffer, IsUntouchedByARefusedCall) {
    Logged logged;
    char own[4] = "own";
    char* text = own;
    int nbytes = 7, size = 4;
    const int32_t sample = 0;
    EXPECT_EQ(cm6(&sample, -1, &text, &nbytes, &size), -1);
    EXPECT_THAT(logged.text(), testing::HasSubstr("cm6: can't hold the text of -1 samples\n"));
    // One character for each sample is already more than an int can count; none is read.
    EXPECT_EQ(cm6(&sample, INT_MAX, &text, &nbytes, &size), -1);
    EXPECT_THAT(logged.text(), testing::HasSubstr("the text of 2147483647 samples\n"));
    EXPECT_EQ(text, own);
    EXPECT_EQ(nbytes, 7);
    EXPECT_EQ(size, 4);
}

TEST(Cm6DeathTest, EndsWhenMemoryRunsOut) {
    const int32_t samples[10] = {};
    char* text = nullptr;
    int nbytes = 0, size = 0;
    EXPECT_EXIT(
        {
            morva::fail_allocation(1, false);
            cm6(samples, 10, &text, &nbytes, &size);
        },
        testing::ExitedWithCode(1),
        "Out of memory in cm6 at line [0-9]+ of 'cm6.cpp'\n\tCan't malloc 91 bytes for "
        "\\*compressedp\n");
    int32_t* decoded = nullptr;
    EXPECT_EXIT(
        {
            morva::fail_allocation(1, false);
            um6("+\nCHK2 0\n", 9, &decoded, &nbytes, &size);
        },
        testing::ExitedWithCode(1),
        "Out of memory in um6 at line [0-9]+ of 'cm6.cpp'\n\tCan't malloc 36 bytes for \\*datap\n");
}

}  // namespace
