#include "morva/arr.h"

#include <strings.h>

#include <map>
#include <random>

#include "base/memory.hpp"
#include "containers/arr.hpp"
#include "containers/tree_check.hpp"
#include "support/kit.hpp"

namespace {

using tree_check::fault;
using Strings = std::vector<std::string>;

Strings strings(Tbl* list) {
    Strings copies;
    for (long i = 0; i < maxtbl(list); ++i)
        copies.emplace_back(static_cast<char*>(gettbl(list, i)));
    return copies;
}

// As strings, and frees the list.
Strings drained(Tbl* list) {
    Strings copies = strings(list);
    freetbl(list, nullptr);
    return copies;
}

void* number(long n) {
    return reinterpret_cast<void*>(n);
}

struct ArrTest : testing::Test {
    Arr* arr = newarr(nullptr);
    ~ArrTest() override { freearr(arr, nullptr); }
    void set_all(const Strings& keys) {
        for (const auto& key : keys) setarr(arr, key.c_str(), nullptr);
    }
};

TEST_F(ArrTest, GivesBackWhatItReplacesAndRemoves) {
    EXPECT_EQ(getarr(arr, "a"), nullptr);
    EXPECT_EQ(delarr(arr, "a"), nullptr);
    EXPECT_EQ(setarr(arr, "a", number(1)), nullptr);
    EXPECT_EQ(setarr(arr, "a", number(2)), number(1));
    EXPECT_EQ(reinterpret_cast<Rbtree*>(arr)->scratch.value, number(1));
    EXPECT_EQ(cntarr(arr), 1);
    EXPECT_EQ(getarr(arr, "a"), number(2));
    EXPECT_EQ(delarr(arr, "b"), nullptr);
    EXPECT_EQ(delarr(arr, "a"), number(2));
    EXPECT_EQ(cntarr(arr), 0);
    EXPECT_EQ(drained(keysarr(arr)), Strings{});
}

TEST_F(ArrTest, ToleratesANullArray) {
    EXPECT_EQ(getarr(nullptr, "a"), nullptr);
    EXPECT_EQ(delarr(nullptr, "a"), nullptr);
    EXPECT_EQ(cntarr(nullptr), 0);
    EXPECT_EQ(drained(keysarr(nullptr)), Strings{});
    EXPECT_EQ(freearr(nullptr, free), 0);
}

// Keys around the lengths of the words that a node keeps, with bytes above 127.
Strings awkward_keys() {
    const std::string stem = "0123456789abcdef0123456789";
    Strings keys{"", "a", "B", "b", "\x7f", "\x80", "\xff", "\xff\xff", "01234567\xff"};
    for (size_t length = 1; length <= stem.size(); ++length) {
        keys.push_back(stem.substr(0, length));
        keys.push_back(stem.substr(0, length - 1) + "\xe9");
        keys.push_back(stem.substr(0, length - 1) + "\x01");
    }
    keys.push_back(std::string(63, 'k'));
    keys.push_back(std::string(64, 'k'));
    keys.push_back(std::string(5000, 'k'));
    return keys;
}

TEST_F(ArrTest, OrdersKeysByUnsignedBytes) {
    const Strings keys = awkward_keys();
    std::map<std::string, void*> model;
    for (const auto& key : keys) {
        setarr(arr, key.c_str(), model[key] = number(static_cast<long>(model.size()) + 1));
        ASSERT_EQ(fault(arr), "") << key;
    }
    Strings sorted;
    for (const auto& [key, value] : model) {
        sorted.push_back(key);
        const kit::Guarded exact(std::string_view(key.c_str(), key.size() + 1));
        EXPECT_EQ(getarr(arr, exact.data()), value) << key;
        EXPECT_EQ(getarr(arr, (key + "?").c_str()), nullptr) << key;
    }
    EXPECT_EQ(drained(keysarr(arr)), sorted);
}

TEST(Arr, BehavesLikeAMapUnderRandomOperations) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Arr* arr = newarr(nullptr);
    std::map<std::string, void*> model;
    for (long i = 1; i <= 6000; ++i) {
        std::string key(random() % 20, 'a');
        for (char& c : key) c = "ab\xff"[random() % 3];
        if (random() % 50 == 0) key.append(100, 'x');
        void* value = number(i);
        const auto found = model.find(key);
        void* const before = found == model.end() ? nullptr : found->second;
        if (random() % 8 < (i / 1000 % 2 == 0 ? 6 : 2)) {
            ASSERT_EQ(setarr(arr, key.c_str(), value), before);
            model[key] = value;
        } else {
            if (!model.empty() && random() % 2)
                key = model.lower_bound(key) == model.end() ? model.begin()->first
                                                            : model.lower_bound(key)->first;
            const auto doomed = model.find(key);
            void* const expected = doomed == model.end() ? nullptr : doomed->second;
            ASSERT_EQ(delarr(arr, key.c_str()), expected);
            model.erase(key);
        }
        ASSERT_EQ(cntarr(arr), static_cast<long>(model.size()));
        const auto walk = tree_check::walk(arr);
        ASSERT_EQ(walk.fault, "");
        ASSERT_TRUE(std::equal(walk.nodes.begin(), walk.nodes.end(), model.begin(), model.end(),
                               [](const Rbnode* node, const auto& pair) {
                                   return static_cast<char*>(node->key) == pair.first &&
                                          node->value == pair.second;
                               }));
    }
    freearr(arr, nullptr);
}

