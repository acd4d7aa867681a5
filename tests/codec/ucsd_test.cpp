#include "morva/ucsd.h"

#include <climits>

#include "base/memory.hpp"
#include "codec/codec_kit.hpp"
#include "codec/ucsd_compress.hpp"

namespace {

using kit::Forced;
using kit::Grown;
using kit::Logged;
using kit::Samples;
using kit::versions;
using morva::ucsd::Rule;

std::string hex(std::string_view bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        char two[3];
        std::snprintf(two, sizeof two, "%02X", byte);
        text += two;
    }
    return text;
}

std::string from_hex(std::string_view digits) {
    std::string bytes, two;
    for (const char c : digits) {
        if (c != ' ') two += c;
        if (two.size() < 2) continue;
        bytes += static_cast<char>(std::stoi(two, nullptr, 16));
        two.clear();
    }
    return bytes;
}

using Compress = int (*)(const int32_t*, int, char**, int*, int*);

struct Result {
    int status;
    std::string bytes;
    bool operator==(const Result&) const = default;
};

// Compresses samples that end at an unmapped page into a buffer that held something else before.
Result compressed(Compress compress, const Samples& samples) {
    Logged logged;
    const kit::Guarded guarded(
        {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof samples[0]});
    Grown<char> buffer;
    buffer.size = static_cast<int>(5 * samples.size() + 8);
    buffer.items = static_cast<char*>(std::malloc(5 * samples.size() + 8));
    std::memset(buffer.items, 0xa5, 5 * samples.size() + 8);
    int nbytes = 0;
    const int status =
        compress(reinterpret_cast<const int32_t*>(guarded.data()), static_cast<int>(samples.size()),
                 &buffer.items, &nbytes, &buffer.size);
    EXPECT_EQ(logged.text().empty(), status == 0);
    return {status, {buffer.items, static_cast<size_t>(nbytes)}};
}

// Expands bytes that end at an unmapped page.
std::optional<Samples> expanded(std::string_view bytes, size_t nsamp, size_t* used = nullptr) {
    const kit::Guarded guarded(bytes);
    Samples samples(nsamp);
    char* cursor = guarded.data();
    const int status =
        uucsd(samples.data(), &cursor, static_cast<int>(bytes.size()), static_cast<int>(nsamp));
    if (used != nullptr) *used = static_cast<size_t>(cursor - guarded.data());
    if (status != 0) return std::nullopt;
    EXPECT_EQ(cursor, guarded.data() + bytes.size());
    return samples;
}

Samples from_differences(const Samples& differences, int32_t first = 0) {
    Samples samples = {first};
    for (const int32_t d : differences) samples.push_back(samples.back() - d);
    return samples;
}

