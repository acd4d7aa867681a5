#include <sys/wait.h>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

using kit::taken;

// The record behind a string stack, as it is documented.
struct Stack {
    uint64_t size, length;
    char* s;
};
const Stack& record(void* stack) {
    return *static_cast<Stack*>(stack);
}

TEST(StringStack, GrowsToExactlyWhatIsNeeded) {
    void* stack = nullptr;
    EXPECT_EQ(pushstr(&stack, std::string(300, 'a').c_str()), 300);
    EXPECT_EQ(record(stack).size, 1500u);
    EXPECT_EQ(pushstr(&stack, std::string(1199, 'b').c_str()), 1499);
    EXPECT_EQ(record(stack).size, 1500u) << "it just fits";
    EXPECT_EQ(pushstr(&stack, std::string(101, 'c').c_str()), 1600);
    EXPECT_EQ(record(stack).size, 1601u);
    EXPECT_EQ(pushstrc(&stack, 'd'), 1601);
    EXPECT_EQ(record(stack).size, 1602u);
    EXPECT_EQ(pushstrn(&stack, "efg", 10), 1604);
    EXPECT_EQ(record(stack).size, 1601u + 10 + 2);
    EXPECT_STREQ(record(stack).s + 1599, "cdefg");
    EXPECT_EQ(taken(popstr(&stack, 1)).size(), 1604u);
    EXPECT_EQ(stack, nullptr);
}

TEST(StringStack, BeginsWithRoomFor1024) {
    struct Row {
        size_t length, size;
    };
    for (const Row& row : {Row{0, 1024}, {204, 1024}, {205, 1025}, {1000, 5000}}) {
        const std::string text(row.length, 'x');
        void *by_push = nullptr, *by_count = nullptr;
        pushstr(&by_push, text.c_str());
        pushstrn(&by_count, "y", static_cast<int>(row.length));
        EXPECT_EQ(record(by_push).size, row.size);
        EXPECT_EQ(record(by_count).size, row.size);
        EXPECT_EQ(taken(popstr(&by_push, 1)), text);
        EXPECT_EQ(taken(popstr(&by_count, 1)), row.length ? "y" : "");
    }
    void* stack = nullptr;
    EXPECT_EQ(pushstrc(&stack, 'z'), 1);
    EXPECT_EQ(record(stack).size, 1024u);
    free(popstr(&stack, 1));
}

TEST(StringStack, PopsWithAndWithoutRelease) {
    void* stack = nullptr;
    EXPECT_EQ(taken(popstr(&stack, 0)), "");
    EXPECT_EQ(taken(popstr(&stack, 1)), "");
    EXPECT_EQ(stack, nullptr);
    pushstrn(&stack, "abcdef", 3);
    EXPECT_EQ(pushstrn(&stack, "x", 0), 3);
    char* text = popstr(&stack, 0);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(pushstr(&stack, text), 6) << "its own text may be pushed again";
    EXPECT_EQ(taken(popstr(&stack, 1)), "abcabc");
}

TEST(StringStack, EqualsAStringAfterManyPushes) {
    void* stack = nullptr;
    std::string model;
    for (int i = 0; i < 3000; ++i) {
        const std::string piece(static_cast<size_t>(i * 7 % 41), static_cast<char>('a' + i % 26));
        if (i % 3 == 0) pushstr(&stack, piece.c_str()), model += piece;
        if (i % 3 == 1) pushstrc(&stack, 'C'), model += 'C';
        if (i % 3 == 2) pushstrn(&stack, piece.c_str(), 10), model += piece.substr(0, 10);
        if (i % 500 == 0) pushstr(&stack, popstr(&stack, 0)), model += std::string(model);
        ASSERT_EQ(record(stack).length, model.size());
    }
    EXPECT_EQ(taken(popstr(&stack, 1)), model);
}

TEST(StringStack, JoinsArguments) {
    EXPECT_EQ(taken(strconcat("a", "", "bc", nullptr)), "abc");
    EXPECT_EQ(taken(strconcat(nullptr, nullptr)), "");
    EXPECT_EQ(taken(strjoin(':', "a", "", "bc", nullptr)), "a::bc");
    EXPECT_EQ(taken(strjoin(':', "", "x", nullptr)), ":x");
    EXPECT_EQ(taken(strjoin(':', nullptr, nullptr)), "");
}

TEST(Strhead, TakesWholeLines) {
    EXPECT_EQ(taken(strhead("one\ntwo\n", 2, "> ")), "> one\n> two\n> ...\n");
    EXPECT_EQ(taken(strhead("one\ntwo\nthree", 1, nullptr)), "one\n...\n");
    EXPECT_EQ(taken(strhead("one\ntwo", 5, "#")), "#one\n") << "no newline: left out";
    EXPECT_EQ(taken(strhead("one", 1, "#")), "");
    EXPECT_EQ(taken(strhead("one\n", 0, "#")), "#...\n");
}

