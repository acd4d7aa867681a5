#include "base/fault_guard.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <numeric>

#include "base/posix.hpp"
#include "log/elog_child.hpp"
#include "support/kit.hpp"

namespace {

using morva::GuardedRange;

constexpr std::size_t kPages = 4;

class FaultGuard : public testing::Test {
  protected:
    FaultGuard() {
        kit::write_file(path_, std::string(length_, 'x'));
        const morva::Descriptor file(::open(path_.c_str(), O_RDWR));
        mapping_ = {::mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0),
                    length_};
    }
    int sum() const {
        const volatile char* bytes = mapping_.data();
        return std::accumulate(bytes, bytes + length_, 0);
    }
    void cut_to(std::size_t pages) {
        ASSERT_EQ(::truncate(path_.c_str(), static_cast<long>(pages * page_)), 0);
    }

    const std::size_t page_ = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t length_ = kPages * page_;
    kit::TempDir folder_;
    const std::string path_ = folder_.file("mapped");
    morva::Mapping mapping_;
};

TEST_F(FaultGuard, ReadsZerosBehindACutAndMarksTheRange) {
    GuardedRange* range = GuardedRange::watch(mapping_.data(), length_);
    EXPECT_EQ(GuardedRange::around(mapping_.data() + length_ - 1), range);
    EXPECT_EQ(range->begin(), mapping_.data());
    EXPECT_FALSE(range->damaged());
    EXPECT_FALSE(range->newly_damaged());
    cut_to(1);
    EXPECT_EQ(sum(), static_cast<int>(page_) * 'x');
    EXPECT_TRUE(range->newly_damaged());
    EXPECT_FALSE(range->newly_damaged());
    EXPECT_TRUE(range->damaged());
    GuardedRange::release(range);
    EXPECT_EQ(GuardedRange::around(mapping_.data()), nullptr);
}

TEST_F(FaultGuard, GuardsManyRangesAndLeavesTheOthersAlone) {
    std::vector<GuardedRange*> others;
    for (std::size_t i = 1; i <= 200; ++i)
        others.push_back(GuardedRange::watch(reinterpret_cast<void*>(i * page_), page_));
    GuardedRange* range = GuardedRange::watch(mapping_.data(), length_);
    cut_to(0);
    EXPECT_EQ(sum(), 0);
    EXPECT_TRUE(range->damaged());
    for (GuardedRange* other : others) {
        EXPECT_FALSE(other->damaged());
        GuardedRange::release(other);
    }
    GuardedRange::release(range);
}

// A sanitizer handles the signal itself.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(FaultGuard, OtherBusErrorsTakeTheirCourse) {
    for (const char* signals : {"", "BUS"}) {
        const kit::Ended ended = kit::in_child([&] {
            elog_set(ELOG_SIGNALS, 0, const_cast<char*>(signals));
            GuardedRange::release(GuardedRange::watch(mapping_.data(), length_));
            cut_to(0);
            return sum();
        });
        EXPECT_EQ(ended.status, 128 + SIGBUS) << ended.errors;
        EXPECT_EQ(ended.errors.find("received signal BUS") != std::string::npos, *signals != '\0')
            << ended.errors;
    }
}
#endif

TEST_F(FaultGuard, StandsBesideARegisterThatTakesTheSignalOver) {
    const kit::Ended ended = kit::in_child([&] {
        GuardedRange* range = GuardedRange::watch(mapping_.data(), length_);
        elog_set(ELOG_SIGNALS, 0, const_cast<char*>("BUS"));
        cut_to(2);
        const int first = sum();
        elog_set(ELOG_SIGNALS, 0, const_cast<char*>("FPE"));
        cut_to(1);
        return range->damaged() && first == 2 * sum() ? 0 : 1;
    });
    EXPECT_EQ(ended.status, 0) << ended.errors;
}

}  // namespace
