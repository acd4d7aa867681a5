// Decoding of messages as they come: headers, line ends, padding, damage.
#include <atomic>
#include <climits>
#include <thread>

#include "codec/codec_kit.hpp"
#include "codec/um6_decode.hpp"
#include "morva/cm6.h"

namespace {

using kit::decoded;
using kit::encoded;
using kit::Forced;
using kit::Samples;
using kit::versions;

const Samples kFour = {0, 1, 2, 3};

std::string padded(const std::string& line) {
    return line + std::string(80 - line.size(), ' ');
}

std::string with_carriage_returns(const std::string& text) {
    std::string result;
    for (char c : text) result += c == '\n' ? "\r\n" : std::string(1, c);
    return result;
}

TEST(Um6Message, MayTakeManyForms) {
    const std::pair<std::string, const char*> rows[] = {
        {"+-++\nCHK2 6\n", "data and checksum"},
        {"+-++\nCHK2 6", "no newline at the end"},
        {"+-++\nCHK2      \t 6\n", "number set to the right"},
        {"+-++\nCHK2 +6 and more\n", "text behind the number"},
        {"WID2 x\nSTA2 y\nEID2 z\nBEA2 u\nDAT2\n+-++\nCHK2 6\n", "every header line"},
        {"DAT2 CM6\n+-++\nCHK2 6\n", "DAT2 with a blank behind it"},
        {"DAT2\r\n+-++\r\nCHK2 6\r\n", "lines that end with carriage return and newline"},
        {"+-++\r\nCHK2 6", "a carriage return before the checksum line"},
        {"+-\n++\nCHK2 6\n", "lines of any length"},
        {"\n\n+\t-\r\r\n\n++\n\n\nCHK2 6\n", "empty lines and tabs"},
        {padded("+-++") + "\nCHK2 6\n", "last line padded with blanks"},
        {padded("+-++") + "\r\nCHK2 6\r\n", "padded, with a carriage return"},
        {"+-++ zzz\nCHK2 6\n", "a blank ends the data, whatever stands behind it"},
        {"+-++\nCHK2 6\nCHK2 7\n", "the first checksum line counts"},
        {"+-++\nCHK2 6\nSTOP\nWID2 2007/03/21\nDAT2\n", "what follows the checksum line"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [text, what] : rows) EXPECT_EQ(decoded(text), kFour) << what;
    }
}

TEST(Um6Message, MayHoldOneSampleOrNone) {
    for (const auto version : versions()) {
        Forced forced(version);
        EXPECT_EQ(decoded("DAT2\n\nCHK2 0\n"), Samples{});
        EXPECT_EQ(decoded("DAT2\r\n\r\nCHK2 0\r\n"), Samples{});
        EXPECT_EQ(decoded("DAT2\nF\r\nCHK2 1\n"), Samples{-1});
        EXPECT_EQ(decoded(padded("F") + "\nCHK2 1\n"), Samples{-1});
    }
}

// DAT2 are four characters of the alphabet: only what follows tells a header from data.
TEST(Um6Message, MayBeginWithDataThatLookLikeAHeader) {
    const std::string text = "DAT2++\nCHK2 ";
    int32_t expected[6];
    char codes[] = "DAT2++";
    char* cursor = codes;
    int remaining = 6;
    uint32_t difference = 0, sample = 0;
    int64_t sum = 0;
    for (int32_t& x : expected) {
        int32_t value = 0;
        ASSERT_EQ(unstuff(&value, &cursor, &remaining), 0);
        sample += difference += static_cast<uint32_t>(value);
        sum += x = static_cast<int32_t>(sample);
    }
    EXPECT_EQ(decoded(text + std::to_string(std::abs(sum)) + "\n"),
              Samples(std::begin(expected), std::end(expected)));
    const Samples four = {15, 42, 54, 70};
    ASSERT_EQ(encoded(four).substr(0, 10), "DAT2\nCHK2 ");
    EXPECT_EQ(decoded(encoded(four)), four);
    EXPECT_EQ(decoded("DAT2\r\nDAT2\r\nCHK2 181\r\n"), four);
}

TEST(Um6Message, IsRefusedWhenItIsNotWhole) {
    std::string endless(5000, 'U');
    endless += "\nCHK2 0\n";
    const std::pair<std::string, const char*> rows[] = {
        {"", "empty"},
        {"+-++\n", "no checksum line"},
        {"+-++ CHK2 6\n", "not at the start of a line"},
        {"+-++\nCHK2\n", "no blank behind the word"},
        {"+-++\nCHK", "cut in the word"},
        {"CHK2 0\n", "no line before the checksum line"},
        {"DAT2\nCHK2 0\n", "data without a header, and another number"},
        {"DAT2", "a header without an end"},
        {"WID2 x\nCHK2 0", "data may not begin with the checksum line"},
        {"\nCHK2 ", "no number"},
        {"+-++\nCHK2 x6\n", "a letter in place of the number"},
        {"+-++\nCHK2 \n6\n", "the number stands on the next line"},
        {"+-++\nCHK2 -6\n", "a negative number"},
        {"+-++\nCHK2 7\n", "another number"},
        {"+-++\nCHK2 4294967302\n", "6 in 32 bits only"},
        {"+-++\nCHK2 18446744073709551622\n", "6 in 64 bits only"},
        {" +-++\nCHK2 6\n", "a blank before the first value"},
        {"+-*+\nCHK2 6\n", "a character outside the alphabet"},
        {"+-+\xab\nCHK2 6\n", "a character above 127"},
        {std::string("+-+\0+\nCHK2 6\n", 13), "a zero byte"},
        {"+-++U\nCHK2 6\n", "cut inside a value that adds no bits"},
        {endless, "a value without an end"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [text, why] : rows) EXPECT_EQ(decoded(text), std::nullopt) << why;
    }
}

TEST(Um6Message, WithoutTextIsRefused) {
    kit::Logged logged;
    kit::Grown<int32_t> buffer;
    int nsamp = 0;
    EXPECT_EQ(um6("+\nCHK2 0\n", -1, &buffer.items, &nsamp, &buffer.size), -1);
    EXPECT_EQ(um6(nullptr, 9, &buffer.items, &nsamp, &buffer.size), -1);
    Um6_verdict verdict;
    EXPECT_EQ(um6_anyway(nullptr, 9, &buffer.items, &nsamp, &buffer.size, &verdict), -1);
    EXPECT_EQ(um6_anyway(nullptr, 0, &buffer.items, &nsamp, &buffer.size, &verdict), 0);
    EXPECT_EQ(buffer.items, nullptr);
    EXPECT_NE(logged.text(), "");
}

TEST(Um6Message, CutAnywhereNeverGivesWrongSamples) {
    const Samples samples = kit::series(kit::Kind::kSwell, 300);
    const std::string text = "WID2 x\nDAT2\n" + encoded(samples);
    for (const auto version : versions()) {
        Forced forced(version);
        for (size_t length = 0; length < text.size(); ++length) {
            const auto result = decoded(std::string_view(text).substr(0, length));
            // Without its newline, or with a number that lost no digit, the text is still whole.
            if (length + 1 < text.size()) {
                EXPECT_EQ(result, std::nullopt) << length;
            } else {
                EXPECT_EQ(result, samples);
            }
        }
    }
}

// Nothing is built at first use: the thread sanitizer watches threads that begin at the same time.
TEST(Um6Message, MayBeDecodedInSeveralThreadsAtOnce) {
    const Samples samples = kit::series(kit::Kind::kSwell, 3000);
    const std::string text = encoded(samples);
    for (const auto version : versions()) {
        Forced forced(version);
        std::vector<std::thread> threads;
        std::atomic<int> good = 0;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                kit::Grown<int32_t> buffer;
                int nsamp = 0;
                initDecode();
                um6(text.data(), static_cast<int>(text.size()), &buffer.items, &nsamp,
                    &buffer.size);
                if (Samples(buffer.items, buffer.items + nsamp) == samples) ++good;
            });
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(good, 8);
    }
}