// Bytes worked out by hand from the layout. Those of undecided series come from cucsd_try alone.
TEST(UcsdBytes, AreTheKnownOnesForSmallSeries) {
    enum { kDecided, kUndecided };
    struct Row {
        Samples samples;
        const char* bytes;
        int decided;
        const char* why;
    };
    const Row rows[] = {
        {{}, "", kDecided, "no sample"},
        {{-2}, "FFFFFFFE", kDecided, "one sample"},
        {{0, 1, 2}, "00000000 1002 FF", kDecided, "two values of 4 bits in a byte"},
        {from_differences({7, -8, 1}, 9), "00000009 1003 78 10", kDecided, "an odd number"},
        {from_differences({127, -128}), "00000000 2002 7F80", kDecided, "8 bits"},
        {from_differences({300, 2047, -2048}), "00000000 3003 12C7FF 8000", kDecided, "12 bits"},
        {from_differences({32767, -32768, 4660}), "00000000 4003 7FFF 8000 1234", kDecided,
         "16 bits"},
        {{0, 4000000, -4000000, 100000, 0},
         "00000000 5004 3D0900 C2F700 0186A0 000000",
         kDecided,
         "24 bits, samples"},
        {from_differences({-1, -1, -100}), "00000000 1002 FF 00 2001 9C", kDecided,
         "a zero byte before an odd header"},
        {from_differences({-1, -1, -1, -100}), "00000000 1003 FFF0 2001 9C", kDecided,
         "a half byte closed"},
        {from_differences({100, 100, 1, 1, 1, 1, 1, 1}), "00000000 2002 6464 1006 111111", kDecided,
         "five narrow differences follow the first"},
        {from_differences({100, 1, 1, 1, 1, 1, 100}), "00000000 2007 640101010101 64", kDecided,
         "the fifth that follows is wide"},
        {from_differences({100, 1, 1, 1, 1, 1, 1, 100}),
         "00000000 2001 64 00 1006 111111 00 2001 64", kDecided, "the sixth is"},
        {from_differences({5000, 5000, 5000, 1, 1, 1, 5000}),
         "00000000 4003 138813881388 1003 1110 4001 1388", kDecided,
         "two suffice where twelve bits are won"},
        {from_differences({5000, 5000, 5000, 1, 1, 100, 100, 5000}),
         "00000000 4003 138813881388 2004 01016464 4001 1388", kDecided,
         "the widest of the narrow ones counts"},
        {{INT_MAX, INT_MIN, INT_MAX}, "7FFFFFFF 1002 F1", kDecided, "differences wrap"},
        {{0, 5}, "00000000 1001 B0", kUndecided, "two samples"},
        {{0, 1000, 1001}, "00000000 3001 C180 1001 F0", kUndecided, "narrow at the end"},
        {from_differences({100, 1, 1, 1, 1, 1}), "00000000 2001 64 00 1005 111110", kUndecided,
         "only four follow"},
        {from_differences({1, 100, 5000, 1}), "00000000 2002 0164 4001 1388 1001 10", kUndecided,
         "the virtual first class opens the wider one"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const Row& row : rows) {
            const std::string bytes = from_hex(row.bytes);
            EXPECT_EQ(hex(compressed(cucsd_try, row.samples).bytes), hex(bytes)) << row.why;
            if (row.decided == kDecided) {
                EXPECT_EQ(compressed(cucsd, row.samples), (Result{0, bytes})) << row.why;
            }
            EXPECT_EQ(expanded(bytes, row.samples.size()), row.samples) << row.why;
        }
    }
}

TEST(UcsdBytes, BeginANewRunAfter255Values) {
    const std::pair<size_t, std::string> rows[] = {
        {256, from_hex("0000000010FF") + std::string(128, '\0')},
        {257, from_hex("0000000010FF") + std::string(128, '\0') + from_hex("100100")},
        {511, from_hex("0000000010FF") + std::string(128, '\0') + from_hex("10FF") +
                  std::string(128, '\0')},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [count, bytes] : rows) {
            EXPECT_EQ(compressed(cucsd, Samples(count)), (Result{0, bytes})) << count;
            EXPECT_EQ(expanded(bytes, count), Samples(count));
        }
    }
}

TEST(UcsdBytes, OfTooLargeNumbersHaveTheirLength) {
    struct Row {
        Samples samples;
        Result strict;
        int lenient;
        const char* why;
    };
    const Row rows[] = {
        {{0, 10000000, 0, 10000000, 0},
         {-1, from_hex("00000000 5004 989680 000000 989680 000000")},
         -1,
         "a sample"},
        {{0, -8388608, 8388607, 0, 8388607},
         {-1, from_hex("00000000 5004 800000 7FFFFF 000000 7FFFFF")},
         0,
         "a difference between samples that fit"},
        {{1 << 30, (1 << 30) + 1, 0, 1, 9000000},
         {-1, from_hex("40000000 5004 000001 000000 000001 895440")},
         -1,
         "the last sample"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const Row& row : rows) {
            EXPECT_EQ(compressed(cucsd, row.samples), row.strict) << row.why;
            const Result expected = {row.lenient, row.lenient == 0 ? row.strict.bytes : ""};
            EXPECT_EQ(compressed(cucsd_try, row.samples), expected) << row.why;
        }
        // Where cucsd takes the sample into a run of 24 bits, its difference fits.
        EXPECT_EQ(compressed(cucsd_try, {1 << 30, (1 << 30) + 1, 0}),
                  (Result{0, from_hex("40000000 1001 F0 00 5001 000000")}));
    }
}

