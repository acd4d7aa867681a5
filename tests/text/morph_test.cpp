// Substitution by template and morph tables.
#include <regex.h>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

class Regex {
  public:
    explicit Regex(const char* pattern, int flags = 0) {
        EXPECT_EQ(regcomp(&regex_, pattern, REG_EXTENDED | flags), 0) << pattern;
    }
    ~Regex() { regfree(&regex_); }
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;
    const regex_t* get() const { return &regex_; }

  private:
    regex_t regex_;
};

// A table of rules, and names rewritten by it. `bad` is how many lines did not compile.
class Rules {
  public:
    explicit Rules(std::vector<std::string> lines) {
        Tbl* list = newtbl(3);
        for (std::string& line : lines) pushtbl(list, line.data());
        bad = newmorphtbl(list, &table);
        freetbl(list, nullptr);
    }
    ~Rules() { freemorphtbl(table); }
    Rules(const Rules&) = delete;
    Rules& operator=(const Rules&) = delete;

    // "COUNT RESULT", by all three functions.
    std::string renamed(const std::string& name, int flags = 0) const {
        char plain[256];
        const long count = morphtbl(name.c_str(), table, flags, plain);
        const std::string result = plain;
        const kit::Guarded exact(std::string(result.size() + 1, '#'));
        EXPECT_EQ(morphtbln(name.c_str(), table, flags, exact.data(), exact.size()), count);
        EXPECT_EQ(exact.data(), result);
        Tbl* applied = nullptr;
        EXPECT_EQ(kit::taken(morphtbl_str(name.c_str(), table, flags, &applied)), result);
        EXPECT_EQ(maxtbl(applied), count);
        freetbl(applied, nullptr);
        return std::to_string(count) + " " + result;
    }

    Tbl* table = nullptr;
    long bad = 0;
};

TEST(Patsub, ExpandsTemplates) {
    const struct {
        const char *pattern, *string, *text, *result;
    } rows[] = {
        {"BHZ", "xBHZy", "HHZ", "xHHZy"},
        {"^BH(.)$", "BHZ", "HH$1", "HHZ"},
        {"(.)(.)(.)", "abcd", "$3$2$1", "cbad"},
        {"b", "abc", "[$0$0]", "a[bb]c"},
        {"(x)|b", "abc", "<$1>", "a<>c"},
        {"b", "abc", "<$1$9>", "a<>c"},
        {"b", "abc", "\\$0\\\\\\n", "a$0\\nc"},
        {"b", "abc", "1$x2$$3", "a123c"},
        {"b", "abc", "$\\1", "a1c"},
        {"b", "abc", "", "ac"},
        {"b", "abc", "x$", "axc"},
        {"b", "abc", "x\\", "axc"},
        {"b", "abc", "$", "ac"},
        {"(b)", "abc", "$10", "ab0c"},
        {"", "abc", "x", "xabc"},
        {"$", "abc", "x", "abcx"},
        {"(1)(2)(3)(4)(5)(6)(7)(8)(9)", "123456789", "$9$8$7$6$5$4$3$2$1", "987654321"},
        {"(\xc3.)", "a\xc3\xa9", "$1$1", "a\xc3\xa9\xc3\xa9"},
    };
    for (const auto& row : rows) {
        const Regex regex(row.pattern);
        const kit::Guarded text(std::string(row.text) + '\0');
        const kit::Guarded result(std::string(strlen(row.result) + 1, '#'));
        EXPECT_EQ(patsub(row.string, regex.get(), text.data(), result.data()), 1);
        EXPECT_STREQ(result.data(), row.result) << row.pattern << " " << row.text;
        // Just enough room, and one byte less.
        EXPECT_EQ(patsubn(row.string, regex.get(), text.data(), result.data(), result.size()), 1);
        EXPECT_STREQ(result.data(), row.result);
        EXPECT_EQ(
            patsubn(row.string, regex.get(), text.data(), result.data() + 1, result.size() - 1),
            -1);
        EXPECT_EQ(result.data() + 1, std::string(row.result, strlen(row.result) - 1));
    }
}

