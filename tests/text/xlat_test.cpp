// Translation tables.
#include "support/kit.hpp"

namespace {

constexpr Xlat kModes[] = {{"read", 1}, {nullptr, 3}, {"write", 2}, {"again", 1}, {"read", -7}};
constexpr int kCount = 5;

TEST(Xlat, TakesTheFirstEntryThatFits) {
    EXPECT_STREQ(xlatnum(1, kModes, kCount), "read");
    EXPECT_STREQ(xlatnum(-7, kModes, kCount), "read");
    EXPECT_EQ(xlatnum(1, kModes, 0), nullptr);
    EXPECT_EQ(xlatnum(-7, kModes, 4), nullptr) << "beyond the count";
    EXPECT_EQ(xlatname("read", kModes, kCount), 1);
    EXPECT_EQ(xlatname("again", kModes, kCount), 1);
    for (const char* other : {"Read", "rea", "reads", ""})
        EXPECT_EQ(xlatname(other, kModes, kCount), -1) << other;
    EXPECT_EQ(xlatname(nullptr, kModes, kCount), -1);
    EXPECT_EQ(xlatname("read", nullptr, 3), -1);
}

TEST(Xlat, WritesNamesCutToTheSize) {
    const struct {
        int value, size;
        const char* text;
    } rows[] = {{2, 32, "write"},
                {2, 6, "write"},
                {2, 4, "wri"},
                {2, 1, ""},
                {9, 32, "* unknown: #9"},
                {3, 32, "* unknown: #3"},
                {INT32_MIN, 32, "* unknown: #-2147483648"},
                {9, 5, "* un"}};
    for (const auto& row : rows) {
        const kit::Guarded buffer(std::string(static_cast<size_t>(row.size), '#'));
        EXPECT_EQ(xlatnum_str(row.value, buffer.data(), row.size, kModes, kCount), buffer.data());
        EXPECT_STREQ(buffer.data(), row.text);
    }
    char untouched = '#';
    EXPECT_EQ(xlatnum_str(2, &untouched, 0, kModes, kCount), &untouched);
    EXPECT_EQ(untouched, '#');
}

}  // namespace
