#include "morva/pfwrite.h"

#include <random>
#include <utility>
#include <vector>

#include "base/memory.hpp"
#include "log/elog_child.hpp"
#include "morva/pflex.h"
#include "pf/pf.hpp"
#include "skerrows.h"
#include "support/failing_calls.hpp"
#include "support/kit.hpp"

namespace {

using testing::HasSubstr;
using Tree = std::unique_ptr<Pf, decltype(&pffree)>;

// Trees as they are made by hand: arr({{"key", str("value")}, {"list", list({str("a")})}}).
Pf* str(const char* text) {
    return morva::pf::new_string_node(text);
}
Pf* fun(const char* text) {
    return morva::pf::new_function_node(text);
}
Pf* list(std::vector<Pf*> items) {
    Pf* node = pfnew(PFTBL);
    for (Pf* item : items) pushtbl(node->value.tbl, item);
    return node;
}
Pf* arr(std::vector<std::pair<std::string, Pf*>> entries, int type = PFARR) {
    Pf* node = pfnew(type);
    for (const auto& [key, value] : entries) setarr(node->value.arr, key.c_str(), value);
    return node;
}
Tree file(std::vector<std::pair<std::string, Pf*>> entries) {
    return Tree(arr(std::move(entries), PFFILE), pffree);
}
std::string out_text(Pf* pf) {
    return kit::written([&](FILE* stream) { EXPECT_EQ(pfout(stream, pf), 0); });
}

TEST(PfwriteForms, EveryStringInThePlainestFormThatKeepsIt) {
    const std::string q = "\"EndOfLiteral";
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"as it stands", "as it stands"},
        {"x\r", "x\r"},
        {"a \"q\" & $1", "a \"q\" & $1"},
        {"a#b", "a\\#b"},
        {"back\\slash", "back\\\\slash"},
        {"a}b", "a\\}b"},
        {"a{1}b", "a{1}b"},
        {"}{", "\\}{"},
        {"{}}{}}", "{}\\}{}\\}"},
        {"{{}#}", "{{}\\#}"},
        {"0123456789abcde#", "0123456789abcde\\#"},
        {"0123456789abcdef#", "0123456789abcdef\\#"},
        {"0123456789abcdef}123456789abcdefgh", "0123456789abcdef\\}123456789abcdefgh"},
        {" lead", "&Literal{\n lead}"},
        {"trail\t", "&Literal{\ntrail\t}"},
        {" ", "&Literal{\n }"},
        {"a\nb", "&Literal{\na\nb}"},
        {"a#\\\n", "&Literal{\na#\\\n}"},
        {"{1}\n", "&Literal{\n{1}\n}"},
        {"{\n", "&Literal(\n{\n)"},
        {"}{\n", "&Literal(\n}{\n)"},
        {"{(\n", "&Literal[\n{(\n]"},
        {"{(][\n", "&Literal<\n{(][\n>"},
        {"{([<\n", "&Literal`\n{([<\n'"},
        {"{([<\n'", "&Literal" + q + "\n{([<\n'" + q},
        {"{([<'\n" + q, "&Literal" + q + "0\n{([<'\n" + q + q + "0"},
        {"{([<'\n" + q + "0", "&Literal" + q + "1\n{([<'\n" + q + "0" + q + "1"},
        {"{([<'\n" + q + "01" + q + "12",
         "&Literal" + q + "2\n{([<'\n" + q + "01" + q + "12" + q + "2"},
    };
    for (const auto& [s, form] : rows) {
        EXPECT_EQ(kit::taken(str2pf(kit::Guarded(s + '\0').data())), form);
        const Tree tree = file({{"k", str(s.c_str())}});
        EXPECT_EQ(kit::taken(pf2string(tree.get())), "k\t" + form + "\n");
        EXPECT_EQ(out_text(tree.get()), "k\t" + form + "\n");
    }
}

