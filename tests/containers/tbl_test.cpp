#include "morva/tbl.h"

#include <algorithm>
#include <climits>

#include "base/memory.hpp"
#include "tbl_lists.hpp"

namespace {

using kit::Logged;
using lists::ints;
using lists::ints_list;
using lists::List;
using lists::number;
using lists::word;
using lists::words;
using lists::words_list;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(TblAccess, OutsideTheListIsTheNullValue) {
    List pointers = words_list({1, 2});
    EXPECT_EQ(gettbl(pointers.get(), -1), nullptr);
    EXPECT_EQ(gettbl(pointers.get(), 2), nullptr);
    EXPECT_EQ(addrtbl(pointers.get(), 2), nullptr);
    EXPECT_EQ(*static_cast<void**>(addrtbl(pointers.get(), 1)), word(2));

    const int none = -7;
    List by_value = ints_list({}, &none);
    for (void* item : {gettbl(by_value.get(), 0), poptbl(by_value.get()), shifttbl(by_value.get()),
                       deltbl(by_value.get(), 0)})
        EXPECT_EQ(*static_cast<int*>(item), -7);
    EXPECT_EQ(maxtbl(by_value.get()), 0);
}

TEST(TblAccess, StoringBehindTheEndFillsTheGapWithTheNullValue) {
    List pointers(newtbl(0));
    EXPECT_EQ(settbl(pointers.get(), 25, word(9)), 25);
    EXPECT_EQ(maxtbl(pointers.get()), 26);
    for (long i = 0; i < 25; ++i) EXPECT_EQ(gettbl(pointers.get(), i), nullptr);

    const int none = -7, one = 1;
    List by_value = ints_list({}, &none);
    settbl(by_value.get(), 3, &one);
    settbl(by_value.get(), -1, nullptr);
    EXPECT_THAT(ints(by_value.get()), ElementsAre(-7, -7, -7, 1, -7));
}

// What pops leave in the spare slots shows again: settbl does not rewrite the slots it skips.
TEST(TblAccess, StoringBehindTheEndKeepsWhatSpareSlotsHeld) {
    List list = words_list({1, 2, 3});
    EXPECT_EQ(poptbl(list.get()), word(3));
    EXPECT_EQ(poptbl(list.get()), word(2));
    settbl(list.get(), 3, word(4));
    EXPECT_THAT(words(list.get()), ElementsAre(1, 2, 3, 4));
}

TEST(TblAccess, InsertsAndDeletes) {
    List list = words_list({1, 2, 3});
    EXPECT_EQ(instbl(list.get(), 100, word(4)), 3);
    EXPECT_EQ(instbl(list.get(), -5, word(0)), 0);
    EXPECT_EQ(instbl(list.get(), 2, word(15)), 2);
    EXPECT_THAT(words(list.get()), ElementsAre(0, 1, 15, 2, 3, 4));
    EXPECT_EQ(deltbl(list.get(), 2), word(15));
    EXPECT_EQ(deltbl(list.get(), 4), word(4));
    EXPECT_THAT(words(list.get()), ElementsAre(0, 1, 2, 3));

    List by_value = ints_list({5, 6, 7});
    void* removed = deltbl(by_value.get(), 0);
    EXPECT_EQ(*static_cast<int*>(removed), 5);
    EXPECT_EQ(deltbl(by_value.get(), 0), removed);
    EXPECT_EQ(*static_cast<int*>(removed), 6);
    EXPECT_THAT(ints(by_value.get()), ElementsAre(7));
}

// An item may be taken from the list that it goes into, even when the list's block moves.
TEST(TblAccess, TakesItemsOutOfItself) {
    List list = ints_list({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    for (int i = 0; i < 1000; ++i) {
        pushtbl(list.get(), shifttbl(list.get()));
        pushtbl(list.get(), gettbl(list.get(), 0));
        poptbl(list.get());
        unshifttbl(list.get(), poptbl(list.get()));
        unshifttbl(list.get(), poptbl(list.get()));
        instbl(list.get(), 1, shifttbl(list.get()));
        pushtbl(list.get(), shifttbl(list.get()));
    }
    std::vector<int> items = ints(list.get());
    std::sort(items.begin(), items.end());
    EXPECT_THAT(items, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
}

// ---- growth: the record's fields follow the documented steps

struct Shape {
    long first, count, alloc_end, left, right;
    bool operator==(const Shape&) const = default;
};
void PrintTo(const Shape& s, std::ostream* out) {
    *out << s.first << ' ' << s.count << ' ' << s.alloc_end << ' ' << s.left << ' ' << s.right;
}
Shape shape(const List& list) {
    return {list->first, list->count, list->alloc_end, list->left_increment, list->right_increment};
}
void push(const List& list, int times) {
    for (int i = 0; i < times; ++i) pushtbl(list.get(), word(i));
}
void shift(const List& list, int times) {
    for (int i = 0; i < times; ++i) shifttbl(list.get());
}
void unshift(const List& list, int times) {
    for (int i = 0; i < times; ++i) unshifttbl(list.get(), word(-i));
}

TEST(TblGrowth, AtTheEndDoublesTheIncrement) {
    List list(newtbl(0));
    EXPECT_EQ(shape(list), (Shape{0, 0, 0, 10, 10}));
    EXPECT_EQ(list->base, nullptr);
    push(list, 1);
    EXPECT_EQ(shape(list), (Shape{0, 1, 10, 10, 20}));
    push(list, 10);
    EXPECT_EQ(shape(list), (Shape{0, 11, 30, 10, 40}));
    settbl(list.get(), 129, word(1));
    EXPECT_EQ(shape(list), (Shape{0, 130, 130, 10, 200})) << "at least what is needed";
}

TEST(TblGrowth, AtTheEndSlidesWhenTheFrontHasRoom) {
    List list(newtbl(10));
    push(list, 30);
    shift(list, 20);
    EXPECT_EQ(shape(list), (Shape{-20, 10, 10, 10, 40}));
    push(list, 1);
    EXPECT_EQ(shape(list), (Shape{-20, 11, 50, 10, 80})) << "half an increment is not enough";
    shift(list, 10);
    push(list, 39);
    EXPECT_EQ(shape(list), (Shape{-30, 40, 40, 10, 80}));
    shift(list, 11);
    push(list, 1);
    EXPECT_EQ(shape(list), (Shape{0, 30, 70, 10, 80})) << "slid, not doubled";
    EXPECT_EQ(gettbl(list.get(), 29), word(0));
    settbl(list.get(), 40, word(9));
    EXPECT_EQ(gettbl(list.get(), 35), nullptr) << "freed slots hold the null value again";
}

TEST(TblGrowth, AtTheEndEnlargesWhenSlidingGivesTooLittle) {
    List list(newtbl(40));
    push(list, 40);
    shift(list, 25);
    list->right_increment = 40;
    settbl(list.get(), 15 + 39, word(9));
    EXPECT_EQ(shape(list), (Shape{0, 55, 55, 10, 40}));
    EXPECT_EQ(gettbl(list.get(), 0), word(25));
    EXPECT_EQ(gettbl(list.get(), 53), nullptr);
}

TEST(TblGrowth, AtTheFront) {
    List list(newtbl(0));
    unshift(list, 1);
    EXPECT_EQ(shape(list), (Shape{-9, 1, 1, 20, 10})) << "placed at the end of the new slots";
    unshift(list, 10);
    EXPECT_EQ(shape(list), (Shape{-19, 11, 11, 40, 10}));
    push(list, 25);
    ASSERT_EQ(shape(list), (Shape{0, 36, 40, 40, 20}));
    for (int i = 0; i < 21; ++i) poptbl(list.get());
    unshift(list, 1);
    EXPECT_EQ(shape(list), (Shape{-24, 16, 16, 40, 20})) << "slid to the end, not doubled";
    EXPECT_EQ(gettbl(list.get(), 1), word(-9));
}

TEST(TblGrowth, ReusesTheSlotThatShiftFreed) {
    List list = words_list({1, 2, 3});
    void* slot = addrtbl(list.get(), 1);
    shifttbl(list.get());
    unshifttbl(list.get(), word(7));
    EXPECT_EQ(addrtbl(list.get(), 1), slot);
    EXPECT_THAT(words(list), ElementsAre(7, 2, 3));
}

// ---- null values and whole lists

std::vector<long> g_seen;
void note_word(void* item) {
    g_seen.push_back(number(item));
}
void note_int(void* item) {
    g_seen.push_back(*static_cast<int*>(item));
}

TEST(TblNullValue, IsNotFreedAndComesBackInTruncatedSlots) {
    g_seen.clear();
    List pointers = words_list({1, 0, 3});
    trunctbl(pointers.get(), 1, note_word);
    EXPECT_THAT(g_seen, ElementsAre(3));
    settbl(pointers.get(), 3, word(4));
    EXPECT_THAT(words(pointers), ElementsAre(1, 0, 3, 4)) << "slots of pointers are not reset";

    const int none = -7;
    for (const int* null_value : {&none, static_cast<const int*>(nullptr)}) {
        g_seen.clear();
        List list = ints_list({5, 0, -7, 6}, null_value);
        clrtbl(list.get(), note_int);
        const int null = null_value != nullptr ? -7 : 0;
        EXPECT_THAT(g_seen, ElementsAre(5, null == 0 ? -7 : 0, 6));
        settbl(list.get(), 3, nullptr);
        EXPECT_THAT(ints(list), ElementsAre(null, null, null, null));
    }
    List kept = ints_list({5, 6});
    trunctbl(kept.get(), -3, nullptr);
    EXPECT_EQ(maxtbl(kept.get()), 0);
    const int item = 9;
    settbl(kept.get(), 1, &item);
    EXPECT_THAT(ints(kept), ElementsAre(5, 9)) << "only a free function resets slots";
}

// The pointer that fills new slots is as little the program's to free as the one that reads outside
// give.
TEST(TblNullValue, OfPointersIsNotFreed) {
    void* const none = word(77);
    List list(inittbl(0, 0, 0, &none, sizeof none));
    settbl(list.get(), 2, word(5));
    EXPECT_THAT(words(list), ElementsAre(77, 77, 5));
    EXPECT_EQ(gettbl(list.get(), 3), list->null_value);
    pushtbl(list.get(), gettbl(list.get(), -1));
    g_seen.clear();
    clrtbl(list.get(), note_word);
    EXPECT_THAT(g_seen, ElementsAre(5));
}

// A hint may come from a caller who declares it an int.
TEST(TblGrowth, IgnoresHintsBelowOne) {
    for (long hint : {0L, -1L, LONG_MIN, long{static_cast<unsigned>(-3)}}) {
        List list(newtbl(hint)), both(inittbl(hint, hint, 0, nullptr, 8));
        EXPECT_EQ(list->right_increment, 10) << hint;
        EXPECT_EQ(both->left_increment, 10) << hint;
    }
}

TEST(TblNullValue, IsNotDuplicated) {
    List list = words_list({1, 0, 3});
    List copy(duptbl(list.get(), [](void* item) { return word(number(item) * 10); }));
    EXPECT_THAT(words(copy), ElementsAre(10, 0, 30));
    EXPECT_THAT(words(list), ElementsAre(1, 0, 3));

    const int none = 2;
    List by_value = ints_list({1, 2, 3}, &none);
    List changed(duptbl(by_value.get(), [](void* item) -> void* {
        *static_cast<int*>(item) += 100;
        return nullptr;
    }));
    EXPECT_THAT(ints(changed), ElementsAre(101, 2, 103));
    EXPECT_EQ(*static_cast<int*>(gettbl(changed.get(), 9)), 2);
    EXPECT_THAT(ints(by_value), ElementsAre(1, 2, 3));
}

TEST(TblWhole, AppliesToNonNullItemsAndAddsIn32Bits) {
    List list = words_list({2, 0, 0x7fffffff});
    const auto count = [](void* item, void* calls) {
        ++*static_cast<int*>(calls);
        return static_cast<int>(number(item));
    };
    int calls = 0;
    EXPECT_EQ(applytbl(list.get(), count, &calls), INT32_MIN + 1);
    EXPECT_EQ(calls, 2);
}

TEST(TblWhole, JoinsOnlyListsOfOneKind) {
    const int none = -1, other = -2;
    const long wide = 0;
    struct {
        List to, from;
        const char* reason;
    } rows[] = {
        {ints_list({1}), List(inittbl(0, 0, 1, &wide, 8)),
         "tbl lists have different entry sizes: 4 8\n"},
        {words_list({1}), List(inittbl(0, 0, 1, &wide, 8)),
         "tbl lists are not both direct or indirect.\n"},
        {ints_list({1}, &none), ints_list({2}, &other), "tbl lists have different null values.\n"},
        {ints_list({1}, &none), ints_list({2}), "tbl lists have different null values.\n"},
    };
    for (const auto& row : rows) {
        Logged logged;
        EXPECT_EQ(cattbl(row.to.get(), row.from.get()), 1);
        EXPECT_THAT(logged.text(), HasSubstr(row.reason));
        EXPECT_EQ(maxtbl(row.to.get()), 1);
    }
}

TEST(TblWhole, JoinsAndCompares) {
    List list = words_list({1, 2, 3, 4, 5, 6, 7}), more = words_list({8, 9, 10, 11});
    more->left_increment = 77;
    EXPECT_EQ(cattbl(list.get(), more.get()), 0);
    EXPECT_THAT(words(list), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
    EXPECT_EQ(shape(list), (Shape{0, 11, 30, 77, 40}));
    EXPECT_EQ(cattbl(more.get(), more.get()), 0);
    EXPECT_THAT(words(more), ElementsAre(8, 9, 10, 11, 8, 9, 10, 11));

    List less = ints_list({1, 2}), greater = ints_list({1, 3}), longer = ints_list({1, 2, 3});
    EXPECT_LT(cmptbl(less.get(), greater.get()), 0);
    EXPECT_EQ(cmptbl(less.get(), longer.get()), 1);
    EXPECT_EQ(cmptbl(less.get(), less.get()), 0);
    EXPECT_EQ(cmptbl(List(newtbl(0)).get(), List(newtbl(0)).get()), 0);
}

TEST(TblNull, ListsReadAsEmpty) {
    EXPECT_EQ(maxtbl(nullptr), 0);
    for (void* item : {gettbl(nullptr, 0), addrtbl(nullptr, 0), poptbl(nullptr), shifttbl(nullptr),
                       deltbl(nullptr, 0), static_cast<void*>(duptbl(nullptr, nullptr))})
        EXPECT_EQ(item, nullptr);
    freetbl(nullptr, nullptr);
    EXPECT_EQ(kit::taken(jointbl(nullptr, " ")), "");
}

// ---- running out of memory

struct Exhausted {
    const char* name;
    void (*body)();
    std::vector<std::string> words;  // what each allocation in turn is for
};
void PrintTo(const Exhausted& row, std::ostream* out) {
    *out << row.name;
}

// The path of a list file made before allocations fail, so that opening it registers nothing.
std::string g_kept_file;
void open_kept_file(long size) {
    Tbl* tbl = nullptr;
    filetbl(g_kept_file.c_str(), nullptr, size, nullptr, 8, &tbl);
    freetbl(tbl, nullptr);
}

class TblDeathTest : public testing::TestWithParam<Exhausted> {
  protected:
    TblDeathTest() {
        g_kept_file = dir_.file("list");
        open_kept_file(1);
    }
    kit::TempDir dir_;
};

// Fails each allocation in turn, until the scenario comes through without one.
TEST_P(TblDeathTest, NamesWhatEachAllocationWasFor) {
    const auto run = [](long nth, bool from_then_on) {
        morva::fail_allocation(nth, from_then_on);
        GetParam().body();
        ::_exit(0);
    };
    long nth = 1;
    for (const std::string& what : GetParam().words) {
        for (bool from_then_on : {false, true})
            EXPECT_EXIT(run(nth, from_then_on), testing::ExitedWithCode(1),
                        "Out of memory in [A-Za-z_]+ at line [0-9]+ of '[a-z_]+\\.[ch]pp'\n\t"
                        "Can't malloc [0-9]+ bytes for " +
                            what + "\n");
        ++nth;
    }
    EXPECT_EXIT(run(nth, false), testing::ExitedWithCode(0), "");
}

void fill(Tbl* tbl, int count) {
    const char item[100] = "item";
    for (int i = 0; i < count; ++i) pushtbl(tbl, item);
}
int never(void*, void*, void*) {
    return 0;
}

const Exhausted kExhausted[] = {
    {"New", [] { inittbl(0, 0, 1, "none", 5); }, {"tbl", "null_value"}},
    {"Push", [] { fill(newtbl(0), 11); }, {"tbl", "tbl->base.cp", "prev"}},
    {"Unshift",
     [] {
         Tbl* tbl = newtbl(0);
         for (int i = 0; i < 11; ++i) unshifttbl(tbl, tbl);
     },
     {"tbl", "tbl->base.cp", "prev"}},
    {"PushOfOwnItem",
     [] {
         Tbl* tbl = inittbl(0, 1, 1, nullptr, 100);
         fill(tbl, 1);
         pushtbl(tbl, gettbl(tbl, 0));
     },
     {"tbl", "tbl->base.cp", "item", "prev"}},
    {"Delete",
     [] {
         Tbl* tbl = inittbl(0, 0, 1, nullptr, 8);
         fill(tbl, 2);
         deltbl(tbl, 0), deltbl(tbl, 0);
     },
     {"tbl", "tbl->base.cp", "tbl->deleted"}},
    {"Duplicate",
     [] {
         Tbl* tbl = inittbl(0, 0, 1, "none", 5);
         fill(tbl, 1);
         duptbl(tbl, nullptr);
     },
     {"tbl", "null_value", "tbl->base.cp", "tbl", "null_value", "tbl->base.cp"}},
    {"Sort",
     [] {
         Tbl* tbl = newtbl(0);
         fill(tbl, 2);
         sorttbl(tbl, never, nullptr);
     },
     {"tbl", "tbl->base.cp", "s"}},
    {"Join",
     [] {
         Tbl* tbl = strtbl(const_cast<char*>("a"), nullptr);
         jointbl(tbl, ",");
     },
     {"tbl", "tbl->base.cp", "s"}},
    {"Difference",
     [] {
         Tbl* tbl = strtbl(const_cast<char*>("a"), nullptr);
         difftbl(tbl, nullptr, nullptr, nullptr, newtbl(0), nullptr, nullptr);
     },
     {"tbl", "tbl->base.cp", "tbl", "s", "tbl->base.cp"}},
    {"RebuiltFile", [] { open_kept_file(100); }, {"scratch", "tbl", "local_null", "tbl->base.cp"}},
    {"ReadFile", [] { readtbl(g_kept_file.c_str(), nullptr, 0); }, {"tbl"}},
};
INSTANTIATE_TEST_SUITE_P(Each, TblDeathTest, testing::ValuesIn(kExhausted),
                         [](const auto& info) { return info.param.name; });

TEST(TblBoundsDeathTest, AnIndexThatNoMemoryHoldsIsOutOfMemory) {
    for (long i : {INT64_MAX, INT64_MAX - 1, INT64_MAX / 8}) {
        EXPECT_EXIT(settbl(newtbl(0), i, nullptr), testing::ExitedWithCode(1),
                    "Can't malloc [0-9]+ bytes for tbl->base.cp\n+\tCannot allocate memory");
        EXPECT_EXIT(settbl(words_list({1}).get(), i, nullptr), testing::ExitedWithCode(1),
                    "Can't malloc [0-9]+ bytes for prev\n+\tCannot allocate memory");
    }
    Logged logged;
    EXPECT_EQ(inittbl(0, 0, 1, nullptr, 0), nullptr);
    EXPECT_THAT(logged.text(), HasSubstr("inittbl called with item size 0\n"));
}

}  // namespace