class Lines : public testing::Test {
  protected:
    FILE* open(std::string_view text) {
        kit::write_file(dir_.file("lines"), text);
        return stream_ = fopen(dir_.file("lines").c_str(), "r");
    }
    void TearDown() override { fclose(stream_); }
    kit::TempDir dir_;
    FILE* stream_ = nullptr;
};

TEST_F(Lines, GetalineFillsASmallBufferAndNoMore) {
    FILE* stream = open("abcdefgh\n\nij");
    kit::Guarded room(std::string(6, '#'));
    for (const char* line : {"abcd", "efgh", "", "", "ij"}) {
        ASSERT_EQ(getaline(stream, room.data(), 6), room.data()) << line;
        EXPECT_STREQ(room.data(), line);
        EXPECT_EQ(room.data()[5], '\0');
    }
    EXPECT_EQ(getaline(stream, room.data(), 6), nullptr);
    EXPECT_EQ(getaline(nullptr, room.data(), 6), nullptr);
    rewind(stream);
    EXPECT_EQ(getaline(stream, room.data(), 2), nullptr) << "no room for a character";
}

TEST_F(Lines, IntactlineDoublesUntilTheLineFits) {
    const std::string fits(1022, 'a'), longer(1023, 'b'), last(5000, 'c');
    FILE* stream = open(fits + "\n" + longer + "\n\n" + std::string("x\0y\n", 4) + last);
    char* buffer = nullptr;
    int size = 0;
    ASSERT_EQ(intactline(stream, &buffer, &size), buffer);
    EXPECT_EQ(buffer, fits);
    EXPECT_EQ(size, 1024);
    ASSERT_NE(intactline(stream, &buffer, &size), nullptr);
    EXPECT_EQ(buffer, longer);
    EXPECT_EQ(size, 2048);
    ASSERT_NE(intactline(stream, &buffer, &size), nullptr);
    EXPECT_STREQ(buffer, "");
    ASSERT_NE(intactline(stream, &buffer, &size), nullptr);
    EXPECT_EQ(std::string(buffer, 4), std::string("x\0y\0", 4));
    ASSERT_NE(intactline(stream, &buffer, &size), nullptr);
    EXPECT_EQ(buffer, last);
    EXPECT_EQ(size, 8192);
    EXPECT_EQ(intactline(stream, &buffer, &size), nullptr);
    free(buffer);
}

class Xargs : public testing::Test {
  protected:
    ~Xargs() override { freetbl(items_, nullptr); }
    std::string output() { return kit::read_file(dir_.file("out")); }
    kit::TempDir dir_;
    Tbl* items_ = newtbl(5);
};

TEST_F(Xargs, RunsBatchesOfAtMost512Characters) {
    std::vector<std::string> words(100, "word-of-16-chars");
    for (std::string& word : words) pushtbl(items_, word.data());
    const std::string suffix = ">> " + dir_.file("out");
    EXPECT_EQ(xargs("echo", items_, suffix.c_str(), 0), 0);
    std::string text = output();
    const size_t per_batch = (512 - 4 - 1 - suffix.size()) / 17;
    size_t lines = 0, all = 0;
    for (char* line = strtok(text.data(), "\n"); line != nullptr; line = strtok(nullptr, "\n")) {
        const size_t words_here = (strlen(line) + 1) / 17;
        EXPECT_EQ(words_here, std::min(per_batch, 100 - all));
        all += words_here;
        ++lines;
    }
    EXPECT_EQ(all, 100u);
    EXPECT_EQ(lines, (100 + per_batch - 1) / per_batch);
}

TEST_F(Xargs, RunsALongItemAloneAndShowsCommands) {
    char small[] = "a", next[] = "b";
    std::string large(600, 'x');
    for (char* item : {small, large.data(), next}) pushtbl(items_, item);
    const std::string shown =
        kit::captured(2, [&] { EXPECT_EQ(xargs("true", items_, nullptr, 1), 0); });
    const size_t first = shown.find("true a\n"), second = shown.find("true " + large),
                 third = shown.find("true b");
    EXPECT_NE(first, std::string::npos) << shown;
    EXPECT_NE(second, std::string::npos);
    EXPECT_LT(second, third);
}

TEST_F(Xargs, ReportsACommandThatFails) {
    char item[] = "1";
    kit::Logged logged;
    EXPECT_EQ(xargs("exit", items_, nullptr, 0), 0) << "nothing to run";
    pushtbl(items_, item);
    EXPECT_EQ(xargs("exit", items_, nullptr, 0), -1);
    EXPECT_THAT(logged.text(), testing::HasSubstr("'exit 1' failed"));
}

