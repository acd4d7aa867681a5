#include "morva/elog.h"

#include <cerrno>
#include <climits>

#include "support/kit.hpp"

namespace {

using testing::EndsWith;
using testing::StartsWith;

// A program named prog with an empty register. (Every test has a process of its own.)
class Elog : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/opt/bin/prog";
        char* argv[] = {name, nullptr};
        elog_init(1, argv);
        elog_clear();
    }
    void TearDown() override { elog_clear(); }
};

std::string text(int start = 0) {
    return kit::taken(elog_string(start));
}

using ElogRegister = Elog;

TEST_F(ElogRegister, ShowsTheWholeStoryInOrderAndForgetsIt) {
    const std::string shown = kit::captured(2, [] {
        errno = ENOENT;
        elog_log(1, "can't open %s", "x");
        EXPECT_EQ(errno, 0);
        elog_log(0, "giving up on y\n");
        elog_complain(0, "run failed\n");
    });
    EXPECT_EQ(shown,
              "prog: can't open x\n\tNo such file or directory\nprog: giving up on y\n"
              "prog: run failed\n");
    EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogRegister, LaysOutEverySortOfText) {
    struct {
        const char* format;
        int error;
        const char* expected;
    } const rows[] = {
        {"x", 0, "prog: x\n"},
        {"x\n", 0, "prog: x\n"},
        {"", 0, "\n"},
        {"\n", 0, "\n"},
        {"\nx", 0, "\nprog: x\n"},
        {"\n\n", 0, "\nprog: \n"},
        {"x", EACCES, "prog: x\n\tPermission denied\n"},
        {"x", 98765, "prog: x\n\tUnknown error 98765\n"},
    };
    for (const auto& row : rows) {
        errno = row.error;
        elog_log(1, "%s", row.format);
        EXPECT_EQ(text(), row.expected);
        elog_clear();
        errno = row.error;
        EXPECT_EQ(kit::taken(elogs(ELOG_LOG, 1, "%s", row.format)), row.expected);
        EXPECT_EQ(elog_mark(), 0) << "elogs registers nothing";
    }
    void (*const unchecked)(int, const char*, ...) = elog_log;
    unchecked(0, nullptr);
    EXPECT_EQ(text(), "\n");
}

// The frequent conversions do not go through the C library, but read the same.
TEST_F(ElogRegister, FormatsAsTheCLibraryDoes) {
    const auto same = [](auto... arguments) {
        char expected[500];
        void (*const unchecked)(int, const char*, ...) = elog_log;
        int (*const print)(char*, size_t, const char*, ...) = snprintf;
        print(expected, sizeof expected, arguments...);
        unchecked(0, arguments...);
        EXPECT_EQ(text(), std::string("prog: ") + expected + "\n");
        elog_clear();
    };
    const char* volatile null = nullptr;
    const char* const nowhere = null;  // the compiler is not to know
    same("%s|%s|%s", "a", "", "long enough for more than a word");
    same("%d|%d|%i|%u|%u", INT_MIN, 0, INT_MAX, UINT_MAX, 0u);
    same("%ld|%li|%lu|%ld", LONG_MIN, LONG_MAX, ULONG_MAX, 0L);
    same("%c|%%|%c%%", 'x', 'y');
    same("%5d|%-5d|%05d|%+d|%x|%lx", 12, 12, 12, 12, 255, 255L);
    same("%d %s %g %s", 1, "before", 2.5, "after what is not simple");
    same("%.2s|%5s|%ls|%s", "abc", "abc", L"wide", nowhere);
    same("%lld|%zu|%hhd|%p", 1LL, size_t{2}, 3, static_cast<void*>(nullptr));
    same("%2$s %1$s", "world", "hello");
}

