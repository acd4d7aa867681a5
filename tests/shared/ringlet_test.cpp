#include "morva/ringlet.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <memory>
#include <random>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using kit::Logged;
using kit::read_file;
using kit::write_file;
using testing::ElementsAre;
using testing::HasSubstr;

struct Close {
    void operator()(Ringlet* ringlet) const { closeringlet(ringlet); }
};
using Opened = std::unique_ptr<Ringlet, Close>;

// docs/formats/ring.md works this example out: three slots of four bytes, one record.
constexpr char kGolden[] =
    "ringlet\0"
    "\x02\0\0\0\0\0\0\0"
    "\x01\0\0\0\0\0\0\0"
    "\x03\0\0\0\0\0\0\0"
    "\x04\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\0pump";
const std::string kGoldenBytes(kGolden, sizeof kGolden - 1);
enum { kIndex = 8, kCount = 16, kSlots = 24, kSize = 32 };

class RingletFile : public testing::Test {
  protected:
    Opened open(long nslots, long size) { return Opened(openringlet(path(), nslots, size)); }
    const char* path() const { return path_.c_str(); }
    // All records as texts, the newest first.
    static std::vector<std::string> records(const Opened& ringlet) {
        std::vector<std::string> all;
        void* record;
        for (long i = 0; getringlet(ringlet.get(), i, &record) == 0; ++i)
            all.emplace_back(static_cast<char*>(record), static_cast<std::size_t>(ringlet->size));
        return all;
    }
    kit::TempDir dir_;
    std::string path_ = dir_.file("ringlet");
    Logged logged_;
};

TEST_F(RingletFile, IsWrittenByteForByte) {
    ASSERT_EQ(newringlet(path(), 3, 4), 0);
    const Opened ringlet = open(9, 9);
    ASSERT_NE(ringlet, nullptr);
    EXPECT_EQ(pushringlet(ringlet.get(), "pump"), 0);
    EXPECT_EQ(read_file(path_), kGoldenBytes);
}

TEST_F(RingletFile, HoldsTheNewestRecords) {
    path_ = dir_.file("new/folder/ringlet");
    const Opened ringlet = open(3, 4);
    ASSERT_NE(ringlet, nullptr);
    EXPECT_EQ(countringlet(ringlet.get()), 0);
    for (const char* record : {"one ", "two ", "3   ", "four", "five"})
        EXPECT_EQ(pushringlet(ringlet.get(), record), 0);
    EXPECT_THAT(records(ringlet), ElementsAre("five", "four", "3   "));
    EXPECT_EQ(countringlet(ringlet.get()), 3);
    void* record = nullptr;
    for (long i : {3L, -1L, INT64_MAX}) EXPECT_EQ(getringlet(ringlet.get(), i, &record), -1);
    EXPECT_EQ(record, nullptr);
}

TEST_F(RingletFile, HoldsRecordsOfEverySize) {
    for (std::size_t size = 1; size < 150; ++size) {
        ::unlink(path());
        const Opened ringlet = open(3, static_cast<long>(size));
        std::vector<std::string> expected;
        for (int k = 0; k < 5; ++k) {
            std::string record(size, '\0');
            for (std::size_t i = 0; i < size; ++i)
                record[i] = static_cast<char>(31 * static_cast<int>(i) + k);
            expected.insert(expected.begin(), record);
            pushringlet(ringlet.get(), kit::Guarded(record).data());
        }
        expected.resize(3);
        EXPECT_EQ(records(ringlet), expected) << size;
    }
}

TEST_F(RingletFile, TakesNoMoreOfARecordThanItsUserHas) {
    Opened(open(2, 24)).reset();
    EXPECT_EQ(logged_.text(), "");
    const std::string word = "twelve bytes";
    Opened ringlet = open(9, 12);
    EXPECT_THAT(logged_.text(), HasSubstr("holds records of 24 bytes, not of 12\n"));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(pushringlet(ringlet.get(), kit::Guarded(word).data()), 0);
    EXPECT_THAT(records(ringlet), testing::Each(word + std::string(12, '\0')));
    ringlet = open(0, 0);
    const std::string whole(24, 'w');
    EXPECT_EQ(pushringlet(ringlet.get(), kit::Guarded(whole).data()), 0);
    EXPECT_EQ(records(ringlet)[0], whole);
}

TEST_F(RingletFile, NamesWhatCannotBeMadeOrOpened) {
    for (const auto& [nslots, size] : {std::pair{0L, 4L}, {3L, 0L}, {INT64_MAX, 2L}, {-1L, -1L}})
        EXPECT_EQ(newringlet(path(), nslots, size), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open new ring buffer " + path_));
    write_file(path_, "");
    EXPECT_EQ(open(1, 1), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("failed to mmap ringlet " + path_));
    EXPECT_EQ(openringlet(dir_.path().c_str(), 1, 1), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open ringlet " + dir_.path() + "."));
    const std::string below = path_ + "/below";
    EXPECT_EQ(openringlet(below.c_str(), 1, 1), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("ringlet buffer file '" + below + "' does not exist"));
}

TEST_F(RingletFile, IsReadOnlyUnderALock) {
    write_file(path_, kGoldenBytes);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const char byte = static_cast<char>(::lockf(::open(path(), O_RDWR), F_LOCK, 0));
        (void)!::write(ready[1], &byte, 1);
        for (;;) ::pause();
    }
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    Opened ringlet = open(3, 4);
    ASSERT_NE(ringlet, nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't lock '" + path_ + "' for exclusive use\n"));
    EXPECT_EQ(pushringlet(ringlet.get(), "none"), -1);
    EXPECT_THAT(records(ringlet), ElementsAre("pump"));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]), ::close(ready[1]);
    ringlet = open(3, 4);
    EXPECT_EQ(pushringlet(ringlet.get(), "some"), 0);
}