enum class Kind { kConstant, kRamp, kStep, kNoise, kSwell, kBits24, kBorder };
constexpr Kind kKinds[] = {Kind::kConstant, Kind::kRamp,   Kind::kStep,  Kind::kNoise,
                           Kind::kSwell,    Kind::kBits24, Kind::kBorder};

Samples series(Kind kind, size_t count, std::mt19937& random) {
    Samples samples(count);
    const auto any = [&](int bits) { return static_cast<int32_t>(random()) >> (32 - bits); };
    for (size_t i = 0; i < count; ++i) {
        const auto at = static_cast<int32_t>(i);
        const int32_t before = i > 0 ? samples[i - 1] : 0;
        switch (kind) {
            case Kind::kConstant:
                samples[i] = -1234567;
                break;
            case Kind::kRamp:
                samples[i] = 17 * at - 5000;
                break;
            case Kind::kStep:
                samples[i] = at / 7 % 2 * 3000;
                break;
            case Kind::kNoise:
                samples[i] = any(8);
                break;
            case Kind::kSwell:
                // Differences that stay in a class for a while.
                samples[i] = before / 2 + any(3 + static_cast<int>((random() & 7) + at / 5 % 13));
                break;
            case Kind::kBits24:
                samples[i] = any(24);
                break;
            case Kind::kBorder:
                // Runs of samples and of differences take turns at every second value.
                samples[i] = i % 2 == 0 ? 8356900 + any(4) : 8389600 + any(4);
                break;
        }
    }
    return samples;
}

TEST(UcsdBytes, ComeBackAsTheSamplesWereForEveryLength) {
    std::mt19937 random(5);
    for (size_t count = 0; count <= 2000; ++count) {
        for (const Kind kind : kKinds) {
            const Samples samples = series(kind, count, random);
            std::string plain;
            for (const auto version : versions()) {
                Forced forced(version);
                const Result result = compressed(cucsd_try, samples);
                ASSERT_EQ(result.status, 0) << count;
                if (version == morva::Simd::kPlain) plain = result.bytes;
                ASSERT_EQ(result.bytes, plain) << count;
                ASSERT_EQ(expanded(result.bytes, count), samples) << count;
            }
        }
    }
}

// Any series, also those that cucsd ends the process at or that lose bits.
TEST(UcsdBytes, AreTheSameStrictlyUnlessSomethingIsWrong) {
    using namespace morva::ucsd;
    std::mt19937 random(6);
    int decided = 0;
    for (int round = 0; round < 20000; ++round) {
        const size_t count = 1 + random() % (round % 50 == 0 ? 6000 : 60);
        Samples samples = series(kKinds[random() % std::size(kKinds)], count, random);
        if (round % 3 == 0) samples[random() % count] = static_cast<int32_t>(random());
        const auto run = [&](Rule rule, std::string& bytes, auto&& function) {
            bytes.assign(static_cast<size_t>(capacity(static_cast<int64_t>(count), rule)), '\x5a');
            auto* const out = reinterpret_cast<uint8_t*>(bytes.data());
            const Compressed made = function(samples.data(), count, rule, out);
            bytes.resize(made.undecided ? 0 : static_cast<size_t>(made.end - out));
            return std::tuple(made.undecided, made.lossy, !made.undecided && made.too_steep);
        };
        std::string strict, lenient, other;
        const auto verdict = run(Rule::kStrict, strict, compress_plain);
        const auto tolerant = run(Rule::kLenient, lenient, compress_plain);
        if (verdict == std::tuple(false, false, false)) {
            ASSERT_EQ(strict, lenient) << round;
            ++decided;
        }
        for (const auto version : versions()) {
            Forced forced(version);
            const auto again = run(Rule::kStrict, other, compress);
            ASSERT_EQ(std::get<0>(again), std::get<0>(verdict)) << round;
            if (!std::get<0>(verdict)) {
                ASSERT_EQ(again, verdict) << round;
            }
            ASSERT_EQ(other, strict) << round;
            ASSERT_EQ(run(Rule::kLenient, other, compress), tolerant) << round;
            if (!std::get<1>(tolerant)) {
                ASSERT_EQ(other, lenient) << round;
            }
        }
    }
    EXPECT_GT(decided, 1000);
}

