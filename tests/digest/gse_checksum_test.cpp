#include "digest/gse_checksum.hpp"

#include <climits>

#include "codec/codec_kit.hpp"
#include "morva/cm6.h"

namespace {

using kit::Samples;

int32_t checksum(const Samples& samples, int32_t start = 0) {
    int32_t sum = start;
    EXPECT_EQ(gse_checksum(samples.data(), static_cast<int>(samples.size()), &sum), 0);
    return sum;
}

TEST(GseChecksum, IsTheKnownOneForSmallSeries) {
    struct Row {
        Samples samples;
        int32_t start;
        int32_t sum;
        const char* why;
    };
    const Row rows[] = {
        {{0, 1, 2, 3}, 0, 6, "plain sum"},
        {{-5, 2}, 0, 3, "absolute value of the sum"},
        {{1}, 5, 6, "goes on from the number given"},
        {{}, -7, 7, "no samples"},
        {{}, INT_MAX, INT_MAX, "no samples: no reduction either"},
        {{0}, INT_MAX, 47483647, "a sum that came in large is reduced"},
        {{99999999}, 0, 99999999, "the largest sum"},
        {{100000000}, 0, 0, "reduced before it is added"},
        {{99999999, 1}, 0, 0, "the sum is reduced"},
        {{-99999999, -2}, 0, 1, "keeping its sign"},
        {{INT_MIN}, 0, 47483648, "the most negative sample"},
        {{INT_MAX}, 0, 47483647, "the largest sample"},
        // 60000000 + 60000000 is reduced to 20000000 before 90000000 is taken away; the plain total
        // of 30000000 would be another.
        {{60000000, 60000000, -90000000}, 0, 70000000, "each partial sum is reduced"},
    };
    for (const Row& row : rows) EXPECT_EQ(checksum(row.samples, row.start), row.sum) << row.why;
}

TEST(GseChecksum, IsTheSameInBlocksAsStepByStep) {
    std::mt19937 random(3);
    for (int round = 0; round < 4000; ++round) {
        // From values that never reach the limit to values that pass it at every step.
        Samples samples = kit::series(kit::Kind::kFull, random() % 300, random());
        const auto shift = random() % 30;
        for (auto& x : samples) x >>= shift;
        const auto start = static_cast<int32_t>(random()) >> (random() % 32);
        const int32_t expected =
            morva::add_to_checksum_plain(start, samples.data(), samples.size());
        for (const auto version : kit::versions()) {
            kit::Forced forced(version);
            ASSERT_EQ(morva::add_to_checksum(start, samples.data(), samples.size()), expected);
        }
    }
}

}  // namespace