TEST(Patsub, CopiesWhatDoesNotMatch) {
    char result[8] = "#######";
    EXPECT_EQ(patsub("abc", Regex("x").get(), "y", result), 0);
    EXPECT_STREQ(result, "abc");
    EXPECT_EQ(patsub("abc", Regex("b", REG_NOSUB).get(), "y", result), 0);
    EXPECT_STREQ(result, "abc");
    EXPECT_EQ(patsubn("abc", Regex("x").get(), "y", result, 3), -1);
    EXPECT_STREQ(result, "ab");
    EXPECT_EQ(patsubn("abc", Regex("b").get(), "y", result, 0), -1);
    EXPECT_EQ(patsub(result, Regex("a").get(), "$0-$0-", result), 1) << "onto itself";
    EXPECT_STREQ(result, "a-a-b");
}

TEST(Regsubstitute, LooksAtNoMatchThatTheTemplateDoesNotName) {
    const regmatch_t matches[2] = {{1, 2}, {-1, -1}};
    const kit::Guarded two({reinterpret_cast<const char*>(matches), sizeof matches});
    const auto* given = reinterpret_cast<const regmatch_t*>(two.data());
    char result[8];
    regsubstitute("abc", "<$0$1>", given, result);
    EXPECT_STREQ(result, "a<b>c");
    EXPECT_EQ(regsubstituten("abc", "<$0$1>", given, result, 6), 5);
    EXPECT_EQ(regsubstituten("abc", "<$0$1>", given, result, 5), -1);
    EXPECT_STREQ(result, "a<b>");
    const regmatch_t none = {-1, -1};
    regsubstitute("abc", "x", &none, result);
    EXPECT_STREQ(result, "abc");
}

TEST(Morphtbl, ReadsRuleLines) {
    const struct {
        const char *line, *name, *result;
    } rows[] = {
        {"BHZ HHZ", "BHZ", "1 HHZ"},
        {"BHZ HHZ", "BHZ1", "0 BHZ1"},
        {"BHZ\t \tHHZ rest of it", "BHZ", "1 HHZ"},
        {"BHZ", "BHZ", "1 "},
        {"BHZ  ", "BHZ", "1 "},
        {"B\\ Z H\\ Z", "B Z", "1 H Z"},
        {"BHZ H\\", "BHZ", "1 H"},
        {"/^BH(.)$/HH$1/", "BHN", "1 HHN"},
        {"/BHZ/HHZ", "BHZ", "1 HHZ"},
        {"/BHZ/H Z/ignored", "BHZ", "1 H Z"},
        {"/BHZ", "BHZ", "1 "},
        {"/BHZ/", "BHZ", "1 "},
        {"'B/Z'H\"Z'", "B/Z", "1 H\"Z"},
        {"\"BHZ\" \"HHZ\"", "BHZ", "1  "},
        {"/B\\/Z/H\\/Z/", "B/Z", "1 H/Z"},
        {"/BHZ/HHZ\\", "BHZ", "1 HHZ"},
        {"//empty/", "", "1 empty"},
        {"//empty/", "x", "0 x"},
        {" empty", "", "1 empty"},
        {"", "", "1 "},
        {"/", "", "1 "},
        {"", "x", "0 x"},
        {"AB|A x", "AB", "1 x"},
        {"(A)\\1 x$1", "AA", "1 xA"},
        {"(A|AB)(C|BCD) $2$1", "ABCD", "1 BCDA"},
    };
    for (const auto& row : rows) {
        const Rules rules({row.line});
        EXPECT_EQ(rules.bad, 0) << row.line;
        EXPECT_EQ(rules.renamed(row.name), row.result) << row.line;
    }
}

