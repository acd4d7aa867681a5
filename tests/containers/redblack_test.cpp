#include <map>
#include <random>
#include <set>
#include <thread>

#include "base/memory.hpp"
#include "containers/tree_check.hpp"
#include "support/kit.hpp"

namespace {

using tree_check::fault;

// Keys that are numbers in a pointer, in descending order.
void* number(long n) {
    return reinterpret_cast<void*>(n);
}
int descending(const void* a, const void* b) {
    const auto x = reinterpret_cast<long>(a), y = reinterpret_cast<long>(b);
    return x < y ? 1 : x > y ? -1 : 0;
}

struct TreeTest : testing::Test {
    Rbtree* tree = rbinit(nullptr);
    ~TreeTest() override { rbdestroy(tree); }
    void insert_all(const std::vector<const char*>& keys) {
        for (const char* key : keys) rbinsert(const_cast<char*>(key), nullptr, tree);
    }
    std::string looked_up(int mode, const char* key) {
        const void* found = rblookup(mode, key, tree);
        return found == nullptr ? "-" : static_cast<const char*>(found);
    }
};

TEST_F(TreeTest, TellsNewReplacedAndKeptApart) {
    char first[] = "key", second[] = "key";
    int one = 1, two = 2;
    auto* node = static_cast<Rbnode*>(rbinsert(first, &one, tree));
    EXPECT_EQ(node, tree->root);
    EXPECT_EQ(node->key, first);
    EXPECT_EQ(tree->replace, 1);
    EXPECT_EQ(rbinsert(second, &two, tree), &tree->scratch);
    EXPECT_EQ(tree->scratch.key, first);
    EXPECT_EQ(tree->scratch.value, &one);
    EXPECT_EQ(node->key, second);
    EXPECT_EQ(node->value, &two);
    tree->replace = 0;
    EXPECT_EQ(rbinsert(first, &one, tree), node);
    EXPECT_EQ(node->key, second);
    EXPECT_EQ(node->value, &two);
}

TEST_F(TreeTest, HandsTheDeletedPairBackInTheScratchRecord) {
    int value = 0;
    char key[] = "key";
    rbinsert(key, &value, tree);
    EXPECT_EQ(rbdelete("other", tree), nullptr);
    EXPECT_EQ(rbfind("key", tree), key);
    EXPECT_EQ(rbsearch("key", tree), &value);
    EXPECT_EQ(rbdelete("key", tree), &tree->scratch);
    EXPECT_EQ(tree->scratch.key, key);
    EXPECT_EQ(tree->scratch.value, &value);
    EXPECT_EQ(rbfind("key", tree), nullptr);
    EXPECT_EQ(rbsearch("key", tree), nullptr);
    EXPECT_EQ(rbdelete("key", nullptr), nullptr);
}

TEST_F(TreeTest, LooksUpByMode) {
    for (int mode = -1; mode <= 9; ++mode) EXPECT_EQ(looked_up(mode, "b"), "-") << mode;
    insert_all({"b", "d", "f"});
    const struct {
        const char* key;
        const char* by_mode[9];
    } rows[] = {
        {"a", {"-", "b", "-", "-", "b", "-", "-", "b", "f"}},
        {"b", {"b", "b", "b", "-", "d", "d", "-", "b", "f"}},
        {"c", {"-", "d", "b", "b", "d", "-", "-", "b", "f"}},
        {"d", {"d", "d", "d", "b", "f", "f", "b", "b", "f"}},
        {"e", {"-", "f", "d", "d", "f", "-", "-", "b", "f"}},
        {"f", {"f", "f", "f", "d", "-", "-", "d", "b", "f"}},
        {"g", {"-", "-", "f", "f", "-", "-", "-", "b", "f"}},
    };
    for (const auto& row : rows)
        for (int mode = 0; mode < 9; ++mode)
            EXPECT_EQ(looked_up(mode, row.key), row.by_mode[mode]) << row.key << " mode " << mode;
    EXPECT_EQ(looked_up(9, "b") + looked_up(-1, "b"), "--");
    EXPECT_EQ(rblookup(7, nullptr, tree), rbfind("b", tree));
}

TEST(Tree, StaysARedBlackTreeUnderRandomOperations) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Rbtree* tree = rbinit(descending);
    std::set<long, std::greater<>> model;
    for (int i = 0; i < 8000; ++i) {
        const long key = static_cast<long>(random() % 300) + 1;
        // Grow for a while, then shrink, down to nothing at times.
        const bool grows = random() % 8 < (i / 1000 % 2 == 0 ? 6 : 1);
        if (grows) {
            const bool is_new = rbinsert(number(key), number(-key), tree) != &tree->scratch;
            ASSERT_EQ(is_new, model.insert(key).second);
        } else {
            const Rbpair* removed = rbdelete(number(key), tree);
            ASSERT_EQ(removed != nullptr, model.erase(key) == 1);
            if (removed != nullptr) {
                ASSERT_EQ(removed->value, number(-key));
            }
        }
        const auto walk = tree_check::walk(tree);
        ASSERT_EQ(walk.fault, "");
        ASSERT_TRUE(std::equal(walk.nodes.begin(), walk.nodes.end(), model.begin(), model.end(),
                               [](const Rbnode* node, long n) { return node->key == number(n); }));
        const long probe = static_cast<long>(random() % 302);
        const auto at_least = model.lower_bound(probe);  // the first that is not before the probe
        ASSERT_EQ(rblookup(1, number(probe), tree),
                  at_least == model.end() ? nullptr : number(*at_least));
        ASSERT_EQ(rblookup(3, number(probe), tree),
                  at_least == model.begin() ? nullptr : number(*std::prev(at_least)));
    }
    rbdestroy(tree);
}

