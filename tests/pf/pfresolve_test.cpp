#include "morva/pfresolve.h"

#include "pf/pf_tree.hpp"

namespace {

using pf_tree::Tree;

constexpr int kMissing = -1, kRefused = -2;

struct Resolve : testing::Test {
    Tree tree{R"(name plain
odd[1] bracket
call &Arr{
    x &ref(stations)
}
grid &Tbl{
    &Tbl{
        corner
    }
}
stations &Arr{
    b{r} quoted
    '"' a quote
    AAK &Arr{
        channels &Tbl{
            BHZ
            BHN
        }
    }
}
)"};
    const kit::Logged logged{};

    // So that freeing the tree has nothing to complain of.
    static void settle(Pf* placeholder) { placeholder->type = PFSTRING; }
    std::string text_at(const char* path) { return tree.expanded(path); }
};

TEST_F(Resolve, FollowsKeysAndIndices) {
    const struct {
        const char* path;
        int type;
        const char* text;
    } rows[] = {
        {"name", PFSTRING, "plain"},
        {"{name}", PFSTRING, "plain"},
        {"stations", PFARR, "<null>"},
        {"stations{AAK}{channels}", PFTBL, "<null>"},
        {"stations{AAK}{channels}[0]", PFSTRING, "BHZ"},
        {"stations{'AAK'}{\"channels\"}[-1]", PFSTRING, "BHN"},
        {"stations{AAK}{channels}[-2]", PFSTRING, "BHZ"},
        {"stations{AAK}{channels}[-3]", kMissing, nullptr},
        {"stations{AAK}{channels}[2]", kMissing, nullptr},
        {"stations{AAK}{channels}[99999999999999999999]", kMissing, nullptr},
        {"stations{AAK}{channels}[-9223372036854775808]", kMissing, nullptr},
        {"stations{\"b{r}\"}", PFSTRING, "quoted"},
        {"stations{'\"'}", PFSTRING, "a quote"},
        {"grid[0][0]", PFSTRING, "corner"},
        {"odd[1]", PFSTRING, "bracket"},  // a key just like this exists
        {"call{x}", PFFUNCTION, "<null>"},
        {"call{x}{AAK}{channels}[1]", PFSTRING, "BHN"},
        {"nothing", kMissing, nullptr},
        {"nothing{x}[1]", kMissing, nullptr},
        {"name{x}", kMissing, nullptr},
        {"name[0]", kMissing, nullptr},
        {"stations[0]", kMissing, nullptr},
        {"grid{0}", kMissing, nullptr},
        {"name}", kMissing, nullptr},  // no expression, but a name
    };
    for (const auto& row : rows) {
        Pf* node = tree.root;
        EXPECT_EQ(pfresolve(tree.root, row.path, 0, &node), row.type) << row.path;
        EXPECT_EQ(node != nullptr, row.text != nullptr) << row.path;
        if (row.text != nullptr) {
            EXPECT_EQ(text_at(row.path), row.text) << row.path;
        }
    }
    EXPECT_EQ(logged.text(), "");
    EXPECT_EQ(pfresolve(tree.root, "name", 0, nullptr), PFSTRING);
}

TEST_F(Resolve, NamesTheColumnOfAFault) {
    const struct {
        const char* path;
        int column;
        const char* reason;
    } rows[] = {
        {"a{b", 2, "this brace is not closed"},
        {"a{b{c}}", 4, "a key with a brace must be quoted"},
        {"a{}", 3, "the key is empty"},
        {"a{'b}", 3, "this quote is not closed"},
        {"a{'b'c}", 6, "a closing brace must follow the quoted key"},
        {"a{'b'", 6, "a closing brace must follow the quoted key"},
        {"a{b}c", 5, "'{' or '[' expected"},
        {"name{b}]", 8, "'{' or '[' expected"},
        {"a[0", 2, "this bracket is not closed"},
        {"a[]", 3, "the index is no whole number"},
        {"a[+1]", 3, "the index is no whole number"},
        {"a[1x]", 3, "the index is no whole number"},
    };
    for (const auto& row : rows)
        for (int create : {0, 1}) {
            const kit::Logged fault;
            Pf* node = tree.root;
            EXPECT_EQ(pfresolve(tree.root, row.path, create, &node), kRefused) << row.path;
            EXPECT_EQ(node, nullptr);
            EXPECT_NE(fault.text().find(std::string("'") + row.path + "', column " +
                                        std::to_string(row.column) + ": " + row.reason),
                      std::string::npos)
                << fault.text();
        }
    EXPECT_EQ(cntarr(tree.root->value.arr), 5);
}

TEST_F(Resolve, TakesAnIndexInThePointerOnALists) {
    Pf* list = tree.at("stations{AAK}{channels}");
    const auto index = [](long n) { return reinterpret_cast<const char*>(n); };
    Pf* node = nullptr;
    EXPECT_EQ(pfresolve(list, index(1), 0, &node), PFSTRING);
    EXPECT_EQ(node, tree.at("stations{AAK}{channels}[1]"));
    EXPECT_EQ(pfresolve(list, index(2), 0, &node), kMissing);
    EXPECT_EQ(pfresolve(list, index(-1), 0, &node), kMissing);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(pfresolve(list, index(2), 1, &node), PFPLACEHOLDER);
    EXPECT_EQ(node, tree.at("stations{AAK}{channels}[2]"));
    settle(node);
    for (long refused : {4L, -1L}) EXPECT_EQ(pfresolve(list, index(refused), 1, &node), kRefused);
    EXPECT_EQ(maxtbl(list->value.tbl), 3);
}

TEST_F(Resolve, AnswersWithTheNodeItselfWhereThereIsNothingToSearch) {
    Pf* node = nullptr;
    EXPECT_EQ(pfresolve(nullptr, "name", 0, &node), kMissing);
    for (const char* path : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(pfresolve(tree.root, path, 0, &node), PFFILE);
        EXPECT_EQ(node, tree.root);
        EXPECT_EQ(pfresolve(tree.root, path, 1, &node), kRefused);
    }
    for (const char* leaf : {"name", "call{x}"}) {
        Pf* pf = tree.at(leaf);
        EXPECT_EQ(pfresolve(pf, reinterpret_cast<const char*>(3), 0, &node), pf->type);
        EXPECT_EQ(node, pf);
        EXPECT_EQ(pfresolve(pf, "name", 1, &node), kRefused);
    }
}

TEST_F(Resolve, CreatesWhatIsMissing) {
    char source[] = "source.pf";
    tree.at("stations")->filename = source;
    Pf* leaf = nullptr;
    ASSERT_EQ(pfresolve(tree.root, "stations{BBB}{sensors}[0]{kind}", 1, &leaf), PFPLACEHOLDER);
    EXPECT_EQ(leaf, tree.at("stations{BBB}{sensors}[0]{kind}"));
    const char* const chain[] = {"stations{BBB}{sensors}[0]", "stations{BBB}{sensors}",
                                 "stations{BBB}", "stations"};
    const int types[] = {PFARR, PFTBL, PFARR, PFARR};
    const Pf* node = leaf;
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(node->filename, source);
        node = node->parent;
        EXPECT_EQ(node, tree.at(chain[i]));
        EXPECT_EQ(node->type, types[i]);
    }
    Pf* again = nullptr;
    EXPECT_EQ(pfresolve(tree.root, "stations{BBB}{sensors}[0]{kind}", 1, &again), PFPLACEHOLDER);
    EXPECT_EQ(again, leaf);
    settle(leaf);
    EXPECT_EQ(pfresolve(tree.root, "stations{BBB}{sensors}[1]", 1, &again), PFPLACEHOLDER);
    settle(again);
}

