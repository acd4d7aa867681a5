#include "base/pattern.hpp"

#include <chrono>
#include <random>

#include "support/kit.hpp"

namespace {

using morva::Pattern;
using morva::PatternTable;

std::string repeat(std::string_view text, int count, std::string_view before = "",
                   std::string_view behind = "") {
    std::string all(before);
    while (count-- > 0) all += text;
    return all.append(behind);
}

TEST(PatternCeiling, RefusesWhatWouldTakeMemoryOrMinutes) {
    const std::string rows[] = {
        "a{1,255}{1,255}",
        "a{1,30\\000}",
        "(((a{1,99}){1,99}){1,99}){1,99}",
        "a{1,32767}",
        "){1,30000}",
        "(a?){1000}",
        repeat("a?", 1900),
        "(a{0,40}){1,40}",
        repeat("(a+\\B|" + std::string(1500, '.') + ")" + repeat("(a|b)|", 90, "(", "c)"), 2),
        repeat("a?|", 1500, "^(", ")$"),
        "^(a|b|ab){1,1000}$",
        repeat("(", 5000, "", repeat(")", 5000, "a")),
        repeat("a|", 5000),
        std::string(20000, 'a'),
        repeat("(a*)*", 1000),
        "(a*)*\\1",
        "(a|b)\\1*b",
        "(.*)(.*)\\1\\2b",
        "((.)\\2){3}",
        "(.?.?.?.?.?)(.?.?.?.?)\\1\\2",
        "(.{1,30})\\1",
        "(.{1,})\\1",
        repeat("*", 100, "^(a", ")?"),
        "((a*){5,33})+",
        repeat("(a?|())", 46, "^"),
        "(\\ba*)*",
        repeat("\\b(a*)", 40),
        "(^a)*"};
    for (const std::string& row : rows) {
        Pattern pattern;
        morva::String reason;
        EXPECT_FALSE(pattern.compile(row.c_str(), &reason, Pattern::Groups::kKept))
            << row.substr(0, 40);
        EXPECT_FALSE(reason.empty());
    }
}

TEST(PatternCeiling, LeavesRoomForHonestPatterns) {
    const std::string rows[] = {"[A-Z]{3,5}_BH[ZNE]",
                                repeat("STATION|", 400, "", "X"),
                                "(.)(.)\\2\\1",
                                "(ab|cd)-\\1",
                                repeat("(", 50, "", repeat(")", 50, "a")),
                                "a{255}",
                                "a{1,255}",
                                "^.{1,255}$",
                                repeat("(^|_)STA(_|$)|", 100, "", "X"),
                                repeat("STA|", 300, "(^|_)(", "X)(_|$)"),
                                "^([a-z]{1,64}\\.){1,8}[a-z]{2,63}$",
                                repeat("STA_BH.*|", 800, "^", "X$"),
                                repeat("(STA)_(BH|HH)[ZNE]|", 600, "^", "X"),
                                repeat("[[:alpha:]]", 200),
                                "(a{10}){10}",
                                "^A.*$|^B.*$|^C.*$|^D.*$|^E.*$|^F.*$|^G.*$|^H.*$|^I.*$|^J.*$",
                                "(a*)*",
                                "(^|_)BH[ZNE](_[0-9]+)?$",
                                "(([a-z]+\\.)*[a-z]+,?)+",
                                "^((a|b*)c)*$"};
    for (const std::string& row : rows) {
        Pattern pattern;
        morva::String reason;
        EXPECT_TRUE(pattern.compile(row.c_str(), &reason, Pattern::Groups::kKept))
            << row.substr(0, 40) << ": " << reason;
    }
}

TEST(Pattern, GivesGroupsWhenAskedTo) {
    Pattern pattern;
    ASSERT_TRUE(pattern.compile("(B)(x)?H(.)", nullptr, Pattern::Groups::kKept));
    regmatch_t matches[4];
    ASSERT_TRUE(pattern.match_groups("aBHZb", matches, 4));
    EXPECT_EQ(matches[0].rm_so, 1);
    EXPECT_EQ(matches[1].rm_so, 1);
    EXPECT_EQ(matches[2].rm_so, -1);
    EXPECT_EQ(matches[3].rm_eo, 4);
}

// Random patterns over a small alphabet, and what the C library says of them.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}
    std::string pattern(int depth = 0) {
        std::string text;
        for (int i = pick(depth == 0 ? 6 : 4); i >= 0; --i) text += piece(depth);
        return pick(8) == 0 ? repeat(pattern(depth + 1), 1, text.append("|")) : text;
    }
    std::string string() {
        std::string text;
        for (int i = pick(9); i > 0; --i) text += "abcA1-\xe9\n|"[pick(9)];
        return text;
    }

