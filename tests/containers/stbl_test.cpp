#include "morva/stbl.h"

#include <random>
#include <set>

#include "containers/tree_check.hpp"
#include "support/kit.hpp"

namespace {

void* number(long n) {
    return reinterpret_cast<void*>(n);
}
int by_number(const void* a, const void* b) {
    return a < b ? -1 : a > b;
}

TEST(Stbl, KeepsTheFirstOfEqualItems) {
    Stbl* stbl = newstbl(nullptr);
    EXPECT_EQ(stbl->list, nullptr);
    EXPECT_EQ(stbl->dirty, 1);
    EXPECT_EQ(stbl->tree->replace, 0);
    char first[] = "b", second[] = "b", other[] = "a";
    EXPECT_EQ(addstbl(stbl, first), first);
    EXPECT_EQ(addstbl(stbl, second), first);
    EXPECT_EQ(maxstbl(stbl), 1);
    EXPECT_EQ(tststbl(stbl, "b"), first);
    EXPECT_EQ(tststbl(stbl, "a"), nullptr);
    EXPECT_EQ(addstbl(stbl, other), other);
    EXPECT_EQ(stbl->dirty, 1);
    EXPECT_EQ(getstbl(stbl, 0), other);
    EXPECT_EQ(stbl->dirty, 0);
    EXPECT_EQ(getstbl(stbl, 1), first);
    EXPECT_EQ(getstbl(stbl, 2), nullptr);
    EXPECT_EQ(getstbl(stbl, -1), nullptr);
    EXPECT_EQ(delstbl(stbl, "c"), nullptr);
    EXPECT_EQ(delstbl(stbl, second), first);
    EXPECT_EQ(maxstbl(stbl), 1);
    freestbl(stbl, nullptr);
}

// Adding an item that is there, or deleting one that is not, is no change.
TEST(Stbl, KeepsItsListUntilAnItemComesOrGoes) {
    Stbl* stbl = newstbl(by_number);
    addstbl(stbl, number(1));
    Tbl* list = tblstbl(stbl);
    addstbl(stbl, number(1));
    delstbl(stbl, number(2));
    EXPECT_EQ(stbl->dirty, 1);
    EXPECT_EQ(tblstbl(stbl), list);
    EXPECT_EQ(maxtbl(list), 1);
    EXPECT_EQ(stbl->dirty, 0);
    freestbl(stbl, nullptr);
}

TEST(Stbl, BehavesLikeASetUnderRandomOperations) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Stbl* stbl = newstbl(by_number);
    std::set<void*> model;
    for (int i = 0; i < 5000; ++i) {
        void* item = number(static_cast<long>(random() % 200));  // the null pointer among them
        switch (random() % 4) {
            case 0:
                ASSERT_EQ(delstbl(stbl, item), model.erase(item) ? item : nullptr);
                break;
            case 1:
                ASSERT_EQ(addstbl(stbl, item), item);
                model.insert(item);
                break;
            case 2:
                ASSERT_EQ(tststbl(stbl, item), model.count(item) ? item : nullptr);
                break;
            default:
                ASSERT_EQ(maxstbl(stbl), static_cast<long>(model.size()));
                long at = 0;
                for (void* member : model) ASSERT_EQ(getstbl(stbl, at++), member);
        }
        ASSERT_EQ(tree_check::fault(stbl->tree), "");
    }
    freestbl(stbl, nullptr);
}

// A caller may free an item that it deleted: the list is not searched with it any more.
TEST(Stbl, ForgetsDeletedItemsAtOnce) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Stbl* stbl = newstbl(nullptr);
    std::set<std::string> model;
    for (int i = 0; i < 2000; ++i) {
        for (unsigned changes = random() % 7; changes > 0; --changes) {
            const std::string word(1, "abcdefghijklmnop"[random() % 16]);
            if (random() % 2 != 0) {
                std::free(delstbl(stbl, word.c_str()));
                model.erase(word);
            } else if (model.insert(word).second) {
                addstbl(stbl, strdup(word.c_str()));
            }
        }
        std::string words;
        for (const auto& word : model) words += word;
        ASSERT_EQ(kit::taken(jointbl(tblstbl(stbl), "")), words);
    }
    freestbl(stbl, free);
}

// Whoever walks the list may delete items: the list stays as it is until it is asked for again.
TEST(Stbl, LeavesItsListAloneWhileItemsAreDeleted) {
    Stbl* stbl = newstbl(by_number);
    for (long i = 1; i <= 9; ++i) addstbl(stbl, number(i));
    Tbl* list = tblstbl(stbl);
    for (long i = 0; i < maxtbl(list); ++i)
        EXPECT_EQ(delstbl(stbl, gettbl(list, i)), number(i + 1));
    EXPECT_EQ(maxtbl(list), 9);
    EXPECT_EQ(maxstbl(stbl), 0);
    freestbl(stbl, nullptr);
}

TEST(Stbl, AppliesToTheItemsInOrderAndSumsUp) {
    Stbl* stbl = newstbl(by_number);
    for (long i : {3, 1, 2}) addstbl(stbl, number(i));
    struct State {
        Stbl* stbl;
        std::vector<void*> seen;
    } state{stbl, {}};
    const int sum = applystbl(
        stbl,
        [](void* item, void* data) {
            auto* state = static_cast<State*>(data);
            state->seen.push_back(item);
            delstbl(state->stbl, item);
            addstbl(state->stbl, number(9));
            return static_cast<int>(reinterpret_cast<long>(item));
        },
        &state);
    EXPECT_EQ(sum, 6);
    EXPECT_EQ(state.seen, (std::vector<void*>{number(1), number(2), number(3)}));
    EXPECT_EQ(maxstbl(stbl), 1);
    freestbl(stbl, nullptr);
}

TEST(Stbl, FreesItsItems) {
    Stbl* stbl = newstbl(nullptr);
    for (const char* word : {"one", "two", "three"}) addstbl(stbl, strdup(word));
    tblstbl(stbl);
    freestbl(stbl, free);
    freestbl(nullptr, free);
}

}  // namespace