TEST(Tree, TraversesInOrderWhileTheCurrentPairIsDeleted) {
    Rbtree* tree = rbinit(descending);
    for (long i = 1; i <= 200; ++i) rbinsert(number(i * 37 % 211), nullptr, tree);
    struct State {
        Rbtree* tree;
        std::vector<void*> seen;
    } state{tree, {}};
    rbtraverse(
        tree,
        [](void* key, void*, void* data) {
            auto* state = static_cast<State*>(data);
            if (state->seen.size() % 3 != 0) rbdelete(key, state->tree);
            state->seen.push_back(key);
            return 0;
        },
        &state);
    EXPECT_EQ(state.seen.size(), 200u);
    EXPECT_TRUE(std::is_sorted(state.seen.begin(), state.seen.end(), std::greater<>()));
    EXPECT_EQ(tree_check::walk(tree).nodes.size(), 67u);
    EXPECT_EQ(fault(tree), "");
    rbdestroy(tree);
}

// The key of the pair that comes next goes, and the tree changes its shape.
TEST(Tree, TraversesInOrderWhileTheNextPairIsReplaced) {
    Rbtree* tree = rbinit(nullptr);
    for (const char* key : {"b", "d", "f"}) rbinsert(strdup(key), nullptr, tree);
    struct State {
        Rbtree* tree;
        std::string seen;
    } state{tree, ""};
    rbtraverse(
        tree,
        [](void* key, void*, void* data) {
            auto* state = static_cast<State*>(data);
            state->seen += static_cast<char*>(key);
            const void* following = rblookup(4, key, state->tree);
            if (following == nullptr) return 0;
            char* copy = strdup(static_cast<const char*>(following));
            EXPECT_EQ(rbinsert(copy, nullptr, state->tree), &state->tree->scratch);
            free(state->tree->scratch.key);
            rbinsert(strdup(("a" + state->seen).c_str()), nullptr, state->tree);
            return 0;
        },
        &state);
    EXPECT_EQ(state.seen, "bdf");
    rbtraverse(
        tree, [](void* key, void*, void*) { return free(key), 0; }, nullptr);
    rbdestroy(tree);
}

TEST(Tree, GivesNullWhenMemoryRunsOut) {
    morva::fail_allocation(1, false);
    EXPECT_EQ(rbinit(nullptr), nullptr);
    morva::fail_allocation(0, false);
    rbdestroy(nullptr);
}

TEST(Tree, SeparateTreesMayBeChangedBySeparateThreads) {
    const auto work = [](unsigned seed) {
        std::mt19937 random(seed);
        Rbtree* tree = rbinit(descending);
        for (int i = 0; i < 20000; ++i) {
            void* key = number(static_cast<long>(random() % 500) + 1);
            if (random() % 2) {
                rbinsert(key, key, tree);
            } else {
                rbdelete(key, tree);
            }
        }
        EXPECT_EQ(fault(tree), "");
        rbdestroy(tree);
    };
    std::thread other(work, 1);
    work(2);
    other.join();
}

}  // namespace
