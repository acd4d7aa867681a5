#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

TEST(Strmatches, NeedsTheWholeString) {
    EXPECT_EQ(strmatches("BHZ", "BH.", nullptr), 1);
    EXPECT_EQ(strmatches("BHZ1", "BH.", nullptr), 0);
    EXPECT_EQ(strmatches("xBHZ", "BH.", nullptr), 0);
    EXPECT_EQ(strmatches("", "", nullptr), 1);
    EXPECT_EQ(strmatches("foobar", "foo|foobar", nullptr), 1) << "the longest alternative counts";
}

TEST(Strmatches, AHookKeepsItsFirstPattern) {
    Hook* hook = nullptr;
    EXPECT_EQ(strmatches("BHZ", "BH.", &hook), 1);
    ASSERT_NE(hook, nullptr);
    EXPECT_EQ(hook->check, 0x308E0BC3u);
    EXPECT_NE(hook->pvt, nullptr);
    EXPECT_EQ(strmatches("LHZ", "LH.", &hook), 0) << "a later pattern is ignored";
    int start, length;
    EXPECT_EQ(strcontains("__BHE_", "zzz", &hook, &start, &length), 1);
    EXPECT_EQ(start, 2);
    EXPECT_EQ(length, 3);
    free_hook(&hook);
    EXPECT_EQ(hook, nullptr);
    free_hook(&hook);
    free_hook(nullptr);
}

TEST(Strmatches, RegistersAPatternThatDoesNotCompileOnce) {
    Hook* hook = nullptr;
    kit::Logged logged;
    EXPECT_EQ(strmatches("x", "(x", &hook), -2);
    EXPECT_THAT(logged.text(), HasSubstr("'(x' did not compile: "));
    const std::string once = logged.text();
    EXPECT_EQ(strmatches("x", "(x", &hook), -1);
    int start = 7, length = 7;
    EXPECT_EQ(strcontains("x", "x", &hook, &start, &length), -1);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(logged.text(), once);
    free_hook(&hook);
    EXPECT_EQ(strmatches("x", "(x", nullptr), -2);
    EXPECT_EQ(strmatches("x", "(x", nullptr), -2);
}

TEST(Strcontains, GivesTheLeftmostLongestMatch) {
    int start = -1, length = -1;
    EXPECT_EQ(strcontains("xxabbbc", "ab|ab*", nullptr, &start, &length), 1);
    EXPECT_EQ(start, 2);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(strcontains("xx", "a", nullptr, &start, &length), 0);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(strcontains("xx", "$", nullptr, &start, &length), 1);
    EXPECT_EQ(start, 2);
    EXPECT_EQ(strcontains("ab", "a", nullptr, nullptr, nullptr), 1);
}

TEST(HookDeathTest, EndsOnARecordThatIsNoHook) {
    Hook hook = {};
    Hook* pointer = &hook;
    EXPECT_EXIT(free_hook(&pointer), testing::ExitedWithCode(1),
                "free_hook called with bad pointer.\n");
}

TEST(MatchString, AnchorsThePattern) {
    struct Row {
        const char *pattern, *string;
        int result;
    };
    for (const Row& row : {Row{"BH", "BHZ", 0},
                           {"BH.*", "BHZ", 1},
                           {"^BH", "BHZ", 0},
                           {"BH.$", "BHZ", 1},
                           {"", "x", 0},
                           {nullptr, "x", 0},
                           {"*", "", 1},
                           {"a|b", "ax", 1},
                           {"a|b", "xb", 1},
                           {"(a|b)", "xb", 0}})
        EXPECT_EQ(match_string(row.pattern, row.string), row.result)
            << okstr(row.pattern) << " " << row.string;
}

TEST(MatchString, ComplainsAboutAPatternThatDoesNotCompile) {
    const std::string shown = kit::captured(2, [] { EXPECT_EQ(match_string("(", "x"), 0); });
    EXPECT_THAT(shown, HasSubstr("match_string: "));
}

TEST(MatchString, TakesPatternsOfAnyUsefulLength) {
    const std::string pattern(600, 'a');
    EXPECT_EQ(match_string(pattern.c_str(), pattern.c_str()), 1);
    EXPECT_EQ(match_string(pattern.c_str(), "a"), 0);
}

TEST(MatchStachans, GivesThePositionOfTheFirstSelectingEntry) {
    struct Row {
        const char *spec, *station, *channel;
        int position;
    };
    for (const Row& row : {Row{nullptr, "X", "Y", 0},
                           {"", "X", "Y", 0},
                           {"*", "X", "Y", 1},
                           {" *\n", "X", "Y", 1},
                           {" \t\n", "X", "Y", 0},
                           {"BBB:BH.", "BBB", "BHZ", 1},
                           {"BBB:BH.", "BBB", "LHZ", 0},
                           {" AAK , * ", "X", "Y", 2},
                           {"AAK,BBB:BH.", "AAK", "LHZ", 1},
                           {"AAK,BBB:BH.", "BBB", "BHN", 2},
                           {",,AAK", "AAK", "Y", 3},
                           {"AA", "AAK", "Y", 0},
                           {"A:B:C", "A", "B:C", 1},
                           {"*:BHZ", "X", "BHZ", 1},
                           {"X:*", "X", "BHZ", 1},
                           {":BHZ", "X", "BHZ", 0},
                           {"X:", "X", "BHZ", 0},
                           {"A A K", "AAK", "Y", 1},
                           {",", "", "", 0}})
        EXPECT_EQ(match_stachans(row.spec, row.station, row.channel), row.position)
            << okstr(row.spec) << " " << row.station << " " << row.channel;
}

}  // namespace