TEST_F(RingletFile, ThatDoesNotFitItsLengthIsRefused) {
    const struct {
        const char* why;
        int at;
        int64_t value;
        const char* reason;
    } rows[] = {
        {"another magic", 0, 0x72, "Bad magic number while trying to read ringlet.\n"},
        {"no slots", kSlots, 0, "its slots or their size are out of range"},
        {"no size", kSize, 0, "its slots or their size are out of range"},
        {"bytes that wrap round", kSlots, int64_t{1} << 62, "out of range"},
        {"a slot beyond the end", kSlots, 4, "it is shorter than its records"},
        {"records too long", kSize, 5, "it is shorter than its records"},
        {"a record more than slots", kCount, 4, "its count is not within its slots"},
        {"less than no record", kCount, -1, "its count is not within its slots"},
        {"an index one too high", kIndex, 3, "its index is not within its slots"},
        {"a negative index", kIndex, -1, "its index is not within its slots"},
    };
    for (const auto& row : rows) {
        std::string bytes = kGoldenBytes;
        std::memcpy(&bytes[static_cast<std::size_t>(row.at)], &row.value, sizeof row.value);
        write_file(path_, bytes);
        const Logged logged;
        EXPECT_EQ(open(3, 4), nullptr) << row.why;
        EXPECT_THAT(logged.text(), HasSubstr(row.reason)) << row.why;
    }
    for (std::size_t length = 0; length < kGoldenBytes.size(); ++length) {
        write_file(path_, kGoldenBytes.substr(0, length));
        EXPECT_EQ(open(3, 4), nullptr) << length << " bytes";
    }
}

TEST_F(RingletFile, IsReadWithinItsBoundsWhateverItSaysLater) {
    const Opened ringlet = open(2, 4);
    for (const char* record : {"one ", "two "}) pushringlet(ringlet.get(), record);
    for (const auto& [index, count] : {std::pair{-1L, 2L}, {2L, 3L}, {INT64_MAX, INT64_MIN}}) {
        ringlet->header->index = index;
        ringlet->header->count = count;
        ringlet->header->nslots = ringlet->header->size = INT64_MAX;
        EXPECT_LE(records(ringlet).size(), 2u);
        EXPECT_EQ(pushringlet(ringlet.get(), "more"), 0);
        EXPECT_EQ(records(ringlet).front(), "more");
    }
}

TEST_F(RingletFile, IsWholeAfterTheWriterIsKilled) {
    struct Record {
        long number, sevenfold, opposite;
    };
    std::mt19937 random(5);
    long last = 0;
    for (int kill = 0; kill < 300; ++kill) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            Ringlet* ringlet = openringlet(path(), 16, sizeof(Record));
            (void)!::write(ready[1], "r", 1);
            for (long k = last + 1;; ++k) {
                const Record record = {k, 7 * k, -k};
                pushringlet(ringlet, &record);
            }
        }
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        const long goal = last + 1 + static_cast<long>(random() % 300);
        const double deadline = std_now() + 60;
        {
            const Opened reader = open(1, 1);
            void* newest = nullptr;
            while ((getringlet(reader.get(), 0, &newest) != 0 ||
                    static_cast<volatile Record*>(newest)->number < goal) &&
                   std_now() < deadline) {
            }
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(ready[0]), ::close(ready[1]);
        const Opened ringlet = open(16, sizeof(Record));
        ASSERT_NE(ringlet, nullptr) << logged_.text();
        const long count = countringlet(ringlet.get());
        ASSERT_GE(count, std::min(14L, last));
        void* newest = nullptr;
        getringlet(ringlet.get(), 0, &newest);
        for (long i = 0; i < count; ++i) {
            void* at;
            ASSERT_EQ(getringlet(ringlet.get(), i, &at), 0);
            const auto* record = static_cast<const Record*>(at);
            const long k = static_cast<const Record*>(newest)->number - i;
            ASSERT_EQ(record->number, k);
            ASSERT_EQ(record->sevenfold, 7 * k);
            ASSERT_EQ(record->opposite, -k);
        }
        ASSERT_NE(newest, nullptr);
        last = static_cast<const Record*>(newest)->number;
        ASSERT_GE(last, goal - 1) << "the newest may be hidden";
    }
}

TEST_F(RingletFile, CutOffByAnotherProcessEndsNoProgram) {
    Opened ringlet = open(10000, 4);
    for (int i = 0; i < 100; ++i) pushringlet(ringlet.get(), "some");
    std::filesystem::resize_file(path_, 4096);
    EXPECT_EQ(records(ringlet).front(), std::string(4, '\0'));
    EXPECT_THAT(kit::captured(2,
                              [&] {
                                  EXPECT_EQ(pushringlet(ringlet.get(), "more"), -1);
                                  ringlet.reset();
                              }),
                HasSubstr("cut off a ring buffer"));
}

}  // namespace
