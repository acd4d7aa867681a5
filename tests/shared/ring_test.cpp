#include <fcntl.h>
#include <sys/wait.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <memory>
#include <random>
#include <thread>

#include "base/simd.hpp"
#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using kit::captured;
using kit::Logged;
using kit::read_file;
using kit::TempDir;
using kit::write_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kNull = -99999999.0;

struct Close {
    void operator()(Ring* ring) const { closering(ring); }
};
using Opened = std::unique_ptr<Ring, Close>;
using Points = std::vector<std::pair<double, double>>;

// docs/formats/ring.md works this example out byte by byte: two slots, one point.
constexpr char kGolden[] =
    "newringb"
    "probe\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
    "\x01\0\0\0"
    "\x01\0\0\0"
    "\x02\0\0\0"
    "\x06\0\0\0"
    "\0\0\0\0\0\0\x4e\x40"
    "\0\0\0\xfc\x83\xd7\x97\xc1"
    "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\xf0\x3f\0\0\0\0\0\0\0\x40";
const std::string kGoldenBytes(kGolden, sizeof kGolden - 1);
enum { kIndex = 72, kCount = 76, kSize = 80, kSlots = 104 };

class RingFile : public testing::Test {
  protected:
    const char* path() const { return path_.c_str(); }
    Opened open(int size, int flags = 0) { return Opened(openring(path(), nullptr, size, flags)); }
    // A new ring without breaks that holds the points, the oldest first.
    Opened ring_of(const Points& points, int size = 100, double gap = 0) {
        Opened ring = fresh(size, gap);
        for (const auto& [time, value] : points) addring(ring.get(), time, value);
        return ring;
    }
    Opened fresh(int size, double gap = 0) {
        ::unlink(path());
        Opened ring = open(size);
        setring(ring.get(), gap, kNull);
        return ring;
    }
    // All points, the newest first.
    static Points points(const Opened& ring) {
        Points all;
        double time, value;
        for (int i = 0; getring(ring.get(), i, &time, &value) == 0; ++i)
            all.emplace_back(time, value);
        return all;
    }
    TempDir dir_;
    std::string path_ = dir_.file("ring");
    Logged logged_;
};

TEST_F(RingFile, IsWrittenByteForByte) {
    ASSERT_EQ(newring(path(), "probe", 2, 7), 0);
    std::string empty = kGoldenBytes;
    empty[kIndex] = empty[kCount] = 0;
    std::fill(empty.begin() + kSlots, empty.end(), '\0');
    EXPECT_EQ(read_file(path_), empty);
    const Opened ring = open(100);
    EXPECT_EQ(pushring(ring.get(), 1.0, 2.0), 0);
    EXPECT_EQ(read_file(path_), kGoldenBytes);
    EXPECT_EQ(newring(path(), nullptr, 1, 0), 0) << "an existing file is written anew";
    EXPECT_EQ(std::filesystem::file_size(path_), 120u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 1);
}

TEST_F(RingFile, IsOpenedWithWhatItSays) {
    write_file(path_, kGoldenBytes);
    char id[64];
    std::memset(id, 'x', sizeof id);
    const Opened ring(openring(path(), id, 100, RING_READONLY));
    ASSERT_NE(ring, nullptr);
    EXPECT_EQ(std::string(id, sizeof id), "probe" + std::string(59, '\0'));
    EXPECT_STREQ(idring(ring.get()), "probe");
    EXPECT_EQ(filenamering(ring.get()), path_);
    EXPECT_EQ(ring->length, 136);
    EXPECT_THAT(points(ring), ElementsAre(Pair(1, 2)));
    EXPECT_EQ(pushring(ring.get(), 5, 5), -1);
    EXPECT_EQ(cramring(ring.get(), "collapse", 5, 5), -1);
    EXPECT_EQ(addring(ring.get(), 5, 5), -1);
    EXPECT_EQ(setring(ring.get(), 5, 5), -1);
    EXPECT_EQ(logged_.text(), "");
    EXPECT_EQ(read_file(path_), kGoldenBytes);
}

