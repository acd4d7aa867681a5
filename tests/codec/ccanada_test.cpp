#include "morva/ccanada.h"

#include <climits>

#include "base/memory.hpp"
#include "codec/packed_kit.hpp"

namespace {

using kit::Bytes;
using kit::Forced;
using kit::Grown;
using kit::Logged;
using kit::Samples;
using kit::versions;

Bytes packed(const Samples& samples) {
    Grown<unsigned char> buffer;
    int nbytes = -7;
    EXPECT_EQ(ccanada(samples.data(), static_cast<int>(samples.size()), &buffer.items, &nbytes,
                      &buffer.size),
              0);
    const size_t count = samples.size() / 20 * 20;
    EXPECT_EQ(buffer.size, static_cast<int>(count / 10 + 4 * count + 4));
    for (int i = nbytes; i < buffer.size; ++i) EXPECT_EQ(buffer.items[i], 0) << i;
    return {buffer.items, buffer.items + nbytes};
}

// The samples of bytes that end at an unmapped page, and the one behind them; nothing when ucanada
// refuses them, for the reason given.
Samples unpacked(const Bytes& bytes, int nsamp, const char* reason = "") {
    Logged logged;
    kit::GuardedBytes guarded(bytes);
    Grown<int32_t> buffer;
    const int given = nsamp;
    const int result = ucanada(guarded.bytes(), static_cast<int>(bytes.size()), &buffer.items,
                               &nsamp, &buffer.size);
    EXPECT_EQ(kit::reasons(logged), reason);
    EXPECT_EQ(result, *reason == '\0' ? 0 : -1);
    EXPECT_TRUE(result == 0 || nsamp == given);
    if (buffer.items == nullptr) return {};
    EXPECT_EQ(buffer.size, 4 * nsamp + 4);
    return {buffer.items, buffer.items + nsamp + 1};
}

constexpr const char* kTooShort = "ucanada: Illegal input data: compressed buffer too small\n";
constexpr const char* kTooSmall = "ucanada: Illegal input data: compressed buffer too small.\n";
constexpr const char* kTooBig = "ucanada: Illegal input data: compressed buffer too big.\n";

Samples step_of(int32_t size) {
    Samples samples(21);
    std::fill(samples.begin() + 10, samples.end(), size);
    return samples;
}

// Worked out by hand from the layout.
struct Golden {
    const char* what;
    Samples samples;
    Bytes bytes;
};
const Golden kGolden[] = {
    {"one sample", {-2}, {0xFF, 0xFF, 0xFF, 0xFE}},
    {"21 equal samples", Samples(21, 7), {0, 0, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"20 zeros, with the default sample behind them: codes 0, 0, 0, 0, 7 and the flag",
     Samples(20),
     {0x80, 0x07, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 0,
      0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0}},
    {"a step of 2^20: 24 bits in group 2 and the flag",
     step_of(1 << 20),
     {0x81, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0, 0, 0xF0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"a step of 17: 6 bits in group 2, 000000 010001 101111 000000",
     step_of(17),
     {0x00, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x1B, 0xC0, 0, 0, 0, 0}},
};

TEST(Ccanada, WritesTheDocumentedBytes) {
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [what, samples, bytes] : kGolden) {
            EXPECT_EQ(packed(samples), bytes) << what;
            if (samples.size() != 21) continue;
            EXPECT_EQ(unpacked(bytes, 20), samples) << what;
        }
    }
    EXPECT_EQ(packed({}), Bytes(4));
}

struct WidthRow {
    int32_t largest, smallest;  // the ends of what fits
    int width, code, flagged_code;
};
const WidthRow kWidthRows[] = {
    {7, -8, 4, 0, 0},
    {31, -32, 6, 1, 1},
    {127, -128, 8, 2, 1},
    {511, -512, 10, 3, 2},
    {2047, -2048, 12, 4, 2},
    {8191, -8192, 14, 5, 3},
    {32767, -32768, 16, 6, 3},
    {131071, -131072, 18, 7, 4},
    {524287, -524288, 20, -1, 4},
    {8388607, -8388608, 24, -1, 5},
    {134217727, -134217728, 28, -1, 6},
    {INT_MAX, INT_MIN, 32, -1, 7},
};

// 21 samples whose second differences are those given.
Samples integrated(const Samples& differences) {
    Samples samples = {0};
    uint32_t x = 0, d = 0;
    for (int32_t e : differences)
        samples.push_back(static_cast<int32_t>(x += d += static_cast<uint32_t>(e)));
    return samples;
}

// Bytes put together bit by bit from second differences, the flag and the codes of the groups.
Bytes assembled(const Samples& differences, int flag, const std::vector<int>& codes) {
    Bytes bytes(6 + 80, 0xAA);  // bits not written would show
    int key_byte = 0, key_bit = 7, byte = 2, bit = 7;
    cc_bitpack(bytes.data(), &byte, &bit, 32, 0);
    cc_bitpack(bytes.data(), &key_byte, &key_bit, 1, flag);
    for (size_t group = 0; group < 5; ++group) {
        const int code = codes[group], width = flag == 0 ? 4 + 2 * code : 4 + 4 * code;
        cc_bitpack(bytes.data(), &key_byte, &key_bit, 3, code);
        for (size_t i = 0; i < 4; ++i)
            cc_bitpack(bytes.data(), &byte, &bit, width, differences[4 * group + i]);
    }
    EXPECT_EQ(bit, 7);
    bytes.resize(static_cast<size_t>(byte));
    return bytes;
}

TEST(Ccanada, ChoosesTheSmallestWidthThatHoldsAGroup) {
    for (const auto version : versions()) {
        Forced forced(version);
        for (const WidthRow& row : kWidthRows) {
            for (const bool flagged : {false, true}) {
                if (!flagged && row.code < 0) continue;
                // The row's values in group 1, in every place; in group 3 what sets the flag.
                Samples differences(20);
                differences[4] = row.largest;
                differences[5] = row.smallest;
                differences[7] = row.largest;
                if (flagged) differences[13] = -131073;
                const Bytes expected =
                    assembled(differences, flagged,
                              {0, flagged ? row.flagged_code : row.code, 0, flagged ? 4 : 0, 0});
                const Samples samples = integrated(differences);
                EXPECT_EQ(packed(samples), expected) << row.width;
                EXPECT_EQ(unpacked(expected, 20), samples) << row.width;
            }
        }
    }
}

TEST(Ccanada, BitsOutsideTheFieldStay) {
    unsigned char bytes[3] = {0xFF, 0xFF, 0xFF};
    int byte = 0, bit = 4;
    cc_bitpack(bytes, &byte, &bit, 12, 0x7F0);
    EXPECT_EQ(Bytes(bytes, bytes + 3), (Bytes{0xEF, 0xE1, 0xFF}));
    EXPECT_EQ(byte, 1);
    EXPECT_EQ(bit, 0);
    cc_bitpack(bytes, &byte, &bit, 0, -1);
    cc_bitpack(bytes, &byte, &bit, 1, 0);
    EXPECT_EQ(bytes[1], 0xE0);
    EXPECT_EQ(byte, 2);
    EXPECT_EQ(bit, 7);
}

TEST(Ccanada, SeriesOfEveryKindAndLengthComeBack) {
    for (size_t length = 0; length <= 2001; length += length % 20 == 0 ? 1 : 19) {
        for (const auto& [what, samples] : kit::all_series(length)) {
            std::vector<Bytes> results;
            for (const auto version : versions()) {
                Forced forced(version);
                results.push_back(packed(samples));
                ASSERT_EQ(results.back(), results.front());
                if (length < 20) continue;
                Samples expected = samples;
                if (length % 20 == 0) expected.push_back(INT32_MIN);
                const auto nsamp = static_cast<int>(length / 20 * 20);
                ASSERT_EQ(unpacked(results.back(), nsamp), expected) << what << ' ' << length;
            }
        }
    }
}

TEST(Ccanada, OtherCountsAreRefused) {
    const Samples samples(40);
    Grown<unsigned char> buffer;
    int nbytes = -7;
    for (const int count : {2, 19, 22, 39, -1, -19, -20, INT_MIN}) {
        Logged logged;
        EXPECT_EQ(ccanada(samples.data(), count, &buffer.items, &nbytes, &buffer.size), -1)
            << count;
        EXPECT_EQ(kit::reasons(logged), "ccanada: nsamp not a multiple of 20.\n");
    }
    EXPECT_EQ(buffer.items, nullptr);
    EXPECT_EQ(nbytes, -7);
}

TEST(Ccanada, BuffersAreReusedAndGrow) {
    Grown<unsigned char> buffer;
    Grown<int32_t> back;
    int nbytes, nsamp = 20;
    for (const size_t count : {21U, 61U, 41U}) {
        const Samples samples = kit::series(kit::Kind::kFull, count);
        ASSERT_EQ(
            ccanada(samples.data(), static_cast<int>(count), &buffer.items, &nbytes, &buffer.size),
            0);
        nsamp = static_cast<int>(count) - 1;
        ASSERT_EQ(ucanada(buffer.items, nbytes, &back.items, &nsamp, &back.size), 0);
        EXPECT_EQ(Samples(back.items, back.items + count), samples);
    }
    EXPECT_EQ(buffer.size, 6 + 4 * 60 + 4);
    EXPECT_EQ(back.size, 4 * 60 + 4);
}

TEST(Ccanada, RunningOutOfMemoryLeavesTheBuffersAsTheyWere) {
    const Samples samples(41, 5);
    const Bytes bytes = packed(samples);
    Logged logged;
    Grown<unsigned char> buffer;
    Grown<int32_t> back;
    int nbytes = -7, nsamp = 40;
    for (const int size : {0, 4}) {
        if (size > 0) {
            buffer.items = static_cast<unsigned char*>(std::malloc(4));
            back.items = static_cast<int32_t*>(std::malloc(4));
            buffer.size = back.size = size;
        }
        const auto* const items = buffer.items;
        morva::fail_allocation(1, false);
        EXPECT_EQ(ccanada(samples.data(), 41, &buffer.items, &nbytes, &buffer.size), -1);
        morva::fail_allocation(1, false);
        EXPECT_EQ(
            ucanada(bytes.data(), static_cast<int>(bytes.size()), &back.items, &nsamp, &back.size),
            -1);
        EXPECT_EQ(buffer.items, items);
        EXPECT_EQ(buffer.size, size);
        EXPECT_EQ(back.size, size);
    }
    EXPECT_EQ(ccanada(samples.data(), 2000000000, &buffer.items, &nbytes, &buffer.size), -1);
    EXPECT_EQ(nbytes, -7);
    EXPECT_EQ(nsamp, 40);
    EXPECT_EQ(kit::reasons(logged),
              "ccanada: malloc() error.\nucanada: malloc() error.\nccanada: realloc() error.\n"
              "ucanada: realloc() error.\nccanada: realloc() error.\n");
}

TEST(Ucanada, RefusesWhatTheKeysDoNotFit) {
    const Bytes good = packed(Samples(21, 7));
    Bytes longer = good, wider = good;
    longer.resize(good.size() + 4, 9);
    wider[1] = 1;  // the last group takes a byte more
    const Samples expected(21, 7);
    for (const auto version : versions()) {
        Forced forced(version);
        EXPECT_EQ(unpacked(longer, 20), expected) << "four spare bytes";
        longer.push_back(9);
        unpacked(longer, 20, kTooBig);
        longer.pop_back();
        unpacked(wider, 20, kTooSmall);
        unpacked(good, 40, kTooSmall);
        unpacked(good, INT_MAX / 20 * 20, kTooSmall);
        unpacked(good, 21, "ucanada: nsamp not a multiple of 20.\n");
        unpacked({1, 2, 3, 4, 5}, 20, kTooShort);
        unpacked({1, 2, 3, 4, 5}, 0, kTooShort);
        unpacked(good, 0);
    }
    Logged logged;
    Grown<int32_t> buffer;
    int nsamp = 20;
    EXPECT_EQ(ucanada(nullptr, 100, &buffer.items, &nsamp, &buffer.size), -1);
    EXPECT_EQ(kit::reasons(logged), kTooShort);
}

TEST(Ucanada, CutAnywhereIsRefused) {
    const Bytes whole = packed(kit::series(kit::Kind::kSwell, 221));
    for (const auto version : versions()) {
        Forced forced(version);
        for (size_t length = 0; length < whole.size(); ++length)
            unpacked({whole.begin(), whole.begin() + static_cast<long>(length)}, 220,
                     length < 6 ? kTooShort : kTooSmall);
    }
}

// A block costs 360 bits with the flag, 640 without, and 16 more before the next one; 48 are spent
// at the start.
TEST(Ucanada, EstimatesAnUnknownCountCoarsely) {
    struct Row {
        size_t bytes;
        bool flag;
        int nsamp;
        const char* reason;
    };
    const Row rows[] = {
        {50, true, 0, ""},       {51, true, 0, kTooSmall},  {85, false, 0, ""},
        {86, false, 0, kTooBig}, {86, false, -40, kTooBig}, {8, true, 0, ""},
    };
    for (const auto& [bytes, flag, nsamp, reason] : rows) {
        Bytes data(bytes);
        if (flag) data[0] = 0xFF;
        unpacked(data, nsamp, reason);
    }
    // The first flagged block of 51 bytes is taken for one: here it is one.
    Samples differences(20);
    for (size_t i = 0; i < 20; ++i) differences[i] = i < 16 ? 1 << 14 : 1 << 18;
    const Samples samples = integrated(differences);
    const Bytes one = packed(samples);
    ASSERT_EQ(one.size(), 2 + 4 + 4 * 8 + 10U);
    EXPECT_EQ(unpacked(one, 0), Samples{});  // 48 bytes: below the estimate of a block
    Bytes spare = one;
    spare.resize(51);
    EXPECT_EQ(unpacked(spare, 0), samples);
}

// What ucanada_anyway makes of bytes that end at an unmapped page: as many samples as it tells, and
// one more when the data are not cut.
struct Rescued {
    Samples samples;
    int fault;
    bool operator==(const Rescued&) const = default;
};

Rescued rescued(const Bytes& bytes, int nsamp) {
    Logged logged;
    kit::GuardedBytes guarded(bytes);
    Grown<int32_t> buffer;
    int fault = -7;
    const int count = ucanada_anyway(guarded.bytes(), static_cast<int>(bytes.size()), &buffer.items,
                                     &nsamp, &buffer.size, &fault);
    EXPECT_EQ(count, nsamp);
    EXPECT_EQ(logged.text(), "");
    if (buffer.items == nullptr) return {{}, fault};
    EXPECT_EQ(buffer.size, 4 * count + 4);
    return {{buffer.items, buffer.items + count + (fault == UCANADA_CUT ? 0 : 1)}, fault};
}

TEST(UcanadaAnyway, DeliversTheValuesThatAreWhole) {
    const Samples samples = step_of(17);
    const Bytes whole = kGolden[4].bytes;
    // By the number of bytes: keys, first sample, then values of 4 bits, and of 6 in group 2.
    const size_t counts[] = {0, 0, 0, 0, 0, 0, 1, 3, 5, 7, 9, 10, 11, 13, 15, 17, 19, 21};
    for (size_t length = 0; length <= whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
        const Samples expected(samples.begin(),
                               samples.begin() + static_cast<long>(counts[length]));
        const int fault = length < whole.size() ? UCANADA_CUT : UCANADA_GOOD;
        EXPECT_EQ(rescued(cut, 20), (Rescued{expected, fault})) << length;
    }
}

TEST(UcanadaAnyway, TellsWhatIsWrong) {
    const Samples samples = step_of(1 << 20);
    const Bytes whole = packed(samples);
    const auto longer = [&](size_t more) {
        Bytes bytes = whole;
        bytes.resize(whole.size() + more);
        return bytes;
    };
    const struct {
        Bytes bytes;
        int nsamp;
        Rescued expected;
    } rows[] = {
        {whole, 0, {samples, UCANADA_GOOD}},
        {longer(4), -1, {samples, UCANADA_GOOD}},
        {longer(5), 0, {{}, UCANADA_BAD_COUNT}},
        {longer(4), 20, {samples, UCANADA_GOOD}},
        {longer(5), 20, {samples, UCANADA_SPARE_BYTES}},
        {longer(5), 39, {samples, UCANADA_BAD_COUNT}},
        {whole, INT_MAX, {{}, UCANADA_BAD_COUNT}},
        {whole, INT_MAX / 20 * 20, {{}, UCANADA_CUT}},
        {{0, 0, 0, 9}, 0, {{9}, UCANADA_GOOD}},
        {{0, 0, 0}, 0, {{}, UCANADA_BAD_COUNT}},
    };
    for (const auto& [bytes, nsamp, expected] : rows)
        EXPECT_EQ(rescued(bytes, nsamp), expected) << bytes.size() << ' ' << nsamp;
    EXPECT_STREQ(ucanada_reason(UCANADA_CUT), "too few bytes for the keys");
    for (const int unknown : {-1, 4}) EXPECT_STREQ(ucanada_reason(unknown), "unknown fault");
    Logged logged;
    Grown<int32_t> buffer;
    int nsamp = 20, fault;
    EXPECT_EQ(ucanada_anyway(nullptr, 9, &buffer.items, &nsamp, &buffer.size, &fault), -1);
    EXPECT_EQ(ucanada_anyway(whole.data(), -1, &buffer.items, &nsamp, &buffer.size, &fault), -1);
    morva::fail_allocation(1, false);
    EXPECT_EQ(ucanada_anyway(whole.data(), 26, &buffer.items, &nsamp, &buffer.size, &fault), -1);
    EXPECT_EQ(nsamp, 20);
    EXPECT_EQ(kit::reasons(logged),
              "ucanada_anyway: no data: 9 bytes\nucanada_anyway: no data: -1 bytes\n"
              "ucanada_anyway: malloc() error.\n");
}

TEST(UcanadaAnyway, CutAnywhereTheSamplesBeforeAreRight) {
    const Samples samples = kit::series(kit::Kind::kSwell, 221);
    const Bytes whole = packed(samples);
    for (const auto version : versions()) {
        Forced forced(version);
        for (size_t length = 0; length < whole.size(); ++length) {
            Rescued part = rescued({whole.begin(), whole.begin() + static_cast<long>(length)}, 220);
            ASSERT_LE(part.samples.size(), 220U);
            ASSERT_TRUE(std::equal(part.samples.begin(), part.samples.end(), samples.begin()));
        }
        EXPECT_EQ(rescued(whole, 220), (Rescued{samples, UCANADA_GOOD}));
    }
}

}  // namespace