TEST(UcsdBytes, ThatAreDamagedAreRefused) {
    struct Row {
        const char* bytes;
        size_t nsamp;
        size_t used;
        const char* reason;
    };
    const Row rows[] = {
        {"", 1, 0, "uucsd: too few bytes at byte 0\n"},
        {"000000", 1, 0, "uucsd: too few bytes at byte 0\n"},
        {"00000000", 2, 4, "uucsd: too few bytes at byte 4\n"},
        {"00000000 10", 2, 4, "uucsd: too few bytes at byte 4\n"},
        {"00000000 1002", 3, 4, "uucsd: too few bytes at byte 4\n"},
        {"00000000 1003 FF", 4, 4, "uucsd: too few bytes at byte 4\n"},
        {"00000000 3003 12C7FF 80", 4, 4, "uucsd: too few bytes at byte 4\n"},
        {"00000000 1002 FF 00", 4, 7, "uucsd: too few bytes at byte 7\n"},
        {"00000000 0002 FF", 3, 4, "uucsd: unknown class of run at byte 4\n"},
        {"00000000 6002 FF", 3, 4, "uucsd: unknown class of run at byte 4\n"},
        {"00000000 1000 1002 FF", 3, 4, "uucsd: run of no samples at byte 4\n"},
        {"00000000 1002 FF 1001 F0", 4, 7, "uucsd: no run where one should begin at byte 7\n"},
    };
    for (const auto version : versions()) {
        Forced forced(version);
        for (const Row& row : rows) {
            Logged logged;
            size_t used = 99;
            EXPECT_EQ(expanded(from_hex(row.bytes), row.nsamp, &used), std::nullopt) << row.bytes;
            EXPECT_EQ(used, row.used) << row.bytes;
            EXPECT_THAT(logged.text(), testing::HasSubstr(row.reason)) << row.bytes;
        }
        const std::string shown = kit::captured(
            2, [] { EXPECT_EQ(expanded(from_hex("00000000 1002 FF"), 2), std::nullopt); });
        EXPECT_THAT(
            shown, testing::HasSubstr("uucsd bad input data: uncompresses to more than 2 samples"));
    }
}

TEST(UcsdBytes, AreReadWithTheUpperHalfOfTheCodeAndUpToTheLastValue) {
    EXPECT_EQ(expanded(from_hex("00000000 1F02 FF"), 3), (Samples{0, 1, 2}));
    EXPECT_EQ(expanded(from_hex("00000000 1001 1F"), 2), (Samples{0, -1})) << "the other half byte";
    std::string bytes = from_hex("00000001 1002 FF 00 2001");
    char* cursor = bytes.data();
    Samples samples(9, 77);
    EXPECT_EQ(uucsd(samples.data(), &cursor, 10, 3), 0);
    EXPECT_EQ(cursor, bytes.data() + 7);
    cursor = bytes.data();
    EXPECT_EQ(uucsd_anyway(samples.data(), &cursor, 10, 9), 3);
    EXPECT_EQ(cursor, bytes.data() + 7);
    EXPECT_EQ(samples, (Samples{1, 2, 3, 77, 77, 77, 77, 77, 77}));
}

