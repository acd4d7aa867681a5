#include "base/fortran.hpp"

#include "morva/fortran.h"
#include "support/kit.hpp"

namespace {

using kit::Guarded;
using morva::fortran::give;
using morva::fortran::Text;

struct Field {
    const char* name;
    std::string field;
    const char* text;
};

void PrintTo(const Field& field, std::ostream* out) {
    *out << testing::PrintToString(field.field);
}

class FortranText : public testing::TestWithParam<Field> {};

// The field ends at an unmapped page, as nothing terminates it.
TEST_P(FortranText, IsTheFieldWithoutTrailingBlanks) {
    const Guarded field(GetParam().field);
    EXPECT_STREQ(Text(field.data(), field.size()).c_str(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Fields, FortranText,
                         testing::Values(Field{"Padded", "BHZ   ", "BHZ"},
                                         Field{"Full", "BHZ", "BHZ"}, Field{"Blank", "    ", ""},
                                         Field{"Empty", "", ""},
                                         Field{"LeadingBlanksStay", "  a b ", "  a b"},
                                         Field{"TabsStay", "a\t ", "a\t"},
                                         Field{"EndsAtZero", std::string("a, \0  ", 6), "a, "}),
                         [](const auto& info) { return info.param.name; });

TEST(FortranGive, CutsOrPadsAndTellsTheWholeLength) {
    const Guarded field("??????");
    EXPECT_EQ(give(field.data(), 6, "abc"), 3);
    EXPECT_EQ(std::string(field.data(), 6), "abc   ");
    EXPECT_EQ(give(field.data(), 6, "abcdefgh"), 8);
    EXPECT_EQ(std::string(field.data(), 6), "abcdef");
    EXPECT_EQ(give(field.data(), 6, nullptr), -1);
    EXPECT_EQ(std::string(field.data(), 6), "      ");
    EXPECT_EQ(give(nullptr, 0, "abc"), 3);
}

TEST(FortranList, OfPointersKeepsTheEightBytesOfAVariable) {
    Tbl* list = newtbl(0);
    const int64_t first = 17, second = 4;
    const long front = 0, end = 9;
    int64_t found = 0;
    pushtbl_(&list, &first);
    unshifttbl_(&list, &second);
    EXPECT_EQ(gettbl(list, 1), reinterpret_cast<void*>(17));
    EXPECT_EQ(itemgettbl_(&list, &front, &found), 0);
    EXPECT_EQ(found, 4);
    EXPECT_EQ(itemgettbl_(&list, &end, &found), -1);
    EXPECT_EQ(found, 0);
    freetbl_(&list, nullptr);
}

TEST(FortranList, TakesItsSizeFromADefaultIntegerToo) {
    const int32_t sizes[] = {4, 77};
    long size;
    std::memcpy(&size, sizes, sizeof size);
    Tbl* list = newtbl_(&size);
    EXPECT_EQ(list->right_increment, 4);
    EXPECT_TRUE(list->direct);
    EXPECT_EQ(list->itemsize, 8);
    freetbl_(&list, nullptr);
}

TEST(FortranList, OfShortItemsHoldsNoStrings) {
    const kit::Logged log;
    const long increment = 4, front = 0;
    const int direct = 1, itemsize = 3;
    Tbl* list = inittbl_(&increment, &increment, &direct, "abc", &itemsize);
    pushtbl_(&list, "xyz");
    char text[4], item[3];
    EXPECT_EQ(strgettbl_(&list, &front, text, sizeof text), -1);
    EXPECT_EQ(strsettbl_(&list, &front, "word", 4), -1);
    EXPECT_THAT(log.text(), testing::HasSubstr("tbl of 3-byte items can't hold strings.\n"));
    EXPECT_EQ(itemgettbl_(&list, &increment, item), -1);
    EXPECT_EQ(std::string(item, 3), "abc") << "outside the list is the null value";
    freetbl_(&list, nullptr);
}

TEST(FortranDeathTest, StringsThatFindNoMemoryAreNamedNew) {
    const int flag = 0;
    EXPECT_EXIT(
        {
            morva::fail_allocation(1, false);
            complain_(&flag, "text", 4);
        },
        testing::ExitedWithCode(1),
        testing::ContainsRegex("Out of memory in Text at line [0-9]+ of 'fortran.cpp'\n"
                               "\tCan't malloc 5 bytes for new\n"));
}

}  // namespace
