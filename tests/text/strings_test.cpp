#include "support/kit.hpp"

namespace {

using testing::ElementsAre;

std::vector<std::string> items(Tbl* tbl) {
    std::vector<std::string> list;
    for (long i = 0; i < maxtbl(tbl); ++i) list.push_back(static_cast<char*>(gettbl(tbl, i)));
    freetbl(tbl, nullptr);
    return list;
}

std::string trimmed(std::string text) {
    return strtrim(text.data());
}

TEST(StringBasics, ComparesNullStrings) {
    EXPECT_EQ(nstrcmp(nullptr, nullptr), 0);
    EXPECT_EQ(nstrcmp("a", nullptr), 1);
    EXPECT_EQ(nstrcmp(nullptr, "a"), 1);
    EXPECT_LT(nstrcmp("a", "b"), 0);
    EXPECT_EQ(nstrcmp("a", "a"), 0);
    EXPECT_STREQ(okstr(nullptr), "<null>");
    EXPECT_STREQ(okstr("x"), "x");
}

TEST(StringBasics, TellsBlankFromWhitespace) {
    struct Row {
        const char* text;
        int blank, white;
    };
    for (const Row& row : {Row{"", 1, 1},
                           {"   ", 1, 1},
                           {" \t", 0, 1},
                           {"\n", 0, 1},
                           {"\r", 0, 0},
                           {" x", 0, 0},
                           {nullptr, 1, 1}}) {
        EXPECT_EQ(blank(row.text), row.blank) << okstr(row.text);
        EXPECT_EQ(whitespace(row.text), row.white) << okstr(row.text);
    }
}

TEST(StringBasics, FillsFixedWidthFields) {
    char field[] = "##########";
    sncopy(field, "abc", 5);
    EXPECT_STREQ(field, "abc  #####");
    sncopy(field, "vwxyz", 3);
    EXPECT_STREQ(field, "vwx  #####");
    sncopy(field, "q", 0);
    sncopy(field, "q", -1);
    EXPECT_STREQ(field, "vwx  #####");
    EXPECT_EQ(szcopy(field, "12345", 2), field + 2);
    EXPECT_STREQ(field, "12");
    EXPECT_EQ(szcopy(field, "12345", -3), field);
    EXPECT_STREQ(field, "");
}

TEST(StringBasics, StripsBlanksOfAField) {
    struct Row {
        const char* text;
        int n;
        const char* result;
    };
    for (const Row& row : {Row{"  ab c  zz", 8, "ab c"},
                           {"    ", 4, ""},
                           {"\tab ", 4, "\tab"},
                           {" x", 1, ""},
                           {"x", 0, ""},
                           {"x", -1, ""}}) {
        char field[16];
        char* end = copystrip(field, row.text, row.n);
        EXPECT_STREQ(field, row.result);
        EXPECT_EQ(*end, '\0');
        EXPECT_EQ(end, field + strlen(row.result));
    }
    char field[64] = "   a field of forty characters, in place ";
    copystrip(field, field, 41);
    EXPECT_STREQ(field, "a field of forty characters, in place");
}

TEST(StringBasics, CopiesAndMapsInPlace) {
    void* copy = memdup("a\0b", 4);
    EXPECT_EQ(memcmp(copy, "a\0b", 4), 0);
    free(copy);
    char text[] = "Bh-z1";
    EXPECT_EQ(str2upper(text), 5);
    EXPECT_STREQ(text, "BH-Z1");
    EXPECT_EQ(str2lower(text), 5);
    EXPECT_STREQ(text, "bh-z1");
    char line[] = "x\n\n";
    chomp(line);
    EXPECT_STREQ(line, "x\n");
    chomp(line + 1);
    EXPECT_STREQ(line, "x");
    chomp(line);
    EXPECT_STREQ(line, "x");
    chomp(nullptr);
}

TEST(StringBasics, CountsPrintableText) {
    EXPECT_EQ(ascii_cnt("abc\0\1", 5), 3);
    EXPECT_EQ(ascii_cnt("abc", 2), 2);
    EXPECT_EQ(ascii_cnt("ab\x7f", 3), -1);
    EXPECT_EQ(ascii_cnt("ab\x7f", 2), 2);
    EXPECT_EQ(ascii_cnt("\xe9", 1), -1);
    EXPECT_EQ(ascii_cnt("", 0), 0);
}

TEST(StringBasics, ReadsBooleans) {
    for (const char* word : {"yes", "OK", "y", "True", "1", "on", "T"}) EXPECT_EQ(yesno(word), -1);
    for (const char* word : {"no", "N", "false", "0", "OFF", "f"}) EXPECT_EQ(yesno(word), 0);
    for (const char* word : {"", "2", "yes ", "falsey", "o", "nope and more text"})
        EXPECT_EQ(yesno(word), 1) << word;
    EXPECT_EQ(yesno(nullptr), 1);
}

TEST(StringSplit, NeverGivesEmptyFields) {
    struct Row {
        const char* text;
        std::vector<std::string> fields;
    };
    for (const Row& row : {Row{",,a,,b", {"a", "b"}},
                           {"a,b,", {"a", "b"}},
                           {"abc", {"abc"}},
                           {",", {}},
                           {"", {}},
                           {"a b,c d", {"a b", "c d"}}}) {
        std::string text = row.text;
        EXPECT_EQ(items(split(text.data(), ',')), row.fields) << row.text;
    }
    char words[] = " \tone\ntwo \n three";
    EXPECT_THAT(items(splitws(words)), ElementsAre("one", "two", "three"));
}

TEST(StringTrim, KeepsInnerBlanksAndOtherControls) {
    EXPECT_EQ(trimmed("\t x \n"), "x");
    EXPECT_EQ(trimmed("   "), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("a \t b"), "a \t b");
    EXPECT_EQ(trimmed(" \rx\r "), "\rx\r");
}

TEST(StringSubstitute, ReplacesFromLeftToRight) {
    struct Row {
        const char *text, *old_text, *new_text, *result;
    };
    for (const Row& row : {Row{"aaaaa", "aa", "b", "bba"},
                           {"abc", "x", "yy", "abc"},
                           {"a.b.c", ".", "", "abc"},
                           {"ab", "b", "bb", "abb"},
                           {"", "a", "b", ""},
                           {"keep", "", "x", "keep"}}) {
        char out[32];
        EXPECT_EQ(strsub(row.text, row.old_text, row.new_text, out), out + strlen(row.result));
        EXPECT_STREQ(out, row.result);
        const size_t size = strlen(row.result) + 1;
        kit::Guarded room(std::string(size, '#'));
        EXPECT_EQ(strsubn(row.text, row.old_text, row.new_text, room.data(), size),
                  room.data() + size - 1);
        EXPECT_STREQ(room.data(), row.result);
        if (size == 1) continue;
        EXPECT_EQ(strsubn(row.text, row.old_text, row.new_text, room.data(), size - 1), nullptr);
        EXPECT_EQ(std::string(room.data()), std::string(row.result, size - 2));
    }
    EXPECT_EQ(strsubn("a", "a", "b", nullptr, 0), nullptr);
}

TEST(StringTranslate, MapsUpToTheShorterList) {
    char text[] = "hello";
    EXPECT_EQ(strtr(text, "elo", "ip"), text);
    EXPECT_STREQ(text, "hippo");
    strtr(text, "pp", "xy");
    EXPECT_STREQ(text, "hiyyo") << "a later repetition wins";
    char high[] = "\xe9\xff";
    strtr(high, "\xe9", "e");
    EXPECT_STREQ(high, "e\xff");
    EXPECT_EQ(strtr(nullptr, "a", "b"), nullptr);
}

TEST(Spaces, StayValidForTenCalls) {
    EXPECT_EQ(std::string(spaces(100)), std::string(63, ' '));
    EXPECT_STREQ(spaces(-1), "");
    std::vector<char*> results;
    for (int i = 1; i <= 10; ++i) results.push_back(spaces(i));
    for (int i = 1; i <= 10; ++i) EXPECT_EQ(strlen(results[i - 1]), i);
    EXPECT_EQ(spaces(20), results[0]) << "the eleventh call takes the first buffer again";
}

TEST(Strdbl, WritesEngineeringNotation) {
    struct Row {
        double value;
        const char* text;
    };
    const double inf = std::numeric_limits<double>::infinity();
    for (const Row& row : {Row{123.5, "123.5"},
                           {1e-4, "100e-6"},
                           {-0.25, "-0.25"},
                           {0.5, ".5"},
                           {2e10, "20e9"},
                           {0, "0"},
                           {1e10, "10000000000"},
                           {0.001, ".001"},
                           {inf, "Inf"},
                           {-inf, "-Inf"},
                           {-3e12, "-3e12"},
                           {1e100, "10e99"},
                           {1e-100, ".1e-99"},
                           {1.0 / 3, ".333333333333333"},
                           {1e-300, "1e-300"},
                           {999999999999, "999.999999999e9"}}) {
        char text[40];
        EXPECT_EQ(strdbl(text, row.value), text);
        EXPECT_STREQ(text, row.text);
    }
}

TEST(Levenshtein, CountsEdits) {
    EXPECT_EQ(levenshtein_distance("kitten", "sitting"), 3);
    EXPECT_EQ(levenshtein_distance("abc", "abc"), 0);
    EXPECT_EQ(levenshtein_distance("abc", "xyzzy"), 5);
    EXPECT_EQ(levenshtein_distance("", "abc"), -1);
    EXPECT_EQ(levenshtein_distance("abc", ""), -1);
    EXPECT_EQ(levenshtein_distance("", ""), -1);
}

}  // namespace
