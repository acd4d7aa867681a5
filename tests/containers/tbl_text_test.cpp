#include "tbl_lists.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <random>

#include "base/memory.hpp"

namespace {

using lists::ints;
using lists::ints_list;
using lists::List;
using lists::words;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// An indirect list of strings that live as long as the process.
List strings(std::initializer_list<const char*> items) {
    List list(newtbl(0));
    for (const char* item : items) pushtbl(list.get(), item);
    return list;
}

std::vector<std::string> texts(Tbl* tbl) {
    std::vector<std::string> items;
    for (long i = 0; i < maxtbl(tbl); ++i) items.push_back(static_cast<char*>(gettbl(tbl, i)));
    return items;
}

// A direct list of four-character items, one of which fills its slot.
List codes() {
    List list(inittbl(0, 0, 1, nullptr, 4));
    for (const char* code : {"BHZ", "LONG", "EHE"}) pushtbl(list.get(), code);
    return list;
}

TEST(TblText, ListsItsArguments) {
    char a[] = "a", b[] = "b";
    List list(strtbl(a, b, nullptr));
    EXPECT_THAT(texts(list.get()), ElementsAre("a", "b"));
    EXPECT_EQ(gettbl(list.get(), 0), a) << "the caller's own string";
    List null_first(strtbl(nullptr, b, nullptr));
    EXPECT_EQ(maxtbl(null_first.get()), 2);
}

TEST(TblText, Joins) {
    EXPECT_EQ(kit::taken(jointbl(strings({}).get(), ", ")), "");
    EXPECT_EQ(kit::taken(jointbl(strings({"one"}).get(), ", ")), "one");
    EXPECT_EQ(kit::taken(jointbl(strings({"one", "", "three"}).get(), ", ")), "one, , three");
    EXPECT_EQ(kit::taken(jointbl(strings({"one", nullptr, "three"}).get(), "")), "onethree");
    EXPECT_EQ(kit::taken(jointbl(strings({"one", "two"}).get(), nullptr)), "onetwo");
    EXPECT_EQ(kit::taken(jointbl(codes().get(), "+")), "BHZ+LONG+EHE");
}

// Every length of item and separator, each item ending at an unmapped page.
TEST(TblText, JoinsItemsOfEveryLength) {
    std::string all;
    for (int i = 0; i < 150; ++i) all += static_cast<char>('A' + i % 50);
    for (std::size_t length = 0; length <= all.size(); ++length) {
        const kit::Guarded guarded(std::string_view(all.c_str() + all.size() - length, length + 1));
        List list = strings({guarded.data(), "-", guarded.data()});
        const std::string item(guarded.data()), between = all.substr(0, length / 2);
        EXPECT_EQ(kit::taken(jointbl(list.get(), between.c_str())),
                  item + between + "-" + between + item);
    }
}

// Texts packed one behind the other, each at another place within a word and a line.
TEST(TblText, JoinsManyItems) {
    std::mt19937 random(2);
    std::string packed, joined;
    std::vector<std::size_t> starts;
    for (int i = 0; i < 3000; ++i) {
        const std::string text(random() % (i % 10 == 0 ? 200 : 20),
                               static_cast<char>('a' + i % 26));
        starts.push_back(packed.size());
        packed.append(text).push_back('\0');
        joined.append(i > 0 ? ", " : "").append(text);
        if (i % 100 != 0) continue;
        List list(newtbl(0));
        for (std::size_t start : starts) pushtbl(list.get(), packed.data() + start);
        ASSERT_EQ(kit::taken(jointbl(list.get(), ", ")), joined) << i;
    }
}

TEST(TblText, GreppingGivesIndicesOfWholeMatches) {
    List list = strings({"ba", "ab", nullptr, "a", "cab"});
    EXPECT_THAT(words(List(greptbl("a.*", list.get()))), ElementsAre(1, 3));
    EXPECT_THAT(words(List(greptbl("(c|b)?a(b)?", list.get()))), ElementsAre(0, 1, 3, 4));
    EXPECT_THAT(words(List(greptbl("LONG", codes().get()))), ElementsAre(1));
    List patterns = strings({"BH.", "[", "B", "(BHZ|EHZ)", nullptr});
    EXPECT_THAT(words(List(tblgrep(patterns.get(), "BHZ"))), ElementsAre(0, 3));
    kit::Logged logged;
    EXPECT_EQ(maxtbl(List(greptbl("a(", list.get())).get()), 0);
    EXPECT_EQ(logged.text(), "");
}

int print_bare(void* text) {
    return std::printf("<%s>", static_cast<char*>(text));
}

TEST(TblText, DumpsWithIndices) {
    List list = strings({"one", "three"});
    const auto dumped = [](const char* title, const List& list, int (*print)(void*), int* result) {
        return kit::captured(1, [&] { *result = dumptbl(title, list.get(), print); });
    };
    int result = 0;
    EXPECT_EQ(dumped("Title", list, nullptr, &result), "Title\n  0 : one\n  1 : three\n");
    EXPECT_EQ(dumped("", list, print_bare, &result), "  0 : <one>  1 : <three>");
    EXPECT_EQ(result, 7) << "the last result of the print function";
    EXPECT_EQ(dumped(nullptr, strings({}), print_bare, &result), "<  ** no entries in list **\n>");
    List full(inittbl(0, 0, 1, nullptr, 4));
    for (const char* item : {"abcd", "ef\0"}) pushtbl(full.get(), item);
    EXPECT_EQ(dumped(nullptr, full, nullptr, &result), "  0 : abcd\n  1 : ef\n");
}

// ---- sorting and searching

struct Numbered {
    int key, place;
};

int by_key(void* a, void* b, void* calls) {
    if (calls != nullptr) ++*static_cast<long*>(calls);
    const int left = *static_cast<int*>(a), right = *static_cast<int*>(b);
    return (left > right) - (left < right);
}

// Differences of less than a second count for nothing, as where times are subtracted to an int.
int by_seconds(void* a, void* b, void*) {
    return static_cast<int>(*static_cast<double*>(a) - *static_cast<double*>(b));
}

// The shell sort as documented, on items of any size.
template <class Item>
void documented_sort(std::vector<Item>& items, Tbl_compare compare = by_key) {
    const long count = static_cast<long>(items.size());
    long gap = 1;
    while (gap < count) gap = 3 * gap + 1;
    while (gap > 1) {
        gap /= 3;
        for (long i = gap; i < count; ++i) {
            Item scratch = items[i];
            long j = i;
            for (; j >= gap && compare(&items[j - gap], &scratch, nullptr) > 0; j -= gap)
                items[j] = items[j - gap];
            items[j] = scratch;
        }
    }
}

// Four keys among many items: the places of equal items show every step of the sort.
template <class Item, class Make>
void expect_documented_order(Make make) {
    std::mt19937 random(3);
    std::vector<int> counts(70);
    std::iota(counts.begin(), counts.end(), 0);
    for (int more : {127, 128, 129, 1000, 5003}) counts.push_back(more);
    for (int count : counts) {
        std::vector<Item> items;
        for (int i = 0; i < count; ++i) items.push_back(make(static_cast<int>(random() % 4), i));
        List list(inittbl(0, 0, 1, nullptr, sizeof(Item)));
        for (const Item& item : items) pushtbl(list.get(), &item);
        sorttbl(list.get(), by_key, nullptr);
        documented_sort(items);
        List model(inittbl(0, 0, 1, nullptr, sizeof(Item)));
        for (const Item& item : items) pushtbl(model.get(), &item);
        EXPECT_EQ(cmptbl(list.get(), model.get()), 0)
            << count << " items of " << sizeof(Item) << " bytes";
    }
}

TEST(TblSort, LeavesEqualItemsInTheDocumentedOrder) {
    expect_documented_order<int>([](int key, int) { return key; });
    expect_documented_order<Numbered>([](int key, int place) { return Numbered{key, place}; });
    expect_documented_order<std::array<int, 5>>([](int key, int place) {
        return std::array<int, 5>{key, place, place, place, place};
    });
}

// Half a second apart, every item equals its neighbours, the first does not equal the last.
TEST(TblSort, FollowsTheDocumentedOrderWhereEqualIsNotTransitive) {
    std::vector<double> items;
    for (int i = 0; i < 1000; ++i) items.push_back((1000 - i) / 2.0);
    List list(inittbl(0, 0, 1, nullptr, sizeof(double)));
    for (const double& item : items) pushtbl(list.get(), &item);
    sorttbl(list.get(), by_seconds, nullptr);
    documented_sort(items, by_seconds);
    EXPECT_EQ(std::memcmp(gettbl(list.get(), 0), items.data(), items.size() * sizeof(double)), 0);
    EXPECT_LT(items.front(), items.back());
}

// The same with no memory but for the one item, which the sort then makes do with.
TEST(TblSort, NeedsMemoryForOneItemOnly) {
    std::vector<Numbered> items;
    for (int i = 0; i < 500; ++i) items.push_back({i * 7 % 5, i});
    List list(inittbl(0, 0, 1, nullptr, sizeof(Numbered)));
    for (const Numbered& item : items) pushtbl(list.get(), &item);
    morva::fail_allocation(2, true);
    sorttbl(list.get(), by_key, nullptr);
    EXPECT_GE(morva::allocations_seen(), 2);
    morva::fail_allocation(0, false);
    documented_sort(items);
    EXPECT_EQ(std::memcmp(gettbl(list.get(), 0), items.data(), items.size() * sizeof(Numbered)), 0);
}

// Many comparisons say no more than whether the first item is above the second.
TEST(TblSort, AsksForNothingButAbove) {
    std::vector<int> items(1000);
    std::iota(items.begin(), items.end(), 0);
    std::shuffle(items.begin(), items.end(), std::mt19937(9));
    List list = ints_list({});
    for (int item : items) pushtbl(list.get(), &item);
    sorttbl(
        list.get(),
        [](void* a, void* b, void*) -> int {
            return *static_cast<int*>(a) > *static_cast<int*>(b);
        },
        nullptr);
    std::sort(items.begin(), items.end());
    EXPECT_THAT(ints(list), ElementsAreArray(items));
}

// A comparison that contradicts itself gives some order, of the same items.
TEST(TblSort, KeepsAllItemsWhateverIsSaidOfThem) {
    std::mt19937 random(11);
    const auto any = [](void*, void*, void* random) {
        return static_cast<int>((*static_cast<std::mt19937*>(random))() % 3) - 1;
    };
    for (int count : {2, 5, 13, 14, 64, 1001}) {
        List numbers = ints_list({});
        List wide(inittbl(0, 0, 1, nullptr, 2 * sizeof(Numbered)));
        for (int i = 0; i < count; ++i) {
            const Numbered item[2] = {{i, i}, {i, i}};
            pushtbl(numbers.get(), &i);
            pushtbl(wide.get(), item);
        }
        for (int round = 0; round < 20; ++round) {
            for (Tbl* tbl : {numbers.get(), wide.get()}) {
                sorttbl(tbl, any, &random);
                std::vector<int> items = ints(tbl);
                std::sort(items.begin(), items.end());
                for (int i = 0; i < count; ++i) ASSERT_EQ(items[i], i);
            }
        }
    }
}

TEST(TblSort, SortsPointersByTheirSlots) {
    List list = strings({"pear", "apple", "fig"});
    sorttbl(
        list.get(),
        [](void* a, void* b, void*) {
            return std::strcmp(*static_cast<char**>(a), *static_cast<char**>(b));
        },
        nullptr);
    EXPECT_THAT(texts(list.get()), ElementsAre("apple", "fig", "pear"));
}

// Lists shorter and longer than the nearest cache, of items of several sizes.
template <class Item>
void expect_found(int count, int times) {
    List list(inittbl(0, count, 1, nullptr, sizeof(Item)));
    for (int i = 0; i < count; ++i) {
        Item item{};
        const int key = i / times * 2;
        std::memcpy(&item, &key, sizeof key);
        pushtbl(list.get(), &item);
    }
    for (int key = -1; key < count / times * 2; key += 7) {
        const int at = (key + 1) / 2 * times;
        const int equal = key % 2 == 0 ? std::min(times, count - at) : 0;
        long first = -9, last = -9;
        ASSERT_EQ(searchtbl(&key, list.get(), by_key, nullptr, &first, &last), equal) << key;
        ASSERT_EQ(first, at);
        ASSERT_EQ(last, at + equal - 1);
    }
}

TEST(TblSearch, FindsItemsOfEverySizeNearAndFar) {
    for (int count : {100, 30000}) {
        for (int times : {1, 3, 50}) {
            expect_found<int>(count, times);
            expect_found<Numbered>(count, times);
            expect_found<std::array<int, 5>>(count, times);
        }
    }
}

TEST(TblSearch, FindsEveryRunOfEqualItems) {
    std::mt19937 random(5);
    for (int count = 0; count < 40; ++count) {
        std::vector<int> items;
        for (int i = 0; i < count; ++i) items.push_back(static_cast<int>(random() % 9) * 2);
        std::sort(items.begin(), items.end());
        List list = ints_list({});
        for (int item : items) pushtbl(list.get(), &item);
        for (int key = -1; key < 18; ++key) {
            const auto [lower, upper] = std::equal_range(items.begin(), items.end(), key);
            long first = -9, last = -9;
            EXPECT_EQ(searchtbl(&key, list.get(), by_key, nullptr, &first, &last), upper - lower);
            EXPECT_EQ(first, lower - items.begin());
            EXPECT_EQ(last, upper - items.begin() - 1);
        }
    }
    int key = 1;
    EXPECT_EQ(searchtbl(&key, ints_list({1}).get(), by_key, nullptr, nullptr, nullptr), 1);
}

// ---- lists as sets

TEST(TblSets, ArrOfMembers) {
    Arr* set = arrtbl(strings({"b", nullptr, "a", "b"}).get());
    EXPECT_EQ(cntarr(set), 2);
    EXPECT_EQ(getarr(set, "b"), reinterpret_cast<void*>(-1L));
    EXPECT_EQ(getarr(set, "c"), nullptr);
    freearr(set, nullptr);
}

TEST(TblSets, CommonAndMissingItems) {
    List a = strings({"x", "b", "a", "b"}), b = strings({"q", "b", "a", "p"});
    List result(commtbl(a.get(), b.get(), 1));
    EXPECT_THAT(texts(result.get()), ElementsAre("x"));
    EXPECT_EQ(gettbl(result.get(), 0), gettbl(a.get(), 0)) << "the source's own pointer";
    EXPECT_THAT(texts(List(commtbl(a.get(), b.get(), 2)).get()), ElementsAre("q", "p"));
    EXPECT_THAT(texts(List(commtbl(a.get(), b.get(), 3)).get()), ElementsAre("b", "a", "b"));
    EXPECT_THAT(texts(List(commtbl(codes().get(), strings({"LONG"}).get(), 1)).get()).size(), 2);
    const std::string shown =
        kit::captured(2, [&] { EXPECT_EQ(maxtbl(List(commtbl(a.get(), b.get(), 4)).get()), 0); });
    EXPECT_THAT(shown, testing::HasSubstr("commtbl called with type = 4"));
}

TEST(TblSets, DifferenceOfSortedLists) {
    List a = strings({"a", "c", "c", "e"}), b = strings({"b", "c", "d", "f", "g"});
    Tbl *only_a = newtbl(0), *only_b = newtbl(0), *both = newtbl(0);
    pushtbl(only_a, ::strdup("left from before"));
    for (int round = 0; round < 2; ++round) {
        difftbl(a.get(), b.get(), nullptr, nullptr, only_a, only_b, both);
        EXPECT_THAT(texts(only_a), ElementsAre("a", "c", "e"));
        EXPECT_THAT(texts(only_b), ElementsAre("b", "d", "f", "g"));
        EXPECT_THAT(texts(both), ElementsAre("c"));
        EXPECT_NE(gettbl(both, 0), gettbl(a.get(), 1)) << "a copy";
    }
    // Sorted the other way round, with a comparison that says so.
    List c = strings({"z", "y"}), d = strings({"y", "x"});
    const auto reversed = [](void* s, void* t, void*) {
        return std::strcmp(static_cast<char*>(t), static_cast<char*>(s));
    };
    difftbl(c.get(), d.get(), reversed, nullptr, only_a, only_b, both);
    EXPECT_THAT(texts(only_a), ElementsAre("z"));
    EXPECT_THAT(texts(only_b), ElementsAre("x"));
    EXPECT_THAT(texts(both), ElementsAre("y"));
    for (Tbl* tbl : {only_a, only_b, both}) freetbl(tbl, std::free);
}

}  // namespace