TEST_F(ElogRegister, CountsRepeatsOfTheLastTextOnly) {
    elog_log(0, "x");
    elog_log(0, "x\n");
    elog_log(0, "x");
    EXPECT_EQ(elog_mark(), 1);
    EXPECT_EQ(text(), "prog: x\n\t** repeated 3 times\n");
    elog_log(0, "y");
    elog_log(0, "x");
    elog_log(0, "\nx");
    elog_log(0, "\nx");
    elog_log(0, "x");
    EXPECT_EQ(text(1), "prog: y\nprog: x\n\nprog: x\n\t** repeated 2 times\nprog: x\n");
}

TEST_F(ElogRegister, CutsLongTexts) {
    const std::string mark = "\n\t...  ** truncated by elog ***\n";
    elog_set(ELOG_TAG, 99, const_cast<char*>(""));
    const std::string fits(10238, 'a'), brim(10239, 'a'), over(10240, 'a'), huge(20000, 'a');
    for (const std::string& whole : {fits, brim}) {
        elog_log(0, "%s", whole.c_str());
        EXPECT_EQ(text(), whole + "\n");
        elog_clear();
    }
    for (const std::string& cut : {over, huge}) {
        elog_log(0, "%s", cut.c_str());
        EXPECT_EQ(text(), cut.substr(0, 10239 - mark.size()) + mark);
        elog_clear();
    }
    elog_set(ELOG_TAG, 99, const_cast<char*>("%P"));
}

TEST_F(ElogRegister, MarksFlushesAndTruncates) {
    elog_log(0, "a");
    const int mark = elog_mark();
    elog_log(0, "b");
    elog_log(0, "c");
    EXPECT_EQ(kit::captured(2, [&] { EXPECT_EQ(elog_flush(0, mark), 0); }), "");
    EXPECT_EQ(text(), "prog: a\n");
    elog_log(0, "b");
    EXPECT_EQ(kit::captured(2, [&] { elog_flush(1, mark); }), "prog: b\n");
    EXPECT_EQ(text(), "prog: a\n");
    elog_log(0, "b");
    EXPECT_EQ(elog_truncate(7), 0);
    EXPECT_EQ(kit::written([](FILE* f) { elog_print(f, 1); }), "prog: b\n");
    EXPECT_EQ(kit::written([](FILE* f) { elog_print(f, -3); }), "prog: a\nprog: b\n");
    elog_truncate(-1);
    EXPECT_EQ(elog_mark(), 0);
    elog_log(0, "d");
    errno = EIO;
    EXPECT_EQ(kit::captured(2, [] { elog_clear_register(1); }), "prog: d\n");
    EXPECT_EQ(errno, 0);
}

TEST(ElogDeathTest, DiesWithTheWholeStory) {
    EXPECT_EXIT(
        {
            elog_log(0, "reason");
            errno = ENOENT;
            elog_die(1, "end of %s", "story");
        },
        testing::ExitedWithCode(1),
        "^Unknown_Program: reason\nUnknown_Program \\*fatal\\*: end of story\n"
        "\tNo such file or directory\n$");
    EXPECT_EXIT(elog_fault(0, "bad"), testing::KilledBySignal(SIGABRT),
                "^Unknown_Program \\*fault\\*: bad\n$");
}

TEST(ElogDeathTest, EndsAtTheLimit) {
    const auto log_four = [] {
        elog_set(ELOG_MAXMSG, 0, reinterpret_cast<void*>(intptr_t{3}));
        for (const char* s : {"a", "b", "c", "d"}) elog_log(0, "%s", s);
        std::exit(0);
    };
    EXPECT_EXIT(log_four(), testing::ExitedWithCode(1),
                "^Unknown_Program: a\nUnknown_Program: b\nUnknown_Program: c\n"
                "Unknown_Program \\*fatal\\*: quitting because log has 3 messages\n"
                "   eliminate this limit with\n      setenv ELOG_MAXMSG 0\n"
                "   or by editing elog.pf.  See elog\\(3\\).\n$");
}

}  // namespace
