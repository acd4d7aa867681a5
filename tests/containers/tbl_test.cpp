#include "morva/tbl.h"

#include <deque>
#include <random>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

using kit::Logged;

void* word(long n) {
    return reinterpret_cast<void*>(n);
}

long number(void* item) {
    return reinterpret_cast<long>(item);
}

struct Freed {
    void operator()(Tbl* tbl) const { freetbl(tbl, nullptr); }
};
using List = std::unique_ptr<Tbl, Freed>;

List numbers(std::initializer_list<int> items, const int* null_value = nullptr) {
    List list(inittbl(0, 0, 1, null_value, sizeof(int)));
    for (int item : items) pushtbl(list.get(), &item);
    return list;
}

std::vector<int> ints(Tbl* tbl) {
    std::vector<int> items;
    for (long i = 0; i < maxtbl(tbl); ++i) items.push_back(*static_cast<int*>(gettbl(tbl, i)));
    return items;
}

std::vector<long> words(Tbl* tbl) {
    std::vector<long> items;
    for (long i = 0; i < maxtbl(tbl); ++i) items.push_back(number(gettbl(tbl, i)));
    return items;
}

List words_list(std::initializer_list<long> items) {
    List list(newtbl(0));
    for (long item : items) pushtbl(list.get(), word(item));
    return list;
}

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TblAccess, OutsideTheListIsTheNullValue) {
    List pointers = words_list({1, 2});
    EXPECT_EQ(gettbl(pointers.get(), -1), nullptr);
    EXPECT_EQ(gettbl(pointers.get(), 2), nullptr);
    EXPECT_EQ(addrtbl(pointers.get(), 2), nullptr);
    EXPECT_EQ(*static_cast<void**>(addrtbl(pointers.get(), 1)), word(2));

    const int none = -7;
    List by_value = numbers({}, &none);
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
    List by_value = numbers({}, &none);
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

    List by_value = numbers({5, 6, 7});
    void* removed = deltbl(by_value.get(), 0);
    EXPECT_EQ(*static_cast<int*>(removed), 5);
    EXPECT_EQ(deltbl(by_value.get(), 0), removed);
    EXPECT_EQ(*static_cast<int*>(removed), 6);
    EXPECT_THAT(ints(by_value.get()), ElementsAre(7));
}

// An item may be taken from the list that it goes into, even when the list's block moves.
TEST(TblAccess, TakesItemsOutOfItself) {
    List list = numbers({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
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

}  // namespace