  private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    std::string piece(int depth) {
        static const char* const kAtoms[] = {"a",
                                             "b",
                                             "c",
                                             "a",
                                             ".",
                                             "[ab]",
                                             "[^a]",
                                             "\\.",
                                             "\\|",
                                             "[a-c]",
                                             "[]a]",
                                             "[^]-]",
                                             "[-a]",
                                             "[[:alpha:]]",
                                             "A",
                                             "[[:digit:]b]",
                                             "[a\\]",
                                             "[A-C1]",
                                             "[^[:upper:]]",
                                             "-",
                                             "1",
                                             "[[a]",
                                             "\\w",
                                             "[c-a]",
                                             "[[=a=]]",
                                             "\\<",
                                             "()"};
        static const char* const kRepetitions[] = {"*",    "+",    "?",   "{2}", "{0,2}",
                                                   "{1,}", "{,2}", "**",  "+?",  "{2}{2}",
                                                   "{0}",  "{x}",  "*{2}"};
        if (pick(8) == 0) return pick(2) == 0 ? "^" : "$";
        std::string text = kAtoms[pick(pick(3) ? 8 : std::size(kAtoms))];
        if (depth < 3 && pick(4) == 0) text = repeat(pattern(depth + 1), 1, "(", ")");
        if (pick(40) == 0) text = "";
        if (pick(3) == 0) text += kRepetitions[pick(pick(3) ? 3 : std::size(kRepetitions))];
        return text;
    }
    std::mt19937 random_;
};

// The groups that took part, as "0-3 1-2 5-5".
std::string places(const std::vector<regmatch_t>& matches) {
    std::string text;
    for (const regmatch_t& match : matches)
        text += std::to_string(match.rm_so) + "-" + std::to_string(match.rm_eo) + " ";
    return text;
}

TEST(Pattern, FindsGroupsAsTheCLibraryDoes) {
    Generator generate(20261122);
    long placed = 0;
    for (long i = 0; i < 10000; ++i) {
        const std::string text = "(" + generate.pattern(2) + ")" + generate.pattern(1);
        Pattern pattern;
        if (!pattern.compile(text.c_str(), nullptr, Pattern::Groups::kKept)) continue;
        PatternTable table;
        morva::GroupLayout layout;
        if (table.build(text.c_str()) && layout.read(text.c_str())) ++placed;
        regex_t regex;
        ASSERT_EQ(regcomp(&regex, text.c_str(), REG_EXTENDED), 0) << text;
        for (int j = 0; j < 10; ++j) {
            const std::string string = generate.string();
            std::vector<regmatch_t> ours(11, {7, 7}), theirs(11, {7, 7});
            const bool found = pattern.match_groups(string.c_str(), ours.data(), 11);
            ASSERT_EQ(found, regexec(&regex, string.c_str(), 11, theirs.data(), 0) == 0) << text;
            if (!found) continue;
            ASSERT_EQ(places(ours), places(theirs)) << text << " on " << string;
        }
        regfree(&regex);
    }
    EXPECT_GT(placed, 1000);
}

// The C library's verdict on one string as "start+length", or "none".
std::string verdict(bool found, long start, long length) {
    return found ? std::to_string(start) + "+" + std::to_string(length) : "none";
}

TEST(PatternTable, AgreesWithTheCLibrary) {
    const char* rounds = getenv("MORVA_ROUNDS");
    Generator generate(20240607);
    long tables = 0;
    for (long i = rounds ? atol(rounds) : 20000; i > 0; --i) {
        const std::string text = generate.pattern();
        PatternTable table;
        if (!table.build(text.c_str())) continue;
        ++tables;
        regex_t regex;
        ASSERT_EQ(regcomp(&regex, text.c_str(), REG_EXTENDED), 0) << text;
        for (int j = 0; j < 10; ++j) {
            const std::string string = generate.string();
            regmatch_t match;
            const bool found = regexec(&regex, string.c_str(), 1, &match, 0) == 0;
            const bool whole = found && match.rm_so == 0 && match.rm_eo == (long)string.size();
            int start = 0, length = 0;
            const bool ours = table.search(string.c_str(), &start, &length);
            ASSERT_EQ(verdict(ours, start, length),
                      verdict(found, match.rm_so, match.rm_eo - match.rm_so))
                << "'" << text << "' on '" << string << "'";
            ASSERT_EQ(table.matches_whole(string.c_str()), whole) << text << " on " << string;
            ASSERT_EQ(table.found_in(string.c_str()), found) << text << " on " << string;
        }
        regfree(&regex);
    }
    EXPECT_GT(tables, 1000);
}

}  // namespace