struct Anyway {
    const char* text;
    int status;
    Samples samples;
    int position;
    int64_t stored;
    const char* reason;
};

TEST(Um6Anyway, HandsBackSamplesAndVerdictApart) {
    const Anyway rows[] = {
        {"DAT2\n+-++\nCHK2 6\n", UM6_GOOD, kFour, 9, 6, "good"},
        {"DAT2\n+-++\nCHK2 -7\n", UM6_MISMATCH, kFour, 9, -7, "CHK2 says -7, samples give 6"},
        {"+-++\nCHK2 99999999999999999999\n", UM6_MISMATCH, kFour, 4, INT64_MAX,
         "CHK2 says 9223372036854775807, samples give 6"},
        {"+-++\nCHK2 9223372036854775808\n", UM6_MISMATCH, kFour, 4, INT64_MAX,
         "CHK2 says 9223372036854775807, samples give 6"},
        {"+-++\n", UM6_NO_CHECKSUM_LINE, kFour, 5, 0, "no CHK2 line"},
        {"+-++\nCHK2 \n", UM6_NO_NUMBER, kFour, 4, 0, "no number in the CHK2 line"},
        {"DAT2\n+-++*++\nCHK2 6\n", UM6_BAD_CHARACTER, kFour, 9, 6, "bad character at byte 9"},
        {"+-++U*\nCHK2 6\n", UM6_BAD_CHARACTER, kFour, 5, 6, "bad character at byte 5"},
        {"+-++UU\nCHK2 6\n", UM6_CUT, kFour, 6, 6, "the data end inside a value"},
        {" +-++\nCHK2 6\n", UM6_BAD_CHARACTER, {}, 0, 6, "bad character at byte 0"},
        {"", UM6_NO_CHECKSUM_LINE, {}, 0, 0, "no CHK2 line"},
    };
    for (const Anyway& row : rows) {
        kit::Guarded text(row.text);
        kit::Grown<int32_t> buffer;
        int nsamp = -7;
        Um6_verdict verdict;
        const int count = um6_anyway(text.data(), static_cast<int>(text.size()), &buffer.items,
                                     &nsamp, &buffer.size, &verdict);
        ASSERT_EQ(count, static_cast<int>(row.samples.size())) << row.text;
        EXPECT_EQ(nsamp, count);
        EXPECT_EQ(Samples(buffer.items, buffer.items + count), row.samples);
        EXPECT_EQ(verdict.status, row.status) << row.text;
        EXPECT_EQ(verdict.position, row.position) << row.text;
        EXPECT_EQ(verdict.stored, row.stored) << row.text;
        EXPECT_EQ(verdict.computed, row.samples.empty() ? 0 : 6);
        char reason[UM6_REASON_SIZE];
        EXPECT_STREQ(um6_reason(&verdict, reason), row.reason);
        verdict.status = 9;
        EXPECT_STREQ(um6_reason(&verdict, reason), "unknown verdict");
    }
}