TEST(UcsdBytes, CutAnywhereAreRefused) {
    std::mt19937 random(8);
    for (const Kind kind : {Kind::kSwell, Kind::kBorder}) {
        const Samples samples = series(kind, 300, random);
        const std::string bytes = compressed(cucsd_try, samples).bytes;
        for (const auto version : versions()) {
            Forced forced(version);
            for (size_t length = 0; length < bytes.size(); ++length) {
                Logged logged;
                const kit::Guarded cut(std::string_view(bytes).substr(0, length));
                Samples found(300);
                char* cursor = cut.data();
                const auto count = static_cast<size_t>(
                    uucsd_anyway(found.data(), &cursor, static_cast<int>(length), 300));
                ASSERT_LT(count, 300u);
                ASSERT_TRUE(std::equal(found.begin(), found.begin() + static_cast<long>(count),
                                       samples.begin()));
                ASSERT_EQ(expanded(std::string_view(bytes).substr(0, length), 300), std::nullopt);
            }
        }
    }
}

TEST(UcsdBuffer, IsReusedReplacedOrLeftAlone) {
    const Samples samples(10);
    int nbytes = 0;
    Grown<char> buffer;
    EXPECT_EQ(cucsd(samples.data(), 10, &buffer.items, &nbytes, &buffer.size), 0);
    EXPECT_EQ(buffer.size, 48);
    EXPECT_EQ(nbytes, 4 + 2 + 5);
    char* const first = buffer.items;
    EXPECT_EQ(cucsd(samples.data(), 10, &buffer.items, &nbytes, &buffer.size), 0);
    EXPECT_EQ(buffer.items, first);
    EXPECT_EQ(cucsd_try(samples.data(), 10, &buffer.items, &nbytes, &buffer.size), 0);
    EXPECT_EQ(buffer.size, 58);

    char own[4] = "own";
    char* text = own;
    int size = 0;
    EXPECT_EQ(cucsd(samples.data(), 10, &text, &nbytes, &size), 0);
    EXPECT_STREQ(own, "own");
    EXPECT_NE(text, own);
    std::free(text);

    Logged logged;
    text = own, nbytes = 7, size = 4;
    for (const auto function : {cucsd, cucsd_try}) {
        EXPECT_EQ(function(samples.data(), -1, &text, &nbytes, &size), -1);
        EXPECT_EQ(function(samples.data(), INT_MAX, &text, &nbytes, &size), -1);
    }
    morva::fail_allocation(1, false);
    EXPECT_EQ(cucsd_try(samples.data(), 10, &text, &nbytes, &size), -1);
    morva::fail_allocation(0, false);
    EXPECT_THAT(logged.text(), testing::HasSubstr("cucsd_try: can't allocate 58 bytes"));
    EXPECT_EQ(text, own);
    EXPECT_EQ(nbytes, 7);
    EXPECT_EQ(size, 4);
}

TEST(UcsdDeathTest, EndsWhereItMust) {
    int nbytes = 0;
    Grown<char> buffer;
    const auto run = [&](const Samples& samples) {
        cucsd(samples.data(), static_cast<int>(samples.size()), &buffer.items, &nbytes,
              &buffer.size);
    };
    EXPECT_EXIT(run({0, 5}), testing::ExitedWithCode(1), "shouldn't happen\n");
    EXPECT_EXIT(run({0, 1000, 1001}), testing::ExitedWithCode(1), "shouldn't happen\n");
    EXPECT_EXIT((morva::fail_allocation(1, false), run(Samples(10))), testing::ExitedWithCode(1),
                "Out of memory in cucsd at line [0-9]+ of 'ucsd_compress.cpp'\n\tCan't malloc 48 "
                "bytes for \\*buf\n");
}

}  // namespace