TEST_F(RingFile, KeepsAnIdOfAllItsCharacters) {
    char id[65] = {};
    std::memset(id, 'i', 64);
    Opened(openring(path(), id, 1, 0)).reset();
    char back[64] = {};
    const Opened ring(openring(path(), back, 1, 0));
    EXPECT_EQ(std::memcmp(back, id, 64), 0);
    EXPECT_EQ(countring(ring.get()), 0);
}

TEST_F(RingFile, IsRemovedByName) {
    Ring* ring = openring(path(), nullptr, 3, 0);
    EXPECT_EQ(rmring(ring), 0);
    EXPECT_FALSE(std::filesystem::exists(path_));
    ring = openring(path(), nullptr, 3, 0);
    ::unlink(path());
    EXPECT_EQ(rmring(ring), -1);
}

TEST_F(RingFile, NamesWhatCannotBeMadeOrOpened) {
    const std::string nowhere = dir_.file("no/where"), below = path_ + "/below";
    EXPECT_EQ(openring(path(), nullptr, 3, RING_READONLY), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open ringbuffer " + path_ + "."));
    EXPECT_EQ(openring(nowhere.c_str(), nullptr, 3, 0), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open new ring buffer " + nowhere));
    EXPECT_EQ(newring(path(), "", 0, 0), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open new ring buffer " + path_));
    EXPECT_EQ(newring("/dev/full", "", 3, 0), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't close new ring buffer /dev/full"));
    EXPECT_EQ(newring("/dev/full", "", 30000, 0), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't write new ring buffer data /dev/full"));
    write_file(path_, "");
    EXPECT_EQ(openring(path(), nullptr, 3, 0), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("failed to mmap ringbuffer " + path_));
    EXPECT_EQ(openring(below.c_str(), nullptr, 3, 0), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("ring buffer file '" + below + "' does not exist"));
}

TEST_F(RingFile, IsNotOpenedForWritingUnderALock) {
    Opened(open(3)).reset();
    int ready[2], done[2];
    ASSERT_EQ(::pipe(ready) | ::pipe(done), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(path(), O_RDWR);
        char byte = static_cast<char>(::lockf(fd, F_LOCK, 0));
        (void)!::write(ready[1], &byte, 1);
        ::close(done[1]);
        (void)!::read(done[0], &byte, 1);
        ::_exit(0);
    }
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    Ring* ring = nullptr;
    const std::string complaint = captured(2, [&] { ring = openring(path(), nullptr, 3, 0); });
    EXPECT_EQ(ring, nullptr);
    EXPECT_THAT(complaint, HasSubstr("Can't lock '" + path_ + "' for exclusive use\n"));
    EXPECT_NE(open(3, RING_READONLY), nullptr);
    for (int fd : {ready[0], ready[1], done[0], done[1]}) ::close(fd);
    ::waitpid(child, nullptr, 0);
    EXPECT_NE(open(3), nullptr);
}

TEST_F(RingFile, ThatDoesNotFitItsLengthIsRefused) {
    const struct {
        const char* why;
        int at;
        int32_t value;
        const char* reason;
    } rows[] = {
        {"another magic", 0, 0x6e, "Bad magic number while trying to read ring buffer.\n"},
        {"no slots", kSize, 0, "its size is below 1"},
        {"fewer than none", kSize, INT32_MIN, "its size is below 1"},
        {"a slot beyond the end", kSize, 3, "it is shorter than its points"},
        {"bytes that wrap round", kSize, INT32_MAX, "it is shorter than its points"},
        {"a point more than slots", kCount, 3, "its count is not within its size"},
        {"less than no point", kCount, -1, "its count is not within its size"},
        {"an index one too high", kIndex, 2, "its index is not within its size"},
        {"a negative index", kIndex, -1, "its index is not within its size"},
    };
    for (const auto& row : rows) {
        std::string bytes = kGoldenBytes;
        std::memcpy(&bytes[static_cast<std::size_t>(row.at)], &row.value, sizeof row.value);
        write_file(path_, bytes);
        const Logged logged;
        for (int flags : {0, RING_READONLY}) EXPECT_EQ(open(2, flags), nullptr) << row.why;
        EXPECT_THAT(logged.text(), HasSubstr(row.reason)) << row.why;
        EXPECT_EQ(read_file(path_), bytes) << row.why;
    }
    for (std::size_t length = 0; length < kGoldenBytes.size(); ++length) {
        write_file(path_, kGoldenBytes.substr(0, length));
        EXPECT_EQ(open(2, RING_READONLY), nullptr) << length << " bytes";
    }
}

// Another process may write into the header at any time.
TEST_F(RingFile, IsReadWithinItsBoundsWhateverItSaysLater) {
    const Opened ring = ring_of({{1, 1}, {2, 2}, {3, 3}}, 3);
    for (const auto& [index, count] :
         {std::pair{-1, 3}, {3, 3}, {0, 4}, {0, -1}, {INT32_MAX, INT32_MAX}}) {
        ring->header->index = index;
        ring->header->count = count;
        ring->header->size = INT32_MAX;
        EXPECT_LE(points(ring).size(), 3u);
        int at;
        EXPECT_LE(maxring(ring.get(), &at, 100), 3);
        EXPECT_EQ(addring(ring.get(), 4, 1), 0);
        EXPECT_EQ(points(ring).front(), std::pair(4.0, 1.0));
    }
}

// ---- storing

TEST_F(RingFile, HoldsTheNewestPoints) {
    const Opened ring = fresh(3);
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(pushring(ring.get(), i, 10 * i), 0);
    EXPECT_THAT(points(ring), ElementsAre(Pair(5, 50), Pair(4, 40), Pair(3, 30)));
    EXPECT_EQ(countring(ring.get()), 3);
    double time = 7, value = 7;
    for (int i : {3, -1, INT32_MAX}) EXPECT_EQ(getring(ring.get(), i, &time, &value), -1);
    EXPECT_EQ(time + value, 14);
    const Opened one = fresh(1);
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(pushring(one.get(), i, i), 0);
    EXPECT_THAT(points(one), ElementsAre(Pair(3, 3)));
}

TEST_F(RingFile, RefusesWhatIsOutOfOrder) {
    const Opened ring = fresh(9);
    const struct {
        double time, value;
        int result;
    } rows[] = {{10, 1, 0}, {9, 2, -2},    {10, 1, -2},   {10, 2, 0},
                {10, 1, 0}, {10, kNan, 0}, {10, kNan, 0}, {kNan, 1, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(pushring(ring.get(), row.time, row.value), row.result)
            << row.time << ' ' << row.value;
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(RingFile, MarksBreaks) {
    const Opened ring = fresh(9, 60);
    pushring(ring.get(), 0, 1);
    EXPECT_EQ(pushring(ring.get(), 100, 2), 0);
    EXPECT_EQ(pushring(ring.get(), 160, 3), 0) << "a step of just the gap is none";
    EXPECT_THAT(points(ring), ElementsAre(Pair(160, 3), Pair(100, 2), Pair(100, kNull),
                                          Pair(0, kNull), Pair(0, 1)));
    setring(ring.get(), 0, kNull);
    EXPECT_EQ(pushring(ring.get(), 1e9, 3), 0);
    EXPECT_EQ(countring(ring.get()), 6);
}

TEST_F(RingFile, CollapsesRunsOfEqualValues) {
    const Opened ring = fresh(20, 60);
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(cramring(ring.get(), "collapse", i, 5), 0);
    EXPECT_THAT(points(ring), ElementsAre(Pair(3, 5), Pair(1, 5)));
    EXPECT_EQ(cramring(ring.get(), "collapse", 3, 5), -2);
    EXPECT_EQ(cramring(ring.get(), "collapse", 4, 6), 0);
    EXPECT_EQ(cramring(ring.get(), "collapse", 5, 5), 0);
    EXPECT_EQ(countring(ring.get()), 4);
    EXPECT_EQ(cramring(ring.get(), "expand", 6, 5), -3);
    EXPECT_THAT(logged_.text(), HasSubstr("unrecognized cramring method 'expand'"));
    EXPECT_EQ(countring(ring.get()), 4);
    EXPECT_EQ(cramring(ring.get(), "expand", 106, 5), 0) << "behind a break";
    EXPECT_EQ(countring(ring.get()), 7);
}

// ---- queries

TEST_F(RingFile, AnswersForSinglePoints) {
    const Opened ring = ring_of({{1, 9}, {2, 4}, {3, kNan}, {4, 7}, {5, 7}, {6, 4}, {7, 4}});
    Ring* r = ring.get();
    EXPECT_EQ(findring(r, 7, 100), 2);
    EXPECT_EQ(findring(r, 7, 2), -1) << "the early end is outside";
    EXPECT_EQ(findring(r, 7, 2.5), 2);
    EXPECT_EQ(findring(r, kNan, 100), -1);
    EXPECT_EQ(tallyring(r, 2.5), 2);
    EXPECT_EQ(tallyring(r, 100), 6);
    EXPECT_EQ(tallyring(r, 0), -1);
    EXPECT_EQ(changedring(r, 100), 2);
    EXPECT_EQ(changedring(r, 1.5), 2) << "out of the span on purpose";
    EXPECT_EQ(changedring(r, 1), 0) << "an equal point outside of the span comes first";
    const struct {
        double time, value;
        int result;
        double at, found;
    } rows[] = {{5, 0, 0, 4, 7}, {4.5, 0, 0, 4, 7}, {1, 0, -1, 1, 0}, {7, 0, -1, 7, 0}};
    for (const auto& row : rows) {
        double time = row.time, value = row.value;
        EXPECT_EQ(valring(r, &time, &value), row.result) << row.time;
        EXPECT_EQ(std::pair(time, value), std::pair(row.at, row.found)) << row.time;
    }
    double time = 4.5, value = 0;
    EXPECT_EQ(nearbymaxring(r, &time, &value, 1.5), 0);
    EXPECT_EQ(std::pair(time, value), std::pair(5.0, 7.0)) << "the newest of equals";
    time = 20;
    EXPECT_EQ(nearbymaxring(r, &time, &value, 1), -1);
    EXPECT_EQ(std::pair(time, value), std::pair(20.0, -9e38));
}

TEST_F(RingFile, AnswersWithoutPoints) {
    const Opened ring = fresh(3);
    Ring* r = ring.get();
    int i = 7, n = 7;
    double time = 7, value = 7, a = 7, b = 7, c = 7;
    EXPECT_EQ(maxring(r, &i, 100), -kInfinity);
    EXPECT_EQ(i, -1);
    EXPECT_EQ(minring(r, nullptr, 100), kInfinity);
    EXPECT_EQ(meanring(r, &n, &a, &b, 100), -1);
    EXPECT_THAT(std::vector({n * 1.0, a, b, avgring(r, 100)}), testing::Each(0));
    EXPECT_EQ(linearfitring(r, &n, &a, &b, &c, 100), -1);
    EXPECT_EQ(valring(r, &time, &value), -1);
    EXPECT_EQ(nearbymaxring(r, &time, &value, 1), -1);
    EXPECT_EQ(findring(r, 0, 100), -1);
    EXPECT_EQ(tallyring(r, 100), -1);
    EXPECT_EQ(changedring(r, 100), 0);
    const double median = 0.5;
    EXPECT_EQ(quantilesring(r, &median, &value, 1, 100), 0);
    EXPECT_TRUE(std::isnan(value));
}

TEST_F(RingFile, LeavesBreaksOutOfStatistics) {
    const Points marked = {{1, 5}, {2, kNull}, {3, kNull}, {3, 8}, {4, 1}, {5, 8}};
    const Opened ring = ring_of(marked, 100, 60);
    Ring* r = ring.get();
    int i, n;
    double mean, deviation;
    EXPECT_EQ(maxring(r, &i, 100), 8);
    EXPECT_EQ(i, 0) << "the newest of equals";
    EXPECT_EQ(minring(r, &i, 100), 1);
    EXPECT_EQ(i, 1);
    EXPECT_EQ(minring(r, &i, 1), 8) << "the early end is outside";
    EXPECT_EQ(meanring(r, &n, &mean, &deviation, 1), 0);
    EXPECT_EQ(n, 2) << "the early end is inside";
    EXPECT_EQ(mean, 4.5);
    EXPECT_EQ(meanring(r, &n, &mean, &deviation, 0), 0);
    EXPECT_EQ(deviation, 0);
    EXPECT_EQ(tallyring(r, 100), 2);
    EXPECT_EQ(avgring(r, 100), 5.5);
    const double fractions[] = {0, 0.5, 0.25, 1, -0.1};
    double values[5];
    EXPECT_EQ(quantilesring(r, fractions, values, 5, 100), 4);
    EXPECT_THAT(std::vector(values, values + 4), ElementsAre(1, 6.5, 4, 8));
    EXPECT_TRUE(std::isnan(values[4]));
    setring(r, 0, kNull);
    EXPECT_EQ(minring(r, &i, 100), kNull);
    EXPECT_EQ(i, 3);
    EXPECT_EQ(tallyring(r, 100), 5);
}

TEST_F(RingFile, FitsALine) {
    const double epoch = 1.4e9;
    Opened ring = ring_of({{epoch, 3}, {epoch + 1, 5}, {epoch + 2, 7}, {epoch + 4, 11}});
    int n;
    double slope, intercept, r;
    EXPECT_EQ(linearfitring(ring.get(), &n, &slope, &intercept, &r, 100), 0);
    EXPECT_EQ(n, 4);
    EXPECT_DOUBLE_EQ(slope, 2);
    EXPECT_DOUBLE_EQ(intercept, 3 - 2 * epoch);
    EXPECT_DOUBLE_EQ(r, 1);
    ring = ring_of({{epoch, 3}, {epoch, 5}, {epoch, 5.5}});
    EXPECT_EQ(linearfitring(ring.get(), &n, &slope, &intercept, &r, 100), 0);
    EXPECT_THAT(std::vector({slope, intercept, r}), ElementsAre(kInfinity, kInfinity, 0));
    Points alike = {{2e5, kNull}};
    while (alike.size() < 50) alike.insert(alike.begin(), {0.1, 1.7 * alike.size()});
    ring = ring_of(alike, 100, 60);
    EXPECT_EQ(linearfitring(ring.get(), &n, &slope, &intercept, &r, 1e9), 0);
    EXPECT_THAT(std::vector({n * 1.0, slope, intercept, r}),
                ElementsAre(49, kInfinity, kInfinity, 0))
        << "equal times far from the newest point's, which marks a break";
    ring = ring_of({{1, 2}, {2, 1}, {3, 3}});
    linearfitring(ring.get(), &n, &slope, &intercept, &r, 2);
    EXPECT_DOUBLE_EQ(slope, 0.5);
    EXPECT_DOUBLE_EQ(intercept, 1);
    EXPECT_DOUBLE_EQ(r, 0.5);
    linearfitring(ring.get(), &n, &slope, &intercept, &r, 0.5);
    EXPECT_THAT(std::vector({n * 1.0, slope, intercept, r}), ElementsAre(1, 0, 0, 0));
}

TEST_F(RingFile, KeepsASmallDeviationBesideALargeMean) {
    const Opened ring = fresh(1000);
    for (int i = 0; i < 1000; ++i) pushring(ring.get(), i, 1e8 + (i % 2 == 0 ? 1 : -1));
    for (const morva::Simd simd : {morva::Simd::kPlain, morva::best_simd()}) {
        morva::force_simd(simd);
        int n;
        double mean, deviation;
        meanring(ring.get(), &n, &mean, &deviation, 1e4);
        EXPECT_EQ(n, 1000);
        EXPECT_DOUBLE_EQ(mean, 1e8);
        EXPECT_NEAR(deviation, std::sqrt(1000.0 / 999), 1e-12);
    }
}

// Every version against the definition, on rings of all fillings with breaks, NaNs and infinities.
TEST_F(RingFile, ScansAlikeInEveryVersion) {
    const unsigned seed = 11;
    std::mt19937 random(seed);
    for (int size : {1, 3, 8, 257, 600, 1100}) {
        const Opened ring = fresh(size, 60);
        const int pushes = static_cast<int>(random() % (2u * static_cast<unsigned>(size))) + 1;
        for (int i = 0; i < pushes; ++i) {
            const unsigned kind = random() % 16;
            const double value = static_cast<int>(random() % 50) - 25;
            addring(ring.get(), i - static_cast<int>(random() % 3),
                    kind == 0   ? kNull
                    : kind == 1 ? kNan
                    : kind == 2 ? value * kInfinity
                                : value);
        }
        const Points all = points(ring);
        for (double span : {0.0, 2.0, 100.0, 1e4}) {
            double best = -kInfinity;
            int at = -1;
            for (std::size_t i = 0; i < all.size(); ++i) {
                const auto [time, value] = all[i];
                if (!(time > all[0].first - span) || value == kNull) continue;
                if (value > best || (at < 0 && value == best))
                    at = static_cast<int>(i), best = value;
            }
            std::vector<double> means, deviations, counts;
            for (const morva::Simd simd : {morva::Simd::kPlain, morva::best_simd()}) {
                morva::force_simd(simd);
                int i, n;
                double mean, deviation;
                EXPECT_EQ(maxring(ring.get(), &i, span), best) << size << ' ' << span;
                EXPECT_EQ(i, at) << "size " << size << " span " << span << " seed " << seed;
                meanring(ring.get(), &n, &mean, &deviation, span);
                means.push_back(mean);
                deviations.push_back(deviation);
                counts.push_back(n);
            }
            EXPECT_EQ(counts[0], counts[1]);
            if (std::isfinite(means[0])) {
                EXPECT_NEAR(means[0], means[1], 1e-9);
                EXPECT_NEAR(deviations[0], deviations[1], 1e-9);
            } else {
                EXPECT_FALSE(std::isfinite(means[1]));
            }
        }
    }
}

// ---- writers and readers

// Point k of the writers below is (k, k * k).
void expect_a_run_of_points(const std::vector<Ring_point>& points) {
    for (std::size_t i = 0; i < points.size(); ++i) {
        ASSERT_EQ(points[i].value, points[i].time * points[i].time) << i;
        ASSERT_EQ(points[i].time, points[0].time - static_cast<double>(i)) << i;
    }
}

TEST_F(RingFile, IsWholeAfterTheWriterIsKilled) {
    std::mt19937 random(3);
    double last = 0;
    for (int kill = 0; kill < 300; ++kill) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            Ring* ring = openring(path(), nullptr, 64, 0);
            (void)!::write(ready[1], "r", 1);
            for (double k = last + 1;; ++k) pushring(ring, k, k * k);
        }
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        const double goal = last + 1 + random() % 300, deadline = std_now() + 60;
        {
            const Opened reader = open(1, RING_READONLY);
            double newest = 0;
            while (newest < goal && std_now() < deadline)
                getring(reader.get(), 0, &newest, nullptr);
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(ready[0]), ::close(ready[1]);
        const Opened ring = open(64);
        ASSERT_NE(ring, nullptr) << logged_.text();
        std::vector<Ring_point> points(64);
        points.resize(static_cast<std::size_t>(snapring(ring.get(), points.data(), 64)));
        ASSERT_GE(points.size(), std::min(63.0, last));
        ASSERT_NO_FATAL_FAILURE(expect_a_run_of_points(points));
        ASSERT_FALSE(points.empty());
        ASSERT_GE(points[0].time, goal);
        last = points[0].time;
    }
}

// A process that pushes points 1 .. kMany, while two readers of the ring do what `read` says until
// it tells that it has seen the last.
constexpr int kMany = 2000000;

template <class Read>
void read_while_pushing(const char* path, Ring* writer, Read read) {
    const pid_t child = ::fork();
    if (child == 0) {
        for (double k = 1; k <= kMany; ++k) pushring(writer, k, k * k);
        ::_exit(0);
    }
    const auto reader = [&] {
        const Opened ring(openring(path, nullptr, 1, RING_READONLY));
        for (double newest = 0; newest < kMany && !testing::Test::HasFailure();)
            ASSERT_NO_FATAL_FAILURE(read(ring.get(), &newest));
    };
    std::thread second(reader);
    reader();
    second.join();
    ::waitpid(child, nullptr, 0);
}

TEST_F(RingFile, ShowsReadersNothingButPoints) {
    const Opened writer = fresh(200);
    read_while_pushing(path(), writer.get(), [](Ring* ring, double* newest) {
        std::vector<Ring_point> points(200);
        points.resize(static_cast<std::size_t>(snapring(ring, points.data(), 200)));
        expect_a_run_of_points(points);
        double time, value;
        if (getring(ring, 5, &time, &value) == 0) {
            ASSERT_EQ(value, time * time);
        }
        if (points.empty()) return;
        ASSERT_GE(points[0].time, *newest);
        *newest = points[0].time;
    });
}

// So many pushes come between two looks that index and count are where they were.
TEST_F(RingFile, ShowsReadersNothingButPointsThoughTheWriterComesRound) {
    for (const int size : {1, 2, 3}) {
        const Opened writer = fresh(size);
        read_while_pushing(path(), writer.get(), [](Ring* ring, double* newest) {
            double time = 0, value = 0;
            if (getring(ring, 0, &time, &value) == 0) *newest = time;
            ASSERT_EQ(value, time * time);
            time -= 0.5;
            if (valring(ring, &time, &value) == 0) {
                ASSERT_EQ(value, time * time);
            }
        });
    }
}

TEST_F(RingFile, CutOffByAnotherProcessEndsNoProgram) {
    for (const int length : {0, 50, 4096, 100000}) {
        Opened writer = fresh(10000), reader = open(1, RING_READONLY);
        for (int i = 0; i < 10000; ++i) pushring(writer.get(), i, i);
        std::filesystem::resize_file(path_, static_cast<std::size_t>(length));
        EXPECT_EQ(maxring(reader.get(), nullptr, 1e9), length < 104 ? -kInfinity : 9999);
        const std::string complaint = captured(2, [&] {
            for (int i = 0; i < 3; ++i) pushring(writer.get(), 10000 + i, 1);
            EXPECT_EQ(pushring(writer.get(), 20000, 1), -1);
            writer.reset();
        });
        EXPECT_THAT(complaint, HasSubstr("cut off a ring buffer")) << length;
        EXPECT_EQ(complaint.find("cut off"), complaint.rfind("cut off")) << length;
        const std::string second = captured(2, [&] { reader.reset(); });
        // The rest of the page that a file ends in is there.
        EXPECT_EQ(second.empty(), length == 50) << second;
    }
}

}  // namespace
