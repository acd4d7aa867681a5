// Whole trees: made, copied, compared, freed, described.
#include "pf/pf.hpp"

#include "support/kit.hpp"

using namespace morva::pf;

namespace {

struct FreeTree {
    void operator()(Pf* pf) const { pffree(pf); }
};
using Owned = std::unique_ptr<Pf, FreeTree>;

void put(Pf* array, const char* key, Pf* value) {
    pffree(static_cast<Pf*>(setarr(array->value.arr, key, value)));
}

// Two strings, a function, a list of a string and an array.
Owned sample(int type = PFFILE, const char* deepest = "z") {
    Owned root(pfnew(type));
    put(root.get(), "rate", new_string_node("40.0"));
    put(root.get(), "empty", pfnew(PFSTRING));
    put(root.get(), "home", new_function_node("&env(HOME)"));
    Pf* list = pfnew(PFTBL);
    pushtbl(list->value.tbl, new_string_node("first"));
    pushtbl(list->value.tbl, pfnew(PFARR));
    put(static_cast<Pf*>(gettbl(list->value.tbl, 1)), "x", new_string_node(deepest));
    put(root.get(), "list", list);
    return root;
}

// `depth` containers, arrays and lists in turn, around a string.
Owned nested(int depth) {
    Pf* node = new_string_node("deep");
    for (int i = 0; i < depth; ++i) {
        Pf* around = pfnew(i % 2 == 0 ? PFTBL : PFARR);
        if (i % 2 == 0)
            pushtbl(around->value.tbl, node);
        else
            put(around, "k", node);
        node = around;
    }
    return Owned(node);
}

TEST(Pf, CopiesEqualTheirOriginalButShareNothing) {
    Owned original = sample();
    original->filename = const_cast<char*>("a.pf");
    original->expanded = strdup("old");
    Pf* home = static_cast<Pf*>(getarr(original->value.arr, "home"));
    home->value.funct->result = new_string_node("/home");
    home->value.funct->hook = new_hook(free);
    home->value.funct->hook->pvt = malloc(3);
    home->parent = original.get();

    Owned copy(pfdup(original.get()));
    EXPECT_EQ(pfcmp(original.get(), copy.get()), 0);
    EXPECT_EQ(copy->type, PFFILE);
    EXPECT_EQ(copy->filename, nullptr);
    EXPECT_EQ(copy->expanded, nullptr);
    const Pf* home_copy = static_cast<Pf*>(getarr(copy->value.arr, "home"));
    EXPECT_NE(home_copy->value.funct->text, home->value.funct->text);
    EXPECT_EQ(home_copy->value.funct->result, nullptr);
    EXPECT_EQ(home_copy->value.funct->hook, nullptr);
    EXPECT_EQ(home_copy->parent, nullptr);
    original.reset();
    EXPECT_EQ(pfcmp(copy.get(), sample().get()), 0);
}

TEST(Pf, ComparisonFindsEveryKindOfDifference) {
    const Owned base = sample();
    struct Case {
        const char* what;
        void (*change)(Pf* root);
        int result;
    };
    const auto child = [](Pf* root, const char* key) {
        return static_cast<Pf*>(getarr(root->value.arr, key));
    };
    static const auto get = child;
    const Case cases[] = {
        {"nothing", [](Pf*) {}, 0},
        {"array for file", [](Pf* root) { root->type = PFARR; }, 0},
        {"string", [](Pf* root) { get(root, "rate")->value.string[0] = '5'; }, 1},
        {"null string", [](Pf* root) { get(root, "empty")->value.string = strdup(""); }, 1},
        {"function", [](Pf* root) { get(root, "home")->value.funct->text[1] = 'E'; }, 1},
        {"key more", [](Pf* root) { put(root, "z", pfnew(PFSTRING)); }, 1},
        {"other key",
         [](Pf* root) { put(root, "rates", static_cast<Pf*>(delarr(root->value.arr, "rate"))); },
         1},
        {"item more", [](Pf* root) { pushtbl(get(root, "list")->value.tbl, pfnew(PFARR)); }, 1},
        {"list for array", [](Pf* root) { put(root, "list", pfnew(PFARR)); }, 1},
        {"null node", [](Pf* root) { put(root, "rate", nullptr); }, 1},
    };
    for (const Case& c : cases) {
        Owned other = sample();
        c.change(other.get());
        EXPECT_EQ(pfcmp(base.get(), other.get()), c.result) << c.what;
        EXPECT_EQ(pfcmp(other.get(), base.get()), c.result) << c.what;
    }
    EXPECT_EQ(pfcmp(base.get(), sample(PFFILE, "y").get()), 1);
    EXPECT_EQ(pfcmp(nullptr, nullptr), 0);
    EXPECT_EQ(pfcmp(base.get(), nullptr), 1);

    kit::Logged log;
    const Owned strange(pfnew(9)), stranger(pfnew(9));
    EXPECT_EQ(pfcmp(strange.get(), stranger.get()), -1);
    strange->type = stranger->type = PFSTRING;
    EXPECT_NE(log.text().find("unknown PF type=9"), std::string::npos);
}

TEST(Pf, ContainersWithoutAValueCountAsEmpty) {
    for (const int type : std::initializer_list<int>{PFARR, PFTBL}) {
        const Owned bare(new_node(type)), empty(pfnew(type));
        EXPECT_EQ(pfcmp(bare.get(), empty.get()), 0);
        EXPECT_EQ(pfcmp(Owned(pfdup(bare.get())).get(), empty.get()), 0);
        void* value = nullptr;
        EXPECT_EQ(pfget(bare.get(), nullptr, &value), PFINVALID);
        EXPECT_EQ(pfmaxtbl(bare.get()), 0);
    }
}

TEST(Pf, DepthCostsNoStack) {
    const Owned deep = nested(200'000);
    const Owned copy(pfdup(deep.get()));
    EXPECT_EQ(pfcmp(deep.get(), copy.get()), 0);
    EXPECT_EQ(pfcmp(deep.get(), nested(199'998).get()), 1);
}

TEST(Pf, FreeingLeavesValuesOfSpecialTypesAlone) {
    pffree(nullptr);
    for (const int type : std::initializer_list<int>{PFUNDEFINED, PFPLACEHOLDER, PFGRAFT, -2}) {
        Pf* node = pfnew(type);
        char mine[] = "not from malloc";
        node->value.string = mine;
        node->expanded = strdup("freed");
        const std::string told = kit::captured(2, [&] { pffree(node); });
        EXPECT_NE(told.find("pffree: didn't free type " + std::to_string(type)), std::string::npos);
    }
    for (const int type : std::initializer_list<int>{PFEXEC_ERROR, PFINVALID, PFSTRING}) {
        Pf* node = pfnew(type);
        node->value.string = strdup("freed");
        EXPECT_EQ(kit::captured(2, [&] { pffree(node); }), "");
    }
}

TEST(PfDeathTest, TypesThatCannotBeCopiedEndTheProgram) {
    for (const int type :
         std::initializer_list<int>{PFEXEC_ERROR, PFUNDEFINED, PFPLACEHOLDER, PFGRAFT}) {
        Owned list(pfnew(PFTBL));
        pushtbl(list->value.tbl, pfnew(type));
        EXPECT_EXIT(pfdup(list.get()), testing::ExitedWithCode(1),
                    "Bad type in pfdup : " + std::to_string(type));
        static_cast<Pf*>(gettbl(list->value.tbl, 0))->type = PFSTRING;
    }
}

TEST(PfDeathTest, RunningOutOfMemoryNamesTheBlock) {
    const auto fails = [](int type, long nth) {
        morva::fail_allocation(nth, false);
        pfnew(type);
    };
    EXPECT_EXIT(fails(PFSTRING, 1), testing::ExitedWithCode(1),
                "Out of memory in pfnew at line [0-9]+ of 'pf.hpp'\n.*malloc 40 bytes for pf\n");
    EXPECT_EXIT(fails(PFFUNCTION, 2), testing::ExitedWithCode(1),
                "in pfnew at .*\n.*malloc 24 bytes for pf->value.pffunct\n");
}

TEST(Pf, ShowpfDescribesANode) {
    Owned node(new_string_node("40.0"));
    node->filename = const_cast<char*>("a.pf");
    node->expanded = strdup("41");
    const std::string shown = kit::captured(2, [&] { showpf("rate", node.get()); });
    char expected[300];
    std::snprintf(expected, sizeof expected,
                  "rate pf=%p    leaf of pf: simple string\n    value=%p (40.0)\n"
                  "    filename=a.pf\n    filled_out=41\n\n",
                  static_cast<void*>(node.get()), static_cast<void*>(node->value.string));
    EXPECT_EQ(shown, expected);
    EXPECT_EQ(kit::captured(2, [] { showpf("x", nullptr); }), "    pf=0\n");
    Owned list(pfnew(PFTBL));
    EXPECT_NE(kit::captured(2, [&] { showpf("l", list.get()); }).find("    ordered Tbl{ list\n"),
              std::string::npos);
}

}  // namespace