TEST(PfwriteForms, CountersGoOnBehindTheLastOneUsed) {
    std::string s = "{([<'\n", used;
    for (int i = 0; i < 120'000; ++i) used += "\"EndOfLiteral" + std::to_string(i);
    const std::string text = kit::taken(str2pf((s + used).c_str()));
    EXPECT_EQ(text.substr(0, 29), "&Literal\"EndOfLiteral120000\n{");
}

TEST(PfwriteForms, ModesAndEscapesByThemselves) {
    EXPECT_EQ(kit::taken(pfoutput_literal("plain", 1)), "plain");
    EXPECT_EQ(kit::taken(pfoutput_literal(" }", 1)), " \\}");
    EXPECT_EQ(kit::taken(pfoutput_literal("a\n", 1)), "&Literal{\na\n}");
    EXPECT_EQ(kit::taken(pfoutput_literal("plain", 2)), "&Literal{\nplain}");
    EXPECT_EQ(kit::taken(pfescape_special_chars("a\nb#\\{}} \t")), "a\\\nb\\#\\\\{}\\} \t");
    EXPECT_EQ(kit::taken(pfescape_special_chars("")), "");
    EXPECT_EQ(kit::taken(str2pf(nullptr)), "");
}

TEST(PfwriteKeys, AreEscapedByPfwriteAndQuotedByBoth) {
    const struct {
        const char *key, *pfwrite, *pf2string;
    } rows[] = {
        {"plain", "plain", "plain"},
        {"sixteen_letters_", "sixteen_letters_", "sixteen_letters_"},
        {"seventeen_letters", "seventeen_letters", "seventeen_letters"},
        {"", "", ""},
        {"two words", "\"two words\"", "\"two words\""},
        {"two \"words\"", "'two \"words\"'", "'two \"words\"'"},
        {"a longer key of \"words\"", "'a longer key of \"words\"'", "'a longer key of \"words\"'"},
        {"\"quote", "\"quote", "\"quote"},
        {"tab\tkey", "tab\tkey", "tab\tkey"},
        {"tab\t", "tab\t", "tab\t"},
        {" lead", "\" lead\"", "\" lead\""},
        {"a#", "a\\#", "a#"},
        {"a}{}", "a\\}{}", "a}{}"},
        {"back\\slash", "back\\\\slash", "back\\slash"},
        {"new\nline", "new\\\nline", "new\nline"},
        {"a #}", "\"a \\#\\}\"", "\"a #}\""},
        {"a_key_that_is_long#", "a_key_that_is_long\\#", "a_key_that_is_long#"},
    };
    for (const auto& row : rows) {
        const Tree tree = file({{row.key, str("v")}});
        EXPECT_EQ(out_text(tree.get()), row.pfwrite + std::string("\tv\n"));
        EXPECT_EQ(kit::taken(pf2string(tree.get())), row.pf2string + std::string("\tv\n"));
    }
}

Tree sample() {
    return file({{"b", arr({{"y", list({str("one"), str(""), arr({{"z", str("1\n")}})})},
                            {"x", fun("&env(HOME)")}})},
                 {"a", str("1")},
                 {"c", list({})}});
}

TEST(PfwriteLayout, IndentsBlocks) {
    EXPECT_EQ(out_text(sample().get()),
              "a\t1\n"
              "b\t&Arr{\n"
              "    x\t&env(HOME)\n"
              "    y\t&Tbl{\n"
              "        one\n"
              "        \n"
              "        &Arr{\n"
              "            z\t&Literal{\n1\n}\n"
              "        }\n"
              "    }\n"
              "}\n"
              "c\t&Tbl{\n"
              "}\n");
}

TEST(PfwriteLayout, StringsHaveNoIndentation) {
    const std::string inside = "x\t&env(HOME)\ny\t&Tbl{\none\n\n&Arr{\nz\t&Literal{\n1\n}\n}\n}\n";
    EXPECT_EQ(kit::taken(pf2string(sample().get())),
              "a\t1\nb\t&Arr{\n" + inside + "}\nc\t&Tbl{\n}\n");
    const Tree tree = sample();
    Pf* b = static_cast<Pf*>(getarr(tree->value.arr, "b"));
    EXPECT_EQ(kit::taken(pf2string(b)), inside);
    void* stack = nullptr;
    pushstr(&stack, "text ");
    EXPECT_EQ(pfappend(&stack, 1, b), 0);
    EXPECT_EQ(pfappend(&stack, 0, b), 0);
    EXPECT_EQ(kit::taken(popstr(&stack, 1)), "text &Arr{\n" + inside + "}\n" + inside);
}

TEST(PfwriteLayout, OtherRoots) {
    const Tree root(list({arr({{"k", str("v")}}, PFFILE)}), pffree);
    EXPECT_EQ(out_text(root.get()), "&Tbl{\n    &Arr{\n        k\tv\n    }\n}\n");
    EXPECT_EQ(kit::taken(pf2string(root.get())), "&Tbl{\n&Arr{\nk\tv\n}\n}\n");
    const Tree array(arr({{"k", str("v")}}), pffree);
    EXPECT_EQ(out_text(array.get()), "&Arr{\n    k\tv\n}\n");
    const Tree string(str(" s"), pffree), function(fun("&ask(name)"), pffree);
    EXPECT_EQ(out_text(string.get()), "&Literal{\n s}\n");
    EXPECT_EQ(kit::taken(pf2string(function.get())), "&ask(name)\n");
}

TEST(PfwriteLayout, ArraysOfAnySizeComeInTheOrderOfTheirKeys) {
    for (const int count : {7, 8, 9, 100, 5000}) {
        std::string expected;
        const Tree tree = file({});
        for (int i = count - 1; i >= 0; --i) {
            char key[32];
            std::snprintf(key, sizeof key, "%s%05d", i % 3 ? "k" : "key_of_some_length", i);
            setarr(tree->value.arr, key, str(key));
        }
        Tbl* keys = keysarr(tree->value.arr);
        for (long i = 0; i < count; ++i) {
            const std::string key = static_cast<char*>(gettbl(keys, i));
            expected += key + "\t" + key + "\n";
        }
        freetbl(keys, nullptr);
        EXPECT_EQ(out_text(tree.get()), expected);
        EXPECT_EQ(kit::taken(pf2string(tree.get())), expected);
    }
}

TEST(PfwriteLayout, DeepTreesTakeNoStack) {
    Pf* node = list({});
    for (int i = 0; i < 200'000; ++i) node = list({node});
    const Tree root(node, pffree);
    EXPECT_EQ(kit::taken(pf2string(root.get())).size(), 200'001 * std::strlen("&Tbl{\n}\n"));
}

class Pfwrite : public testing::Test {
  protected:
    kit::TempDir folder_;
    const std::string path_ = folder_.file("x.pf");
    kit::Logged logged_;
};

TEST_F(Pfwrite, ReplacesTheContents) {
    kit::write_file(path_, std::string(100, 'x'));
    EXPECT_EQ(pfwrite(path_.c_str(), file({{"k", str("v")}}).get()), 0);
    EXPECT_EQ(kit::read_file(path_), "k\tv\n");
    for (const int error : {EINTR, 0}) {
        kit::fail_call(1, error);
        EXPECT_EQ(pfwrite(path_.c_str(), sample().get()), 0) << logged_.text();
        EXPECT_EQ(kit::read_file(path_), out_text(sample().get()));
    }
}

TEST_F(Pfwrite, WithoutAValueLeavesAnEmptyFile) {
    const Tree valueless(pfnew(PFSTRING), pffree);
    for (Pf* pf : {static_cast<Pf*>(nullptr), valueless.get()}) {
        kit::write_file(path_, "old");
        EXPECT_EQ(pfwrite(path_.c_str(), pf), -1);
        EXPECT_EQ(kit::read_file(path_), "");
        EXPECT_EQ(pfout(stdout, pf), -1);
        EXPECT_EQ(kit::taken(pf2string(pf)), "");
        void* stack = nullptr;
        EXPECT_EQ(pfappend(&stack, 0, pf), -1);
        EXPECT_EQ(stack, nullptr);
    }
    EXPECT_EQ(logged_.text(), "");
    const Tree inner = file({{"a", nullptr}, {"b", pfnew(PFPLACEHOLDER)}, {"c", pfnew(PFSTRING)}});
    EXPECT_EQ(pfwrite(path_.c_str(), inner.get()), 0);
    EXPECT_EQ(kit::read_file(path_), "a\t\nb\t\nc\t\n");
    static_cast<Pf*>(getarr(inner->value.arr, "b"))->type = PFSTRING;  // to be freed in silence
}

TEST_F(Pfwrite, FailuresHaveReasons) {
    const Tree small = file({{"k", str("v")}}), large = file({});
    for (int i = 0; i < 10'000; ++i)
        setarr(large->value.arr, std::to_string(i).c_str(), str("some value"));
    EXPECT_EQ(pfwrite(folder_.file("no/such").c_str(), small.get()), -1);
    EXPECT_EQ(pfwrite(nullptr, small.get()), -1);
    for (const Tree* tree : {&small, &large}) {
        const kit::Logged logged;
        EXPECT_EQ(pfwrite("/dev/full", tree->get()), -1);
        EXPECT_THAT(logged.text(), HasSubstr("Can't close /dev/full.\n"));
        EXPECT_THAT(logged.text(), HasSubstr("No space left on device"));
    }
    FILE* full = std::fopen("/dev/full", "w");
    EXPECT_EQ(pfout(full, large.get()), -1);
    std::fclose(full);
    EXPECT_EQ(pfout(nullptr, small.get()), -1);
    const std::string text = logged_.text();
    EXPECT_THAT(text, HasSubstr("Can't open " + folder_.file("no/such") + " for writing.\n"));
    EXPECT_THAT(text, HasSubstr("Can't write parameters to a stream.\n"));
}

// True when a text gives the tree without a word.
bool reads_back(const std::string& text, Pf* tree) {
    const kit::Logged logged;
    Pf* copy = nullptr;
    int result = -1;
    const std::string errors = kit::captured(2, [&] { result = pfcompile(text.c_str(), &copy); });
    const bool equal = result == 0 && pfcmp(tree, copy) == 0 && errors + logged.text() == "";
    pffree(copy);
    return equal;
}

class PfwriteAtomic : public Pfwrite {
  protected:
    PfwriteAtomic() { kit::write_file(path_, "old\t1\n"); }
    ~PfwriteAtomic() override { kit::fail_call(0, 0); }
    int write(const Tree& tree) { return pfwrite_atomic(path_.c_str(), tree.get()); }
    long entries() {
        return std::distance(std::filesystem::directory_iterator(folder_.path()), {});
    }
};

// Keys and strings of which pfwrite's text does not read back, and the text that does.
TEST_F(PfwriteAtomic, FindsFormsThatReadBack) {
    const std::pair<std::string, std::string> keys[] = {
        {"a # b", "\"a # b\""},
        {"a }\\\n\"b\"", "'a }\\\n\"b\"'"},
        {"tab\tkey", "\"tab\tkey\""},
        {"\"quote", "'\"quote'"},
        {"'", "\"'\""},
        {"__END__", "\"__END__\""},
        {"", "\\000"},
        {"a\"b'c", "a\"b'c"},
        {" \t\n\"'#}\\", "\\040\\011\\012\\042\\047\\043\\175\\134"},
        {std::string(1023, 'k'), std::string(1023, 'k')},
    };
    for (const auto& [key, form] : keys) {
        const Tree tree = file({{key, str("")}});
        ASSERT_EQ(write(tree), 0) << key << logged_.text();
        EXPECT_EQ(kit::read_file(path_), form + "\t\n");
        EXPECT_TRUE(reads_back(kit::read_file(path_), tree.get())) << key;
    }
    for (const std::string s : {"&Tbl{", "&Arr{ x", "&Undef{}", "&Literalx", "&env(x)", "a &Tbl{",
                                "&env(#)", "&f()\\ )"}) {
        const Tree tree = file({{"k", list({str(s.c_str())})}});
        EXPECT_FALSE(reads_back(out_text(tree.get()), tree.get())) << s;
        ASSERT_EQ(write(tree), 0) << s << logged_.text();
        EXPECT_TRUE(reads_back(kit::read_file(path_), tree.get())) << s;
    }
    for (const char* s :
         {"&env(x) y", "&name", "&{path}/x", "& env(x)", "a &env(x)", "&env(x)#", "&Lit{"}) {
        const Tree tree = file({{"k", str(s)}});
        ASSERT_EQ(write(tree), 0) << s;
        EXPECT_EQ(kit::read_file(path_), out_text(tree.get())) << s;
    }
}

Pf* nested(int depth) {
    Pf* node = str("x");
    while (depth-- > 0) node = list({node});
    return node;
}

TEST_F(PfwriteAtomic, RefusesWhatNoTextExpressesAndSaysWhere) {
    const std::pair<Tree, std::string> rows[] = {
        {file({{"ok", str("")}, {std::string(1024, 'k'), str("")}}), "is a key of more than 1023"},
        {file({{"a", list({str(""), arr({{"b c", nullptr}})})}}), "'a[1]{b c}' has no value"},
        {file({{"a", pfnew(PFSTRING)}}), "'a' has no value"},
        {file({{"a", pfnew(PFINVALID)}}), "'a' has no value"},
        {file({{"a", fun("&env(x) y")}}), "'a' is no function on one line"},
        {file({{"a", fun("&Literal(x)")}}), "'a' is no function on one line"},
        {file({{"a", fun("&env(\n)")}}), "'a' is no function on one line"},
        {file({{"a", nested(12)}}), "[0]' is nested too deeply"},
        {Tree(list({}), pffree), "the tree is not an array"},
        {Tree(nullptr, pffree), "the tree is not an array"},
    };
    for (const auto& [tree, reason] : rows) {
        const kit::Logged logged;
        EXPECT_EQ(write(tree), -1) << reason;
        EXPECT_THAT(logged.text(), HasSubstr("Can't write '" + path_ + "'"));
        EXPECT_THAT(logged.text(), HasSubstr(reason));
        EXPECT_EQ(kit::read_file(path_), "old\t1\n");
    }
    EXPECT_EQ(write(file({{"a", nested(11)}})), 0) << logged_.text();
    EXPECT_EQ(entries(), 1);
}

TEST_F(PfwriteAtomic, FailuresLeaveTheOldFile) {
    const Tree tree = file({{"k", str("v")}}), array(arr({{"k", str("v")}}), pffree);
    kit::fail_call(4, EIO);  // fsync: openat, fchmod and write come first
    EXPECT_EQ(write(tree), -1);
    EXPECT_EQ(kit::calls_seen(), 4);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't replace file '" + path_ + "'"));
    EXPECT_EQ(kit::read_file(path_), "old\t1\n");
    EXPECT_EQ(pfwrite_atomic(folder_.file("no/such").c_str(), tree.get()), -1);
    EXPECT_EQ(pfwrite_atomic(nullptr, tree.get()), -1);
    EXPECT_EQ(entries(), 1);
    EXPECT_EQ(write(array), 0);
    EXPECT_EQ(kit::read_file(path_), "k\tv\n");
}

// The tree of a generation: many entries with its number.
Tree generation(long n) {
    Tree tree = file({{"last", str(std::to_string(n).c_str())}});
    for (int i = 0; i < 500; ++i)
        setarr(tree->value.arr, std::to_string(i).c_str(), str(std::to_string(n).c_str()));
    return tree;
}

// The number of the generation that the file holds, whole; -1 when it is none.
long generation_in(const std::string& path) {
    Pf* pf = nullptr;
    const Tree tree((pfcompile(kit::read_file(path).c_str(), &pf), pf), pffree);
    const Pf* last = static_cast<Pf*>(getarr(pf->value.arr, "last"));
    const long n = last != nullptr ? std::atol(last->value.string) : -1;
    return pfcmp(pf, generation(n).get()) == 0 ? n : -1;
}

TEST_F(PfwriteAtomic, KilledAtAnyInstantLeavesTheOldFileOrTheNew) {
    long n = 0, killed_inside = 0;
    ASSERT_EQ(write(generation(0)), 0);
    // The instants lie within the time that a child needs for a few files, however slow it is.
    const double start = std_now();
    ASSERT_EQ(kit::in_child([&] { return write(generation(0)); }).status, 0);
    const double span = 3e6 * (std_now() - start);
    std::minstd_rand random(static_cast<unsigned>(::getpid()));
    for (int kill = 0; kill < 200; ++kill) {
        const pid_t child = ::fork();
        if (child == 0)
            for (long next = n + 1;; ++next)
                if (write(generation(next)) != 0) ::_exit(1);
        ::usleep(random() % static_cast<useconds_t>(span));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const long found = generation_in(path_);
        ASSERT_GE(found, n) << "after kill " << kill;
        n = found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
            if (entry.path() != path_) killed_inside += std::filesystem::remove(entry.path());
    }
    EXPECT_GT(n, 0);
    RecordProperty("killed_inside", static_cast<int>(killed_inside));
}

TEST(PfwriteMemory, EveryAllocationEndsWithItsMessage) {
    const Tree tree = sample();
    setarr(tree->value.arr, "a #", str("{([<'\n\"EndOfLiteral0"));
    for (int i = 0; i < 100; ++i)
        setarr(tree->value.arr, std::to_string(i).c_str(), str("some text"));
    kit::TempDir folder;
    for (long nth = 1;; ++nth) {
        ASSERT_LT(nth, 200);
        const kit::Ended ended = kit::in_child([&] {
            morva::fail_allocation(nth, false);
            std::free(pf2string(tree.get()));
            std::free(str2pf("x#"));
            pfwrite_atomic(folder.file("x").c_str(), tree.get());
            pfwrite(folder.file("y").c_str(), tree.get());
            return morva::allocations_seen() < nth ? 0 : 42;
        });
        if (ended.status == 0) break;
        if (ended.status == 42) continue;  // an allocation of the register
        ASSERT_EQ(ended.status, 1) << nth << ended.errors;
        EXPECT_THAT(ended.errors, HasSubstr("Out of memory in "));
    }
}

}  // namespace
