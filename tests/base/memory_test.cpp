#include "base/memory.hpp"

#include "support/kit.hpp"

namespace {

using morva::fail_allocation;
using morva::try_malloc;

TEST(Countdown, FailsTheNthOnceOrFromThenOn) {
    fail_allocation(2, false);
    morva::malloced<void> first(try_malloc(1)), second(try_malloc(1)), third(try_malloc(1));
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(morva::allocations_seen(), 3);
    fail_allocation(2, true);
    first.reset(try_malloc(1)), second.reset(try_malloc(1)), third.reset(try_malloc(1));
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third, nullptr);
    fail_allocation(0, false);
    first.reset(try_malloc(1));
    EXPECT_NE(first, nullptr);
}

TEST(MemoryDeathTest, EndsWithTheLibrarysWords) {
    EXPECT_EXIT(
        {
            fail_allocation(1, false);
            morva::must_alloc<long>(3, "thing", MORVA_HERE);
        },
        testing::ExitedWithCode(1),
        "Out of memory in TestBody at line [0-9]+ of 'memory_test.cpp'\n\tCan't malloc 24 bytes "
        "for thing\n");
}

TEST(MemoryDeathTest, RefusesAProductThatOverflows) {
    EXPECT_EXIT(morva::must_calloc(SIZE_MAX / 2, 4, "thing", MORVA_HERE),
                testing::ExitedWithCode(1), "Can't malloc 18446744073709551615 bytes for thing\n");
}

}  // namespace
