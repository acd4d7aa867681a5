#include <atomic>
#include <thread>

#include "base/memory.hpp"
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

std::string complaints(const std::function<void()>& body) {
    return kit::captured(2, body);
}

std::size_t count_of(std::string_view word, std::string_view text) {
    std::size_t count = 0;
    for (auto at = text.find(word); at != text.npos; at = text.find(word, at + 1)) ++count;
    return count;
}

TEST(MatchStachans, ComplainsOfABadPatternWheneverItIsTried) {
    const std::string shown = complaints([] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(match_stachans("A(:B,A", "A", "B"), 2);
            EXPECT_EQ(match_stachans("A(:B,A", "A", "C"), 2) << "the channel is tried first";
        }
    });
    EXPECT_EQ(count_of("match_string: ", shown), 3u) << shown;
}

TEST(MatchStachans, ReadsTheTextAndNotTheAddress) {
    char spec[] = "AAK";
    EXPECT_EQ(match_stachans(spec, "AAK", "BHZ"), 1);
    spec[0] = 'B';
    EXPECT_EQ(match_stachans(spec, "AAK", "BHZ"), 0);
    char pattern[] = "A.";
    EXPECT_EQ(match_string(pattern, "AB"), 1);
    pattern[0] = 'B';
    EXPECT_EQ(match_string(pattern, "AB"), 0);
}

TEST(MatchStachans, TakesListsOfAnyLength) {
    std::string spec;
    for (int i = 0; i < 3000; ++i) spec.append("S").append(std::to_string(i)).append(":BH.,");
    EXPECT_EQ(match_stachans(spec.c_str(), "S2999", "BHZ"), 3000);
    EXPECT_EQ(match_stachans(spec.c_str(), "S3000", "BHZ"), 0);
    EXPECT_EQ(match_stachans(std::string(100000, ',').append("A").c_str(), "A", ""), 100001);
}

TEST(MatchStachans, GivesMinusOneWhenMemoryRunsOut) {
    // One entry is never kept, the other only when the patterns need the C library.
    long failures = 0;
    for (long nth = 1; nth < 20; ++nth) {
        const std::string spec = std::string("X:BH.,A(A|K)+:BHZ,").append(std::to_string(nth));
        morva::fail_allocation(nth, true);
        const int position = match_stachans(spec.c_str(), "AAK", "BHZ");
        morva::fail_allocation(0, false);
        EXPECT_TRUE(position == -1 || position == 2) << position;
        failures += position == -1;
        EXPECT_EQ(match_stachans(spec.c_str(), "AAK", "BHZ"), 2)
            << "the next call has memory again";
    }
    EXPECT_GT(failures, 4);
}

int match_again(int, char*, Tbl*) {
    static int depth = 0;
    if (++depth < 3) {
        EXPECT_EQ(match_stachans("Q,(", "Q", "x"), 1);
        EXPECT_EQ(match_string("[[:digit:]]", "7"), 1);
    }
    --depth;
    return 0;
}

TEST(MatchStachans, MayBeCalledFromTheCallbackOfItsOwnComplaint) {
    elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(match_again));
    complaints([] { EXPECT_EQ(match_stachans("(,A", "A", "B"), 2); });
    complaints([] { EXPECT_EQ(match_stachans("(,A", "A", "B"), 2); });
    elog_set(ELOG_CALLBACK, 0, nullptr);
}

TEST(MatchersThreads, ShareAHookAndKeepTheirOwnLists) {
    Hook* good = nullptr;
    Hook* bad = nullptr;
    std::atomic<int> registered{0}, wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            const std::string station = std::string("S").append(std::to_string(t));
            const std::string spec = std::string(station).append(":BH.,*:LH.");
            for (int i = 0; i < 2000; ++i) {
                wrong += strmatches("BHZ", "BH[ZNE]", &good) != 1;
                registered += strmatches("x", "(x", &bad) == -2;
                wrong += match_stachans(spec.c_str(), station.c_str(), "BHZ") != 1;
                wrong += match_stachans(spec.c_str(), "none", "LHZ") != 2;
                wrong += match_string("(a|b)+", "abba") != 1;
                wrong += spaces(i % 64) == nullptr;  // its text holds for ten calls of all threads
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(registered, 1);
    free_hook(&good);
    free_hook(&bad);
    elog_clear();
}

}  // namespace
