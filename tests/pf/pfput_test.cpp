// Entries stored, replaced and taken out.
#include "pf/pf.hpp"
#include "support/kit.hpp"

using namespace morva::pf;

namespace {

char* index(long i) {
    return reinterpret_cast<char*>(i);
}

class PfPut : public testing::Test {
  protected:
    ~PfPut() override {
        pffree(array_);
        pffree(list_);
    }
    Pf* at(const char* key) { return static_cast<Pf*>(getarr(array_->value.arr, key)); }
    Pf* at(long i) { return static_cast<Pf*>(gettbl(list_->value.tbl, i)); }
    static std::string text(const Pf* node) {
        return node == nullptr          ? "<none>"
               : node->type != PFSTRING ? "<other>"
               : !node->value.string    ? "<null>"
                                        : node->value.string;
    }

    Pf* array_ = pfnew(PFFILE);
    Pf* list_ = pfnew(PFTBL);
    char key_[2] = "k";
};

TEST_F(PfPut, ScalarsAreStoredAsText) {
    const auto stored = [&](int result) {
        EXPECT_EQ(result, 0);
        return text(at(key_));
    };
    char string[] = "a string";
    EXPECT_EQ(stored(pfput_string(array_, key_, string)), "a string");
    string[0] = 'A';
    EXPECT_EQ(text(at(key_)), "a string");
    EXPECT_EQ(stored(pfput_string(array_, key_, nullptr)), "<null>");
    EXPECT_EQ(stored(pfput_int(array_, key_, INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(stored(pfput_double(array_, key_, 0.125)), ".125");
    EXPECT_EQ(stored(pfput_boolean(array_, key_, -1)), "True");
    EXPECT_EQ(stored(pfput_boolean(array_, key_, 0)), "False");
    EXPECT_EQ(at(key_)->parent, nullptr);
}

TEST_F(PfPut, ContainersAreAdoptedAndStringsCopied) {
    Tbl* tbl = newtbl(0);
    pushtbl(tbl, new_string_node("x"));
    pfput(array_, key_, tbl, PFTBL);
    EXPECT_EQ(at(key_)->value.tbl, tbl);
    Arr* arr = newarr(nullptr);
    pfput(array_, key_, arr, PFARR);  // frees the list
    EXPECT_EQ(at(key_)->value.arr, arr);
    pfput(array_, key_, nullptr, PFTBL);
    EXPECT_EQ(maxtbl(at(key_)->value.tbl), 0);
    char call[] = "&env(HOME)";
    pfput(array_, key_, call, PFFUNCTION);
    EXPECT_EQ(at(key_)->type, PFFUNCTION);
    EXPECT_STREQ(at(key_)->value.funct->text, call);
}

TEST_F(PfPut, GraftsLinkTheTreeItself) {
    Pf* tree = pfnew(PFFILE);
    pfput(array_, key_, tree, PFGRAFT);
    EXPECT_EQ(at(key_), tree);
    EXPECT_EQ(tree->type, PFARR);
}

// What an entry holds may be put back into it.
TEST_F(PfPut, EntriesMayReplaceThemselves) {
    pfput_string(array_, key_, "kept");
    pfput_string(array_, key_, at(key_)->value.string);
    EXPECT_EQ(text(at(key_)), "kept");
    pfput(array_, key_, at(key_), PFGRAFT);
    EXPECT_EQ(text(at(key_)), "kept");
    pfput(array_, key_, nullptr, PFTBL);
    pushtbl(at(key_)->value.tbl, new_string_node("item"));
    pfput(array_, key_, at(key_)->value.tbl, PFTBL);
    EXPECT_EQ(maxtbl(at(key_)->value.tbl), 1);
}

TEST_F(PfPut, ListsTakeIndices) {
    pfput_string(list_, index(0), "a");
    pfput_string(list_, index(2), "c");
    pfput_string(list_, index(-1), "d");
    pfput_string(list_, index(0), "A");
    ASSERT_EQ(maxtbl(list_->value.tbl), 4);
    EXPECT_EQ(text(at(0L)) + text(at(1L)) + text(at(2L)) + text(at(3L)), "A<none>cd");
}

TEST_F(PfPut, StringsOfListsAndArraysAreCopied) {
    Tbl* tbl = strtbl("a", "b", nullptr);
    pushtbl(tbl, nullptr);
    pfput_tbl(list_, index(0), tbl);
    freetbl(tbl, nullptr);
    const Pf* nodes = at(0L);
    ASSERT_EQ(maxtbl(nodes->value.tbl), 3);
    EXPECT_EQ(text(static_cast<Pf*>(gettbl(nodes->value.tbl, 1))), "b");
    EXPECT_EQ(text(static_cast<Pf*>(gettbl(nodes->value.tbl, 2))), "<null>");

    Arr* arr = newarr(nullptr);
    setarr(arr, "x", "1");
    pfput_arr(list_, index(1), arr);
    freearr(arr, nullptr);
    EXPECT_EQ(text(static_cast<Pf*>(getarr(at(1L)->value.arr, "x"))), "1");
    pfput_tbl(list_, index(0), nullptr);
    pfput_arr(list_, index(1), nullptr);
    EXPECT_EQ(maxtbl(at(0L)->value.tbl) + cntarr(at(1L)->value.arr), 0);
}

TEST_F(PfPut, DeletedEntriesAreTheCallers) {
    pfput_string(array_, key_, "gone");
    at(key_)->parent = array_;
    Pf* node = pfdel(array_, key_);
    EXPECT_EQ(text(node), "gone");
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(pfdel(array_, key_), nullptr);

    for (const char* item : {"a", "b", "c"}) pfput_string(list_, index(-1), item);
    Pf* second = pfdel(list_, index(1));
    EXPECT_EQ(text(second), "b");
    EXPECT_EQ(text(at(1L)), "c");
    EXPECT_EQ(pfdel(list_, index(2)), nullptr);
    EXPECT_EQ(pfdel(list_, index(-1)), nullptr);
    EXPECT_EQ(pfdel(node, key_), nullptr);
    pffree(node);
    pffree(second);
}

TEST_F(PfPut, SettingsTakeTheirCodes) {
    const auto ask = [](const char*) -> char* { return nullptr; };
    const auto die = [](Pf*, char*, int, int, void*) {};
    const Pfprompter prompter = ask;
    const Pfdie handler = die;
    EXPECT_EQ(pfconfig("ask", reinterpret_cast<void*>(prompter)), 0);
    EXPECT_EQ(pfconfig("die", reinterpret_cast<void*>(handler)), 0);
    EXPECT_EQ(pfconfig("exec", nullptr), 0);
    EXPECT_EQ(Pfprompt, prompter);
    EXPECT_EQ(pfdie, handler);
    EXPECT_FALSE(g_exec_allowed);
    pfconfig("ask", nullptr);
    pfconfig("die", nullptr);
    pfconfig("exec", array_);
    EXPECT_EQ(pfdie, &_pfdie);
    EXPECT_TRUE(g_exec_allowed);
    kit::Logged log;
    EXPECT_EQ(pfconfig("dye", nullptr), -1);
    EXPECT_NE(log.text().find("pfconfig: unrecognized code 'dye'"), std::string::npos);
}

TEST(PfPutDeathTest, BadArgumentsEndTheProgram) {
    char key[] = "k";
    Pf* array = pfnew(PFARR);
    for (const int type : {-1, 4, 5, 6, 9})
        EXPECT_EXIT(pfput(array, key, nullptr, type), testing::ExitedWithCode(1),
                    "Bad type in pfput : " + std::to_string(type));
    Pf* string = pfnew(PFSTRING);
    EXPECT_EXIT(pfput_int(string, key, 1), testing::ExitedWithCode(1),
                "Bad pf pointer in pfput\\.");
    EXPECT_EXIT(pfput(array, key, nullptr, PFGRAFT), testing::ExitedWithCode(1),
                "Bad pf pointer in pfput\\.");
    pffree(array);
    pffree(string);
}

}  // namespace
