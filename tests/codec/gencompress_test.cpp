#include "morva/gencompress.h"

#include <climits>

#include "base/memory.hpp"
#include "codec/packed_kit.hpp"

namespace {

using kit::Bytes;
using kit::Forced;
using kit::Grown;
using kit::Logged;
using kit::reasons;
using kit::Samples;
using kit::versions;

Bytes packed(const Samples& samples, int block = 0) {
    Grown<unsigned char> buffer;
    int nbytes = -7;
    EXPECT_EQ(gencompress(&buffer.items, &nbytes, &buffer.size, samples.data(),
                          static_cast<int>(samples.size()), block),
              0);
    EXPECT_LE(nbytes, buffer.size);
    return {buffer.items, buffer.items + nbytes};
}

// The samples of bytes that end at an unmapped page; nothing when genuncompress refuses them, for
// the fault given.
Samples unpacked(const Bytes& bytes, const std::string& fault = "") {
    Logged logged;
    kit::GuardedBytes guarded(bytes);
    Grown<int32_t> buffer;
    int nsamp = -7;
    const int result = genuncompress(&buffer.items, &nsamp, &buffer.size, guarded.bytes(),
                                     static_cast<int>(bytes.size()));
    EXPECT_EQ(reasons(logged),
              fault.empty() ? "" : "genuncompress: illegal input data: " + fault + "\n");
    EXPECT_EQ(result, fault.empty() ? 0 : -1);
    if (result != 0) {
        EXPECT_EQ(nsamp, -7);
        EXPECT_EQ(buffer.items, nullptr);
        return {};
    }
    EXPECT_EQ(buffer.size, std::max(5 * static_cast<int>(bytes.size()), 4 * nsamp));
    return {buffer.items, buffer.items + nsamp};
}

// Worked out by hand from the layout: count, first sample, block size less one, keys, values.
struct Golden {
    const char* what;
    Samples samples;
    int block;
    Bytes bytes;
};
const Golden kGolden[] = {
    {"nothing", {}, 0, {0, 0, 0, 0}},
    {"one sample", {-2}, 0, {0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFE}},
    {"zeros", {0, 0, 0}, 0, {0, 0, 0, 3, 0, 0, 0, 0, 24, 0x00}},
    {"equal samples: differences of no bits", {5, 5, 5}, -9, {0, 0, 0, 3, 0, 0, 0, 5, 24, 0x40}},
    {"samples of two bits: 11 01 10", {0, -1, 1, -2}, 30, {0, 0, 0, 4, 0, 0, 0, 0, 29, 0x02, 0xD8}},
    {"differences of three bits: 011 110",
     {100, 103, 101},
     0,
     {0, 0, 0, 3, 0, 0, 0, 100, 24, 0x43, 0x78}},
    {"a ramp: three differences of 11 bits",
     {0, 1000, 2000, 3000},
     256,
     {0, 0, 0, 4, 0, 0, 0, 0, 255, 0x4B, 0x7D, 0x0F, 0xA1, 0xF4, 0x00}},
    {"a ramp in blocks of one: a sample, then second differences of no bits",
     {0, 1000, 2000, 3000},
     1,
     {0, 0, 0, 4, 0, 0, 0, 0, 0, 0x0B, 0x80, 0x80, 0x7D, 0x00}},
    {"a full width", {0, INT_MIN}, 1000, {0, 0, 0, 2, 0, 0, 0, 0, 255, 0x20, 0x80, 0, 0, 0}},
    {"blocks that share a byte: 011 001, then 10",
     {0, 3, 1, -2, -2},
     2,
     {0, 0, 0, 5, 0, 0, 0, 0, 1, 0x03, 0x02, 0x66, 0x80}},
};

TEST(Gencompress, WritesTheDocumentedBytes) {
    for (const auto version : versions()) {
        Forced forced(version);
        for (const auto& [what, samples, block, bytes] : kGolden) {
            EXPECT_EQ(packed(samples, block), bytes) << what;
            EXPECT_EQ(unpacked(bytes), samples) << what;
        }
    }
}

// A series whose samples, differences or second differences are random numbers of a width.
Samples random_series(int order, int width, size_t count, unsigned seed) {
    std::mt19937 random(seed);
    uint32_t sum[3] = {};
    Samples samples(count);
    for (size_t i = 1; i < count; ++i) {
        const uint32_t value =
            width == 0 ? 0 : static_cast<uint32_t>(static_cast<int32_t>(random()) >> (32 - width));
        sum[0] = order == 0 ? value : sum[0] + (sum[1] = order == 1 ? value : sum[1] + value);
        samples[i] = static_cast<int32_t>(sum[0]);
    }
    return samples;
}

TEST(Gencompress, EveryWidthOrderAndBlockSizeComesBack) {
    for (int order = 0; order < 3; ++order)
        for (int width = 0; width <= 32; ++width)
            for (const int block : {1, 3, 7, 8, 9, 25, 64, 100, 255, 256}) {
                const Samples samples = random_series(order, width, 600, 40U * width + block);
                std::vector<Bytes> results;
                for (const auto version : versions()) {
                    Forced forced(version);
                    results.push_back(packed(samples, block));
                    ASSERT_EQ(results.back(), results.front());
                    ASSERT_EQ(unpacked(results.back()), samples)
                        << order << ' ' << width << ' ' << block;
                }
                ASSERT_LE(results[0].size(), (9 + 599 / block + 1 + 599 * width / 8 + 1U));
                if (block < 100 || order == 0 || width == 0 || width > 16) continue;
                EXPECT_EQ(results[0][9 + 1], order << 6 | width) << "key of the second block";
            }
}

TEST(Gencompress, SeriesOfEveryKindAndLengthComeBack) {
    constexpr int kBlocks[] = {0, 1, 7, 16, 100, 256};
    for (size_t length = 0; length <= 2000; length += length < 300 ? 1 : 7) {
        for (const auto& [what, samples] : kit::all_series(length)) {
            std::vector<Bytes> results;
            for (const auto version : versions()) {
                Forced forced(version);
                results.push_back(packed(samples, kBlocks[length % std::size(kBlocks)]));
                ASSERT_EQ(results.back(), results.front());
                ASSERT_EQ(unpacked(results.back()), samples) << what << ' ' << length;
            }
        }
    }
}

TEST(Gencompress, BuffersAreReusedAndGrow) {
    Grown<unsigned char> buffer;
    Grown<int32_t> back;
    int nbytes, nsamp;
    for (const size_t count : {20U, 900U, 50U}) {
        const Samples samples = kit::series(kit::Kind::kFull, count);
        ASSERT_EQ(gencompress(&buffer.items, &nbytes, &buffer.size, samples.data(),
                              static_cast<int>(count), 0),
                  0);
        ASSERT_EQ(genuncompress(&back.items, &nsamp, &back.size, buffer.items, nbytes), 0);
        EXPECT_EQ(Samples(back.items, back.items + nsamp), samples);
    }
    EXPECT_EQ(buffer.size, 9 + 36 + 4 * 900 + 8);
    EXPECT_EQ(back.size, 4 * 900);
    int32_t own = 5;
    Grown<int32_t> fresh;
    fresh.items = &own;  // of size 0: not to be lost
    ASSERT_EQ(genuncompress(&fresh.items, &nsamp, &fresh.size, buffer.items, nbytes), 0);
    EXPECT_NE(fresh.items, &own);
    EXPECT_EQ(fresh.size, 5 * nbytes);
}

TEST(Gencompress, FailuresLeaveTheBuffersAsTheyWere) {
    const Samples samples(41, 5);
    const Bytes bytes = packed(samples);
    Logged logged;
    Grown<unsigned char> buffer;
    Grown<int32_t> back;
    int nbytes = -7, nsamp = -7;
    for (const int size : {0, 4}) {
        if (size > 0) {
            buffer.items = static_cast<unsigned char*>(std::malloc(4));
            back.items = static_cast<int32_t*>(std::malloc(4));
            buffer.size = back.size = size;
        }
        const auto* const items = buffer.items;
        morva::fail_allocation(1, false);
        EXPECT_EQ(gencompress(&buffer.items, &nbytes, &buffer.size, samples.data(), 41, 0), -1);
        morva::fail_allocation(1, false);
        EXPECT_EQ(genuncompress(&back.items, &nsamp, &back.size, bytes.data(),
                                static_cast<int>(bytes.size())),
                  -1);
        EXPECT_EQ(buffer.items, items);
        EXPECT_EQ(buffer.size, size);
        EXPECT_EQ(back.size, size);
    }
    EXPECT_EQ(gencompress(&buffer.items, &nbytes, &buffer.size, samples.data(), INT_MAX, 0), -1);
    EXPECT_EQ(gencompress(&buffer.items, &nbytes, &buffer.size, samples.data(), -1, 0), -1);
    EXPECT_EQ(nbytes, -7);
    EXPECT_EQ(nsamp, -7);
    EXPECT_EQ(reasons(logged),
              "gencompress: malloc() error.\ngenuncompress: malloc() error.\n"
              "gencompress: realloc() error.\ngenuncompress: malloc() error.\n"
              "gencompress: realloc() error.\ngencompress: can't compress -1 samples\n");
}

TEST(Genuncompress, RefusesWhatIsNotWhole) {
    const std::pair<Bytes, const char*> rows[] = {
        {{}, "no header"},
        {{0, 0, 0}, "no header"},
        {{0, 0, 0, 0, 0}, "bytes behind the data"},
        {{0, 0, 0, 1, 9, 9, 9}, "cut in the header"},
        {{0, 0, 0, 1, 9, 9, 9, 9, 9}, "bytes behind the data"},
        {{0, 0, 0, 2, 9, 9, 9, 9}, "cut in the header"},
        {{0, 0, 0, 2, 9, 9, 9, 9, 0}, "cut in the keys"},
        {{0x80, 0, 0, 0, 9, 9, 9, 9, 255, 0}, "more samples than an int can count"},
        {{0x7F, 0xFF, 0xFF, 0xFF, 9, 9, 9, 9, 255, 0}, "cut in the keys"},
        {{0, 0, 0, 3, 9, 9, 9, 9, 0, 0, 0xC0}, "not a key"},
        {{0, 0, 0, 3, 9, 9, 9, 9, 0, 33, 0}, "not a key"},
        {{0, 0, 0, 3, 9, 9, 9, 9, 1, 5, 0xFF}, "cut in the data"},
        {{0, 0, 0, 3, 9, 9, 9, 9, 1, 4, 0xFF, 0}, "bytes behind the data"},
    };
    for (const auto& [bytes, fault] : rows) unpacked(bytes, fault);
    Logged logged;
    Grown<int32_t> buffer;
    int nsamp = 0;
    const Bytes zeros(4);
    EXPECT_EQ(genuncompress(&buffer.items, &nsamp, &buffer.size, nullptr, 100), -1);
    EXPECT_EQ(genuncompress(&buffer.items, &nsamp, &buffer.size, zeros.data(), -4), -1);
}

TEST(Genuncompress, CutAnywhereIsRefused) {
    const Bytes whole = packed(kit::series(kit::Kind::kSwell, 221));
    for (size_t length = 0; length < whole.size(); ++length)
        unpacked({whole.begin(), whole.begin() + static_cast<long>(length)},
                 length < 4       ? "no header"
                 : length < 9     ? "cut in the header"
                 : length < 9 + 9 ? "cut in the keys"
                                  : "cut in the data");
}

// Any key that fits the size is decoded, also one that the encoder would not choose.
TEST(Genuncompress, VersionsAgreeOnDamagedBytes) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        const int block = 1 + static_cast<int>(random() % 256);
        Bytes bytes = packed(kit::series(kit::Kind::kSwell, 2 + random() % 700, random()), block);
        for (auto changes = random() % 4; changes > 0; --changes)
            bytes[8 + random() % (bytes.size() - 8)] ^= static_cast<unsigned char>(random());
        kit::GuardedBytes guarded(bytes);
        std::vector<Samples> results;
        for (const auto version : versions()) {
            Forced forced(version);
            Logged logged;
            Grown<int32_t> buffer;
            int nsamp = 0;
            genuncompress(&buffer.items, &nsamp, &buffer.size, guarded.bytes(),
                          static_cast<int>(bytes.size()));
            results.emplace_back(buffer.items, buffer.items + nsamp);
            ASSERT_EQ(results.back(), results.front()) << round;
        }
    }
}