TEST(Listings, ShowListsArraysAndBytes) {
    char one[] = "one", two[] = "two";
    Tbl* tbl = newtbl(2);
    pushtbl(tbl, one);
    pushtbl(tbl, two);
    EXPECT_EQ(kit::written([&](FILE* f) { debugtbl(f, "list\n", tbl); }),
              "list\n\t  0 one\n\t  1 two\n");
    freetbl(tbl, nullptr);
    Arr* arr = newarr(nullptr);
    setarr(arr, "zeta", two);
    setarr(arr, "alpha", one);
    EXPECT_EQ(kit::written([&](FILE* f) { debugarr(f, nullptr, arr); }),
              "\talpha           one\n\tzeta            two\n");
    freearr(arr, nullptr);
    const auto shown = [](const char* text, int n) {
        return kit::written([=](FILE* f) { debugchar(f, "t:", text, n); });
    };
    EXPECT_EQ(shown(nullptr, 5), "t:''");
    EXPECT_EQ(shown("", 5), "t:''");
    EXPECT_EQ(shown("abc\x01xyz", 0), "t:abc");
    EXPECT_EQ(shown("abcdef", 2), "t:ab");
    EXPECT_EQ(shown(std::string(99, 'x').c_str(), -1), "t:" + std::string(50, 'x'));
    // Sixteen bytes, but never more than there are.
    const char bytes[] = "\x01-------bytes---";
    for (int n : {1, 3, 15, 16, 17, 0, -1}) {
        const int dumped = n > 0 && n < 16 ? n : 16;
        const kit::Guarded room(std::string_view(bytes, static_cast<size_t>(dumped)));
        EXPECT_EQ(shown(room.data(), n),
                  "t:" + kit::written([&](FILE* f) { hexdump(f, bytes, dumped); }));
    }
}

// Every routine that allocates, with each of its allocations failing in turn.
struct Exhausted {
    const char* name;
    void (*body)();
    const char* what;
};
void* filled_stack() {
    static char full[2000];
    memset(full, 'x', sizeof full - 1);
    void* stack = nullptr;
    pushstr(&stack, full);
    return stack;
}
const Exhausted kExhausted[] = {
    {"memdup", [] { memdup("abc", 4); }, "b"},
    {"pushstr",
     [] {
         void* s = nullptr;
         pushstr(&s, "x");
     },
     "vstk|vstk->s"},
    {"pushstrc",
     [] {
         void* s = nullptr;
         pushstrc(&s, 'x');
     },
     "vstk|vstk->s"},
    {"pushstrn",
     [] {
         void* s = nullptr;
         pushstrn(&s, "x", 3);
     },
     "vstk|vstk->s"},
    {"popstr",
     [] {
         void* s = nullptr;
         popstr(&s, 1);
     },
     "vstk->s"},
    {"grow",
     [] {
         void* s = filled_stack();
         pushstrn(&s, "x", 20000);
     },
     "vstk|vstk->s"},
    {"strconcat", [] { strconcat("a", nullptr); }, "vstk|vstk->s"},
    {"strhead", [] { strhead("a\n", 1, ""); }, "vstk|vstk->s"},
    {"intactline",
     [] {
         char* buffer = nullptr;
         int size = 0;
         static char text[1500];
         memset(text, 'x', sizeof text);
         FILE* stream = fmemopen(text, sizeof text, "r");
         intactline(stream, &buffer, &size);
     },
     "\\*aline"},
    {"levenshtein_distance",
     [] { levenshtein_distance(std::string(99, 'a').c_str(), std::string(99, 'b').c_str()); }, "d"},
    {"new_hook", [] { new_hook(nullptr); }, "pvt"},
    {"strmatches",
     [] {
         Hook* hook = nullptr;
         strmatches("a", "(a)", &hook);
     },
     "pvt"},
};

// Whether the body ends its process when allocation n fails.
bool dies(void (*body)(), long nth) {
    const pid_t child = fork();
    if (child == 0) {
        close(2);
        morva::fail_allocation(nth, false);
        body();
        _exit(99);
    }
    int status;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status) != 99;
}

TEST(StringsDeathTest, DieNamingWhatTheyCouldNotAllocate) {
    for (const Exhausted& row : kExhausted) {
        for (long nth = 1; nth < 20; ++nth) {
            SCOPED_TRACE(std::string(row.name) + " at allocation " + std::to_string(nth));
            if (!dies(row.body, nth)) {
                EXPECT_GT(nth, 1);
                break;
            }
            EXPECT_EXIT(
                {
                    morva::fail_allocation(nth, false);
                    row.body();
                },
                testing::ExitedWithCode(1),
                "Out of memory in [a-z_]+ at line [0-9]+ of '[a-z_]+\\.cpp'\n\tCan't malloc [0-9]+ "
                "bytes for (" +
                    std::string(row.what) + ")\n");
        }
    }
}

}  // namespace
