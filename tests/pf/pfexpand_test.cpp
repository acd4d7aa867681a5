#include "morva/pfexpand.h"

#include <sstream>
#include <thread>

#include "base/memory.hpp"
#include "pf/pf_tree.hpp"

namespace {

using kit::Logged;
using pf_tree::Tree;

TEST(Expand, PutsInWhatTheEnclosingArraysHold) {
    const Tree tree(R"(root /data
year 1999
2nd two
"x y" blank
list &Tbl{
    a
    &root/item
    &Arr{
        deep &root/&year
    }
}
outer &Arr{
    year 2024
    path &root/&year
    twice &path:&path
    inner &Arr{
        year 7
        own &{year}/&{outer{year}}
    }
    outer{year} literal
}
same &&root/&&&root/&&
kept &nothing &nothing{x} &{nothing{x}} &{} &{root & && &{ &- &list &outer &{list}
edges &root&root.&root_ &2nd &{x y} &{list[0]} &{list[-1]{deep}}
call &env(MORVA_TEST)
calls &call &{outer{path}}
plain no reference
end &)");
    const kit::Env env("MORVA_TEST", "from &root");
    const struct {
        const char* path;
        const char* text;
    } rows[] = {
        {"plain", "no reference"},
        {"list[1]", "/data/item"},
        {"list[2]{deep}", "/data/1999"},
        {"outer{path}", "/data/2024"},
        {"outer{twice}", "/data/2024:/data/2024"},
        {"outer{inner}{own}", "7/literal"},
        {"same", "&root/&/data/&"},
        {"kept", "&nothing &nothing{x} &{nothing{x}} &{} &{root & & &{ &- &list &outer &{list}"},
        {"edges", "/data/data.&root_ two blank a /data/1999"},
        {"call", "from &root"},
        {"calls", "from &root /data/2024"},
        {"end", "&"},
        {"list", "<null>"},
        {"outer", "<null>"},
    };
    const Logged complaint;
    for (const auto& row : rows) EXPECT_EQ(tree.expanded(row.path), row.text) << row.path;
    EXPECT_EQ(complaint.text(), "");
    EXPECT_EQ(pfexpand(nullptr), nullptr);
}

TEST(Expand, KeepsTheStringUntilItsTextIsAnother) {
    const Tree tree("a 1\nb &a\nplain text\n");
    for (const char* path : {"b", "plain"}) {
        Pf* node = tree.at(path);
        const char* text = pfexpand(node);
        EXPECT_EQ(text, node->expanded);
        EXPECT_NE(text, node->value.string);
        EXPECT_EQ(pfexpand(node), text);
    }
    Pf* node = tree.at("a");
    node->value.string[0] = '2';
    EXPECT_EQ(tree.expanded("b"), "2");
    Pf* orphan = pfdup(tree.at("b"));
    EXPECT_STREQ(pfexpand(orphan), "&a");
    pffree(orphan);
    pfput(tree.root, const_cast<char*>("null"), nullptr, PFSTRING);
    EXPECT_EQ(tree.expanded("null"), "<null>");
}

// Setters and copies leave parent links unset: who comes by from the container sets them.
TEST(Expand, SeesTheArraysAroundWhatWasPutIn) {
    const Tree tree("a 1\nold &Arr{\n    x &a\n}\n");
    const auto put = [&tree](const char* key, void* value, int type) {
        pfput(tree.root, const_cast<char*>(key), value, type);
    };
    const auto text_of = [](const char* text) { return const_cast<char*>(text); };
    Pf* const graft = pfnew(PFFILE);
    pfput_string(graft, text_of("b"), "&a&{c{d}[0]}");
    pfset(graft, "c{d}[0]", "&a");
    put("string", text_of("<&graft{b}&{graft{b}}>"), PFSTRING);
    put("function", text_of("&ref(graft)"), PFFUNCTION);
    put("graft", graft, PFGRAFT);
    put("old", tree.at("old")->value.arr, PFARR);  // in a new node
    EXPECT_EQ(graft->parent, nullptr);
    Pf* const copy = pfdup(tree.root);
    for (Pf* root : {tree.root, copy}) {
        EXPECT_STREQ(pfget_string(root, "string"), "<&graft{b}11>");
        EXPECT_STREQ(pfget_string(root, "function{b}"), "11");
        EXPECT_STREQ(pfget_string(root, "old{x}"), "1");
        Arr* const strings = pfget_arr(root, "graft");
        EXPECT_STREQ(static_cast<char*>(getarr(strings, "b")), "11");
        freearr(strings, nullptr);
    }
    pffree(copy);
}

// v0 refers to v1 (`times` times), that to v2, and so on.
std::string chain(int references, const char* prefix, int times, const char* last) {
    std::ostringstream text;
    for (int i = 0; i < references; ++i) {
        text << "v" << i << " " << prefix;
        for (int j = 0; j < times; ++j) text << "&v" << i + 1;
        text << "\n";
    }
    text << "v" << references << " " << last << "\n";
    return text.str();
}

TEST(Expand, LeavesTheWholeValueAsWrittenWhenItCannotEnd) {
    const struct {
        const char* what;
        std::string text;
        const char* reason;
    } rows[] = {
        {"itself", "ok 1\nv0 &ok &v0\n", "it refers to itself"},
        {"a pair", "v0 &v1\nv1 x&v0\n", "it refers to itself"},
        {"a function", "v0 &v1\nv1 &ref(v2)\nv2 &v1\n", "it refers to itself"},
        {"too deep", chain(33, "", 1, "end"), "more than 32 times"},
        {"too large", chain(32, "", 2, "0123456789abcdef"), "it would become too large"},
        {"too large, of nothing", chain(32, "", 2, ""), "it would become too large"},
        {"malformed", "ok 1\nv0 &ok &{ok[x]} &{ok[y]}\n", "'ok[x]', column 4"},
        {"a failing function", "v0 &f &f\nf &nonsense(1)\n", "there is no such function"},
    };
    const kit::Env env("MORVA_TEST", "end");
    for (const auto& row : rows) {
        const Tree tree(row.text);
        const int before = elog_mark();
        const Logged reason;
        EXPECT_EQ(tree.expanded("v0"), tree.at("v0")->value.string) << row.what;
        EXPECT_NE(reason.text().find(row.reason), std::string::npos) << reason.text();
        EXPECT_EQ(elog_mark(), before + 1) << row.what;
        // Nothing of it lasts.
        const Tree sound(chain(32, "a", 1, "&env(MORVA_TEST)"));
        EXPECT_EQ(sound.expanded("v0"), "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaend");
    }
}

TEST(Expand, SeparateTreesMayBeExpandedBySeparateThreads) {
    const auto work = [] {
        const Tree tree(chain(30, "a", 1, "&f") + "f &ref(g)\ng end\n");
        for (int i = 0; i < 2000; ++i) EXPECT_EQ(tree.expanded("v0").size(), 33u);
    };
    std::thread other(work);
    work();
    other.join();
}

}  // namespace