struct Rescued {
    Samples samples;
    int fault;
    bool operator==(const Rescued&) const = default;
};

Rescued rescued(const Bytes& bytes) {
    Logged logged;
    kit::GuardedBytes guarded(bytes);
    Grown<int32_t> buffer;
    int nsamp = -7, fault = -7;
    const int count = genuncompress_anyway(&buffer.items, &nsamp, &buffer.size, guarded.bytes(),
                                           static_cast<int>(bytes.size()), &fault);
    EXPECT_EQ(count, nsamp);
    EXPECT_EQ(logged.text(), "");
    EXPECT_GE(buffer.size, 4 * count);
    return {{buffer.items, buffer.items + count}, fault};
}

TEST(GenuncompressAnyway, DeliversWhatIsWhole) {
    const Bytes shared = {0, 0, 0, 5, 0, 0, 0, 0, 1, 0x03, 0x02, 0x66, 0x80};  // 0 3 1 -2 -2
    const auto with = [&](size_t at, unsigned char byte) {
        Bytes bytes = shared;
        bytes.resize(std::max(at + 1, bytes.size()));
        bytes[at] = byte;
        return bytes;
    };
    const auto cut = [&](long length) { return Bytes(shared.begin(), shared.begin() + length); };
    const std::pair<Bytes, Rescued> rows[] = {
        {shared, {{0, 3, 1, -2, -2}, GENUNCOMPRESS_GOOD}},
        {{0, 0, 0, 0}, {{}, GENUNCOMPRESS_GOOD}},
        {{0, 0, 0, 1, 0, 0, 0, 9}, {{9}, GENUNCOMPRESS_GOOD}},
        {with(13, 0), {{0, 3, 1, -2, -2}, GENUNCOMPRESS_SPARE_BYTES}},
        {cut(12), {{0, 3, 1, -2}, GENUNCOMPRESS_CUT_DATA}},
        {cut(11), {{0}, GENUNCOMPRESS_CUT_DATA}},
        {with(10, 0xC0), {{0, 3, 1}, GENUNCOMPRESS_BAD_KEY}},
        {with(9, 33), {{0}, GENUNCOMPRESS_BAD_KEY}},
        {cut(10), {{0}, GENUNCOMPRESS_CUT_KEYS}},
        {cut(8), {{0}, GENUNCOMPRESS_CUT_HEADER}},
        {cut(7), {{}, GENUNCOMPRESS_CUT_HEADER}},
        {with(0, 0x80), {{0}, GENUNCOMPRESS_BAD_COUNT}},
        {cut(3), {{}, GENUNCOMPRESS_NO_HEADER}},
    };
    for (const auto& [bytes, expected] : rows)
        EXPECT_EQ(rescued(bytes), expected) << genuncompress_reason(expected.fault);
    EXPECT_STREQ(genuncompress_reason(GENUNCOMPRESS_SPARE_BYTES), "bytes behind the data");
    for (const int unknown : {-1, 8}) EXPECT_STREQ(genuncompress_reason(unknown), "unknown fault");
    Logged logged;
    Grown<int32_t> buffer;
    int nsamp = -7, fault;
    EXPECT_EQ(genuncompress_anyway(&buffer.items, &nsamp, &buffer.size, nullptr, 9, &fault), -1);
    EXPECT_EQ(genuncompress_anyway(&buffer.items, &nsamp, &buffer.size, shared.data(), -1, &fault),
              -1);
    morva::fail_allocation(1, false);
    EXPECT_EQ(genuncompress_anyway(&buffer.items, &nsamp, &buffer.size, shared.data(), 13, &fault),
              -1);
    EXPECT_EQ(nsamp, -7);
    EXPECT_EQ(reasons(logged),
              "genuncompress_anyway: no data: 9 bytes\ngenuncompress_anyway: no data: -1 bytes\n"
              "genuncompress_anyway: malloc() error.\n");
}

TEST(GenuncompressAnyway, CutAnywhereTheSamplesBeforeAreRight) {
    const Samples samples = kit::series(kit::Kind::kSwell, 221);
    const Bytes whole = packed(samples, 7);
    for (const auto version : versions()) {
        Forced forced(version);
        for (size_t length = 8; length < whole.size(); ++length) {
            const Rescued part =
                rescued({whole.begin(), whole.begin() + static_cast<long>(length)});
            ASSERT_GE(part.samples.size(), 1U);
            ASSERT_LT(part.samples.size(), 221U);
            ASSERT_TRUE(std::equal(part.samples.begin(), part.samples.end(), samples.begin()));
        }
    }
}

}  // namespace