TEST(Arr, ListsTreesOfAnySizeAndShape) {
    std::mt19937 random(7);
    for (long count : {1, 2, 3, 4, 7, 30, 100, 500, 1000, 5000, 40000}) {
        for (const bool ascending : {true, false}) {
            Arr* arr = newarr(nullptr);
            std::map<std::string, void*> model;
            for (long i = 0; i < count; ++i) {
                char key[24];
                std::snprintf(key, sizeof key, "%010lu", ascending ? i : random() % 10000000000);
                setarr(arr, key, model[key] = number(i));
            }
            Tbl* keys = keysarr(arr);
            Tbl* values = valsarr(arr);
            ASSERT_EQ(maxtbl(keys), static_cast<long>(model.size()));
            ASSERT_EQ(maxtbl(values), maxtbl(keys));
            EXPECT_EQ(verifytbl(keys), 0);
            long i = 0;
            for (const auto& [key, value] : model) {
                ASSERT_EQ(static_cast<char*>(gettbl(keys, i)), key) << count;
                ASSERT_EQ(gettbl(values, i++), value) << count;
            }
            for (int extra = 0; extra < 5; ++extra) EXPECT_EQ(pushtbl(keys, arr), i + extra);
            EXPECT_EQ(settbl(keys, i + 40, arr), i + 40);
            EXPECT_EQ(gettbl(keys, i + 20), nullptr) << "spare slots are null";
            freetbl(keys, nullptr);
            freetbl(values, nullptr);
            freearr(arr, nullptr);
        }
    }
}

TEST_F(ArrTest, TakesItsOwnStringsAsKeys) {
    for (const std::string& key : {std::string("own"), std::string(200, 'o')}) {
        setarr(arr, key.c_str(), number(1));
        Tbl* keys = keysarr(arr);
        EXPECT_EQ(setarr(arr, static_cast<char*>(gettbl(keys, 0)), number(2)), number(1));
        EXPECT_EQ(getarr(arr, key.c_str()), number(2));
        freetbl(keys, nullptr);
        keys = keysarr(arr);
        EXPECT_EQ(delarr(arr, static_cast<char*>(gettbl(keys, 0))), number(2));
        EXPECT_EQ(cntarr(arr), 0);
        freetbl(keys, nullptr);
    }
}