TEST_F(Resolve, RefusesToReplaceOrLeaveHoles) {
    Pf* before = pfdup(tree.root);
    for (const char* path : {"name{x}", "name[0]", "stations[0]", "grid{x}", "grid[2]", "grid[-2]",
                             "new[1]", "new{x}[0][1]", "new[-1]", "call{x}{new}", "call{x}{AAK}"}) {
        const kit::Logged refusal;
        Pf* node = tree.root;
        EXPECT_EQ(pfresolve(tree.root, path, 1, &node), kRefused) << path;
        EXPECT_EQ(node, nullptr);
        EXPECT_NE(refusal.text().find(path), std::string::npos) << refusal.text();
    }
    EXPECT_EQ(pfcmp(before, tree.root), 0);
    pffree(before);
}

TEST_F(Resolve, FillsHolesThatAreThere) {
    Tbl* items = tree.at("grid")->value.tbl;
    settbl(items, 3, nullptr);
    Pf* node = nullptr;
    EXPECT_EQ(pfresolve(tree.root, "grid[2]", 0, &node), kMissing);
    EXPECT_EQ(pfresolve(tree.root, "grid[2]", 1, &node), PFPLACEHOLDER);
    EXPECT_EQ(gettbl(items, 2), node);
    settle(node);
    EXPECT_EQ(maxtbl(items), 4);
}

}  // namespace
