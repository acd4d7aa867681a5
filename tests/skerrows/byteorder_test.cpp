// Byte order: each converter on every count up to a few vectors, at every alignment, apart, in
// place and overlapping.
#include <algorithm>
#include <bit>
#include <climits>
#include <random>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using Converter = void (*)(char**, void*, long);
struct Case {
    const char* name;
    Converter convert;
    int size;
};

constexpr Case kCases[] = {
    {"hs2ms", hs2ms, 2}, {"ms2hs", ms2hs, 2}, {"hi2mi", hi2mi, 4}, {"mi2hi", mi2hi, 4},
    {"hl2ml", hl2ml, 8}, {"ml2hl", ml2hl, 8}, {"hf2mf", hf2mf, 4}, {"mf2hf", mf2hf, 4},
    {"hd2md", hd2md, 8}, {"md2hd", md2hd, 8},
};
constexpr long kCounts[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 64, 67, 130};

// By the byte.
std::string converted(std::string bytes, int size) {
    if (std::endian::native == std::endian::little)
        for (size_t i = 0; i < bytes.size(); i += size)
            std::reverse(bytes.begin() + i, bytes.begin() + i + size);
    return bytes;
}

std::string random_bytes(size_t n) {
    static std::mt19937 random(7);
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

class ByteOrder : public testing::TestWithParam<Case> {};

TEST_P(ByteOrder, GoldenBytes) {
    const std::string ordered = "\x01\x02\x03\x04\x05\x06\x07\x08";
    const auto [name, convert, size] = GetParam();
    std::uint64_t value = 0;
    char* cursor = const_cast<char*>(ordered.data());
    convert(&cursor, &value, 1);
    EXPECT_EQ(value, size == 2 ? 0x0102u : size == 4 ? 0x01020304u : 0x0102030405060708u);
    EXPECT_EQ(cursor, ordered.data() + size);
}

TEST_P(ByteOrder, ApartAtEveryAlignment) {
    const auto [name, convert, size] = GetParam();
    for (const long count : kCounts)
        for (int shift = 0; shift < 8; ++shift) {
            const std::string bytes = random_bytes(count * size);
            const kit::Guarded source(bytes), target(std::string(count * size + shift, '#'));
            char* cursor = source.data();
            convert(&cursor, target.data() + shift, count);
            EXPECT_EQ(cursor, source.data() + count * size);
            EXPECT_EQ(std::string(target.data() + shift, count * size), converted(bytes, size));
            EXPECT_EQ(std::string(target.data(), shift), std::string(shift, '#'));
        }
}

TEST_P(ByteOrder, InPlaceAndOverlapping) {
    const auto [name, convert, size] = GetParam();
    for (const long count : kCounts)
        for (const int distance : {0, 1, 2, 4, 8, 31, 40, -1, -3, -8, -33, -40}) {
            const std::string bytes = random_bytes(count * size);
            std::string room(count * size + 80, '#');
            std::copy(bytes.begin(), bytes.end(), room.begin() + 40);
            char* cursor = room.data() + 40;
            convert(&cursor, room.data() + 40 + distance, count);
            EXPECT_EQ(cursor, room.data() + 40 + count * size);
            EXPECT_EQ(room.substr(40 + distance, count * size), converted(bytes, size))
                << "count " << count << ", distance " << distance;
        }
}

TEST_P(ByteOrder, NothingForNoCount) {
    char source[8] = "source", target[8] = "target";
    char* cursor = source;
    for (const long count : {0L, -1L, LONG_MIN}) GetParam().convert(&cursor, target, count);
    EXPECT_EQ(cursor, source);
    EXPECT_STREQ(target, "target");
}

INSTANTIATE_TEST_SUITE_P(All, ByteOrder, testing::ValuesIn(kCases),
                         [](const auto& info) { return info.param.name; });

}  // namespace