TEST(Morphtbl, AppliesTheFirstRuleOrAll) {
    const Rules rules({"A B", "B C", "/x(.)/$1$1/", "/D+/d/", "CC gone", "/(C)$/$1!/"});
    const struct {
        const char* name;
        int flags;
        const char* result;
    } rows[] = {
        {"A", 0, "1 B"},
        {"A", MORPH_ALL, "3 C!"},
        {"xBHZy", MORPH_PARTIAL, "1 xCHZy"},
        {"xA", 0, "1 AA"},
        {"xAz", 0, "0 xAz"},
        {"xAz", MORPH_PARTIAL, "1 xBz"},
        {"xAz", MORPH_PARTIAL | MORPH_ALL, "4 gonez"},
        {"DDxDD", MORPH_PARTIAL, "1 DDDDD"},
        {"DDDD", MORPH_ALL | 4, "1 d"},
        {"DD-DD", MORPH_PARTIAL, "1 d-DD"},
        {"-AC", MORPH_PARTIAL | MORPH_ALL, "3 -gone"},
        {"", MORPH_PARTIAL | MORPH_ALL, "0 "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(rules.renamed(row.name, row.flags), row.result) << row.name << " " << row.flags;
    char name[8] = "xA";
    EXPECT_EQ(morphtbl(name, rules.table, 0, name), 1) << "onto itself";
    EXPECT_STREQ(name, "AA");
    EXPECT_EQ(morphtbl("A", nullptr, 0, name), 0);
    EXPECT_STREQ(name, "A");
}

TEST(Morphtbl, NeverWritesBeyondTheSize) {
    const Rules rules({"/(.*)/$1$1/", "/(.*)/$1$1/", ".* x"});
    char result[9] = "########";
    EXPECT_EQ(morphtbln("abc", rules.table, 0, result, 6), -1);
    EXPECT_STREQ(result, "abcab");
    EXPECT_EQ(morphtbln("abc", rules.table, MORPH_ALL, result, 8), -1) << "what is in between";
    EXPECT_STREQ(result, "abcabca");
    EXPECT_EQ(morphtbln("abcdefghijkl", Rules({".* x"}).table, 0, result, 2), 1);
    EXPECT_STREQ(result, "x");
    EXPECT_EQ(morphtbln("abc", rules.table, 0, result, 0), -1);
    EXPECT_EQ(morphtbln("abc", nullptr, 0, result, 3), -1);
    EXPECT_STREQ(result, "ab");
}

TEST(Newmorphtbl, LeavesOutBadLines) {
    const kit::Logged logged;
    const Rules rules({"A B", "/(x/y/", "[z y", "/a{1,255}{1,255}/y/", "B C", "C D\\"});
    EXPECT_EQ(rules.bad, 3);
    ASSERT_EQ(maxtbl(rules.table), 3);
    const auto* last = static_cast<Morph_rule*>(gettbl(rules.table, 1));
    EXPECT_STREQ(last->pattern, "B");
    EXPECT_STREQ(last->replacement, "C");
    EXPECT_EQ(last->line, 4);
    EXPECT_THAT(logged.text(), HasSubstr("'(x' did not compile: "));
    EXPECT_THAT(logged.text(), HasSubstr("'a{1,255}{1,255}' did not compile: "));
    EXPECT_EQ(rules.renamed("A", MORPH_ALL), "3 D");

    Tbl* empty = nullptr;
    EXPECT_EQ(newmorphtbl(nullptr, &empty), -1);
    EXPECT_EQ(maxtbl(empty), 0);
    freemorphtbl(empty);
    freemorphtbl(nullptr);
}

TEST(NewmorphtblDeathTest, EndsWithoutMemory) {
    const auto fail = [](long nth) {
        Tbl* lines = strtbl("/", nullptr);
        Tbl* table;
        morva::fail_allocation(nth, true);
        newmorphtbl(lines, &table);
    };
    const auto ended = testing::ExitedWithCode(1);
    // The list itself is the first.
    EXPECT_EXIT(fail(2), ended, "bytes for submap\n");
    EXPECT_EXIT(fail(3), ended, "bytes for s\n");
}

}  // namespace