// Lengths around the words that nodes keep; neither the bytes behind a key nor its missing
// terminator may matter.
TEST(Arr, TakesKeysThatStandInALongerText) {
    const std::string text = "abcdefghijklmnopqrstuvwxyz";
    for (Arr_compare compare : {Arr_compare(nullptr), Arr_compare(strcasecmp)}) {
        Arr* arr = newarr(compare);
        for (size_t length = 0; length <= text.size(); length += 2) {
            const kit::Guarded key(text.substr(0, length));
            EXPECT_EQ(morva::put_key(arr, {key.data(), length}, number(1)), nullptr);
            EXPECT_EQ(morva::put_key(arr, {text.data(), length}, number(long(length) + 1)),
                      number(1));
        }
        for (size_t length = 0; length <= text.size(); ++length) {
            const kit::Guarded key(text.substr(0, length));
            void* expected = length % 2 == 0 ? number(long(length) + 1) : nullptr;
            EXPECT_EQ(morva::find_key(arr, {key.data(), length}), expected) << length;
            EXPECT_EQ(getarr(arr, text.substr(0, length).c_str()), expected) << length;
        }
        freearr(arr, nullptr);
    }
    EXPECT_EQ(morva::find_key(nullptr, "a"), nullptr);
}

TEST(Arr, HoldsTheNewKeyWhereDifferentKeysCompareEqual) {
    Arr* arr = newarr(strcasecmp);
    const std::string longer(100, 'q');
    for (const char* key : {"b", "A", "C", longer.c_str(), "a", "B"}) setarr(arr, key, key);
    EXPECT_EQ(fault(arr), "");
    EXPECT_EQ(drained(keysarr(arr)), (Strings{"a", "B", "C", longer}));
    Tbl* keys = keysarr(arr);
    setarr(arr, static_cast<char*>(gettbl(keys, 0)), number(5));  // its own key, copied anew
    freetbl(keys, nullptr);
    EXPECT_EQ(getarr(arr, "A"), number(5));
    EXPECT_STREQ(static_cast<char*>(delarr(arr, longer.c_str())), longer.c_str());

    Arr* copy = duparr(arr, [](void* value) { return value; });
    EXPECT_EQ(getarr(copy, "c"), getarr(arr, "C"));
    EXPECT_EQ(drained(keysarr(copy)), (Strings{"a", "B", "C"}));
    freearr(arr, nullptr);
    freearr(copy, nullptr);
}

TEST_F(ArrTest, DuplicatesKeysAndValues) {
    setarr(arr, "x", "one");
    setarr(arr, std::string(90, 'y').c_str(), "two");
    for (int i = 0; i < 100; ++i) setarr(arr, std::to_string(i * 37 % 100).c_str(), "more");
    Arr* copy = duparr(arr, [](void* value) -> void* { return strdup(static_cast<char*>(value)); });
    delarr(arr, "x");
    EXPECT_STREQ(static_cast<char*>(getarr(copy, "x")), "one");
    EXPECT_EQ(cntarr(copy), 102);
    EXPECT_EQ(fault(copy), "");
    free(delarr(copy, "50"));
    setarr(copy, "101", strdup("new"));
    EXPECT_EQ(fault(copy), "");
    freearr(copy, free);
}

TEST_F(ArrTest, AppliesInOrderWhileKeysAreDeleted) {
    set_all({"d", "a", "c", "e", "b"});
    struct State {
        Arr* arr;
        std::string seen;
    } state{arr, ""};
    EXPECT_EQ(applyarr(
                  arr,
                  [](char* key, void*, void* data) {
                      auto* state = static_cast<State*>(data);
                      state->seen += key;
                      if (*key != 'c') delarr(state->arr, key);
                      return 1;
                  },
                  &state),
              0);
    EXPECT_EQ(state.seen, "abcde");
    EXPECT_EQ(drained(keysarr(arr)), Strings{"c"});
}