// Versions take 2048 codes at a time; a blank that pads is the first character of the next ones.
TEST(Um6Anyway, ABlankBehindManySamplesPads) {
    for (const auto version : versions()) {
        Forced forced(version);
        EXPECT_EQ(decoded(std::string(2048, '+') + "  \nCHK2 0\n"), Samples(2048));
    }
}

// One decoder's answer to some bytes: all that a caller can see.
using Answer = std::tuple<size_t, morva::Stop, size_t, int32_t, Samples>;

Answer answer(morva::Decoded (*decode)(std::string_view, int32_t*), std::string_view data) {
    kit::Guarded guarded(data);
    Samples samples(data.size());
    const morva::Decoded result = decode({guarded.data(), guarded.size()}, samples.data());
    samples.resize(result.count);
    return {result.count, result.stop, result.position, result.sum, samples};
}

// Those that this processor can run.
std::vector<morva::Decoded (*)(std::string_view, int32_t*)> vector_versions() {
    if (morva::best_simd() == morva::Simd::kPlain) return {};
    if (morva::best_simd() == morva::Simd::kAvx2) return {morva::decode_avx2};
    return {morva::decode_avx2, morva::decode_avx512};
}

TEST(Um6Versions, AgreeOnDamagedData) {
    std::mt19937 random(11);
    const std::string odd = "\n\r\t   *\x80U+zz";
    for (int round = 0; round < 3000; ++round) {
        const auto kind = kit::kKinds[random() % std::size(kit::kKinds)];
        std::string text = encoded(kit::series(kind, random() % 3000, random()));
        text.resize(text.rfind("\nCHK2"));
        if (round % 5 == 0) text = with_carriage_returns(text);
        for (auto changes = random() % 4; changes > 0 && !text.empty(); --changes)
            text[random() % text.size()] = odd[random() % odd.size()];
        if (round % 7 == 0) text.insert(text.size() / 2, std::string(random() % 9000, 'z'));
        const Answer expected = answer(morva::decode_plain, text);
        for (const auto decode : vector_versions())
            ASSERT_EQ(answer(decode, text), expected) << round;
    }
}

TEST(Um6Versions, AgreeWhereverTheTextIsCut) {
    const std::string text = encoded(kit::series(kit::Kind::kSwell, 1200));
    for (size_t length = 0; length < text.size(); ++length) {
        const auto data = std::string_view(text).substr(0, length);
        const Answer expected = answer(morva::decode_plain, data);
        for (const auto decode : vector_versions())
            ASSERT_EQ(answer(decode, data), expected) << length;
    }
}

}  // namespace
