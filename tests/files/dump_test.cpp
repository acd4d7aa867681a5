#include <numeric>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

std::string dumped(std::string_view bytes) {
    return kit::written(
        [&](FILE* stream) { hexdump(stream, bytes.data(), static_cast<int>(bytes.size())); });
}

TEST(HexDump, SixteenBytesALine) {
    std::string bytes(35, '\0');
    std::iota(bytes.begin(), bytes.end(), static_cast<char>(0x6e));
    EXPECT_EQ(dumped(bytes),
              "00000000  6e 6f 70 71 72 73 74 75  76 77 78 79 7a 7b 7c 7d  |nopqrstuvwxyz{|}|\n"
              "00000010  7e 7f 80 81 82 83 84 85  86 87 88 89 8a 8b 8c 8d  |~...............|\n"
              "00000020  8e 8f 90                                          |...|\n");
}

TEST(HexDump, ReadsNoByteTooMany) {
    for (size_t n = 1; n <= 33; ++n) {
        const kit::Guarded bytes(std::string(n, 'x'));
        EXPECT_EQ(dumped({bytes.data(), n}).size(), n / 16 * 79 + (n % 16 > 0 ? 63 + n % 16 : 0));
    }
}

TEST(HexDump, NothingIsNothing) {
    EXPECT_EQ(kit::written([](FILE* stream) { hexdump(stream, "x", 0), hexdump(stream, "x", -1); }),
              "");
    hexdump(nullptr, "x", 1);
    EXPECT_EQ(kit::taken(hexdump_string("# ", "x", 0)), "");
    EXPECT_EQ(kit::taken(hexdump_string(nullptr, nullptr, -5)), "");
}

TEST(HexDump, TheStringHasThePrefixOnEveryLine) {
    const std::string bytes(17, 'A');
    EXPECT_EQ(kit::taken(hexdump_string(nullptr, bytes.data(), 17)), dumped(bytes));
    EXPECT_EQ(kit::taken(hexdump_string("# ", bytes.data(), 17)),
              "# 00000000  41 41 41 41 41 41 41 41  41 41 41 41 41 41 41 41  |AAAAAAAAAAAAAAAA|\n"
              "# 00000010  41                                                |A|\n");
}

std::string printable(std::string_view bytes, int size) {
    const kit::Guarded from(bytes);
    std::string room(static_cast<size_t>(size) + 1, '#');
    EXPECT_EQ(printable_string(from.data(), static_cast<int>(bytes.size()), room.data(), size),
              room.data());
    EXPECT_EQ(room.back(), '#') << "wrote behind the buffer";
    return room.c_str();
}

TEST(PrintableString, EscapesAsC) {
    EXPECT_EQ(printable("plain ~ text", 100), "plain ~ text");
    EXPECT_EQ(printable(std::string_view("\n\t\r\\\a\b\f\v\0\033\x7f\x80\xff"
                                         "7",
                                         14),
                        100),
              R"(\n\t\r\\\a\b\f\v\000\033\177\200\3777)");
}

TEST(PrintableString, CutsBetweenEscapes) {
    EXPECT_EQ(printable("ab\xff"
                        "c",
                        8),
              R"(ab\377c)");
    EXPECT_EQ(printable("ab\xff"
                        "c",
                        7),
              R"(ab\377)");
    EXPECT_EQ(printable("ab\xff"
                        "c",
                        6),
              "ab");
    EXPECT_EQ(printable("\n\n", 4), R"(\n)");
    EXPECT_EQ(printable("abc", 1), "");
    EXPECT_EQ(printable("", 5), "");
    char untouched = '#';
    EXPECT_EQ(printable_string("abc", 3, &untouched, 0), &untouched);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(printable_string("abc", 3, nullptr, 10), nullptr);
}

TEST(FilesDeathTest, OutOfMemoryEndsTheProcess) {
    const auto failing = [](auto body) {
        morva::fail_allocation(1, false);
        body();
    };
    EXPECT_EXIT(failing([] { hexdump_string("# ", "abc", 3); }), testing::ExitedWithCode(1),
                "Out of memory in hexdump_string at line [0-9]+ of 'dump.cpp'\n\tCan't malloc "
                "[0-9]+ bytes for result\n");
    EXPECT_EXIT(failing([] { vkunique_filename("/no/such"); }), testing::ExitedWithCode(1),
                "Can't malloc 16 bytes for name\n");
}

}  // namespace