TEST(Arr, FreesValuesChildrenFirst) {
    static std::vector<void*> freed;
    Arr* arr = newarr(nullptr);
    for (long i = 1; i <= 40; ++i) setarr(arr, std::to_string(i * 7).c_str(), number(i));
    std::vector<void*> expected;
    const auto walk = tree_check::walk(arr);
    const std::function<void(const Rbnode*)> post_order = [&](const Rbnode* node) {
        if (node == walk.sentinel) return;
        post_order(node->left);
        post_order(node->right);
        expected.push_back(node->value);
    };
    post_order(walk.tree->root);
    EXPECT_EQ(freearr(arr, [](void* value) { freed.push_back(value); }), 0);
    EXPECT_EQ(freed, expected);
}

TEST_F(ArrTest, GrepsBothWays) {
    set_all({"a", "ab", "ba", "[", "b.*"});
    EXPECT_EQ(drained(greparr("a.*", arr)), (Strings{"a", "ab"}));
    EXPECT_EQ(drained(greparr("[", arr)), Strings{});
    EXPECT_EQ(drained(arrgrep(arr, "ba")), (Strings{"b.*", "ba"}));
}

int compare_without_case(void* a, void* b, void* seen) {
    ++*static_cast<int*>(seen);
    return strcasecmp(static_cast<char*>(a), static_cast<char*>(b));
}

TEST(Arr, TellsTwoArraysApart) {
    Arr* a = newarr(nullptr);
    Arr* b = newarr(nullptr);
    for (const char* key : {"both", "changed", "gone", "null", "zero"}) setarr(a, key, "v");
    for (const char* key : {"added", "both", "changed", "null", "zero"}) setarr(b, key, "v");
    setarr(b, "changed", "V");
    setarr(b, "null", nullptr);
    setarr(a, "zero", nullptr);
    setarr(b, "zero", nullptr);
    Tbl* lists[3];
    for (Tbl*& list : lists) pushtbl(list = newtbl(0), strdup("old"));
    diffarr(a, b, nullptr, nullptr, nullptr, lists[0], lists[1], lists[2]);
    EXPECT_EQ(strings(lists[0]), Strings{"gone"});
    EXPECT_EQ(strings(lists[1]), Strings{"added"});
    EXPECT_EQ(strings(lists[2]), (Strings{"changed", "null"}));
    delarr(b, "null");
    delarr(a, "zero");
    delarr(b, "zero");
    int calls = 0;
    diffarr(a, b, compare_without_case, compare_without_case, &calls, lists[0], lists[1], lists[2]);
    EXPECT_EQ(strings(lists[0]), (Strings{"gone", "null"}));
    EXPECT_EQ(strings(lists[2]), Strings{});
    EXPECT_EQ(calls, 5);
    diffarr(nullptr, b, nullptr, nullptr, nullptr, lists[0], lists[1], lists[2]);
    EXPECT_EQ(strings(lists[1]), (Strings{"added", "both", "changed"}));
    for (Tbl* list : lists) freetbl(list, free);
    freearr(a, nullptr);
    freearr(b, nullptr);
}

// Keys that pass through the tree's own functions come from malloc and go to it.
TEST_F(ArrTest, MayBeUsedAsATree) {
    auto* tree = reinterpret_cast<Rbtree*>(arr);
    set_all({"a", "b", "c"});
    EXPECT_STREQ(static_cast<char*>(rblookup(4, "a", tree)), "b");
    free(rbdelete("b", tree)->key);
    EXPECT_EQ(rbinsert(strdup("c"), number(3), tree), &tree->scratch);
    free(tree->scratch.key);
    rbinsert(strdup("d"), number(4), tree);
    EXPECT_EQ(delarr(arr, "d"), number(4));
    rbinsert(strdup("e"), number(5), tree);
    EXPECT_EQ(drained(keysarr(arr)), (Strings{"a", "c", "e"}));
    EXPECT_EQ(fault(arr), "");
}

}  // namespace
