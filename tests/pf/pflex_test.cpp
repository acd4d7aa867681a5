#include <fcntl.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "containers/tree_check.hpp"
#include "pf/pflex.hpp"
#include "pf/pfscan.hpp"
#include "skerrows.h"
#include "support/kit.hpp"

using namespace std::string_literals;

namespace {

using kit::Logged;

std::string cat(std::initializer_list<std::string_view> parts) {
    std::string all;
    for (const std::string_view part : parts) all.append(part);
    return all;
}

// A tree in one line: {key=value ...} for arrays, [item|item] for lists, f:text for functions.
void show(std::ostream& out, Pf* pf) {
    const auto show_child = [&](void* child) {
        EXPECT_EQ(static_cast<Pf*>(child)->parent, pf);
        show(out, static_cast<Pf*>(child));
    };
    if (pf->type == PFSTRING) {
        out << pf->value.string;
    } else if (pf->type == PFFUNCTION) {
        out << "f:" << pf->value.funct->text;
    } else if (pf->type == PFTBL) {
        for (long i = 0; i < maxtbl(pf->value.tbl); ++i) {
            out << "[|"[i > 0];
            show_child(gettbl(pf->value.tbl, i));
        }
        out << (maxtbl(pf->value.tbl) > 0 ? "]" : "[]");
    } else {
        Tbl* keys = keysarr(pf->value.arr);
        for (long i = 0; i < maxtbl(keys); ++i) {
            char* key = static_cast<char*>(gettbl(keys, i));
            out << "{ "[i > 0] << key << '=';
            show_child(getarr(pf->value.arr, key));
        }
        out << (maxtbl(keys) > 0 ? "}" : "{}");
        freetbl(keys, nullptr);
    }
}

// A tree, freed at the end.
struct Tree {
    Pf* pf = nullptr;
    int result = 0;
    Tree() = default;
    explicit Tree(const std::string& text) { read(text); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() { pffree(pf); }
    int read(const std::string& text) {
        const kit::Guarded copy(text);
        return result = pfcompile_counted(copy.data(), static_cast<long>(copy.size()), &pf);
    }
    Pf* at(const char* key) const { return static_cast<Pf*>(getarr(pf->value.arr, key)); }
    std::string text() const {
        std::ostringstream out;
        show(out, pf);
        return out.str();
    }
};

struct Case {
    const char* name;
    std::string text;
    const char* tree;
};
class PflexTrees : public testing::TestWithParam<Case> {};

TEST_P(PflexTrees, AreWhatTheTextSays) {
    const Logged logged;
    const Tree tree(GetParam().text);
    EXPECT_EQ(tree.text(), GetParam().tree);
    EXPECT_EQ(tree.result, 0);
    EXPECT_EQ(tree.pf->type, PFFILE);
    EXPECT_EQ(tree_check::fault(tree.pf->value.arr), "");
    EXPECT_EQ(logged.text(), "");
}

const Case kKeys[] = {
    {"KeyAlone", "a 1\nb", "{a=1 b=}"},
    {"BlanksAndComments", " \t\n # x\n\t a \t 1 \t # 2\n\n", "{a=1}"},
    {"CommentForAValue", "a # 1\nb\t\nc#1 2\n", "{a= b= c=}"},
    {"CarriageReturnIsOrdinary", "a\r\nb\vc \f1\r\n", "{a\r= b\vc=\f1\r}"},
    {"LastWins", "a 1\nb 2\na &Tbl{\nx\n}\n", "{a=[x] b=2}"},
    {"Quoted", "\"a b\" 1\n'c \"#' 2\n\"\\n\"3\n", "{\\n=3 a b=1 c \"#=2}"},
    {"QuotedAcrossLines", "\"a\n}\n\"1\n", "{a\n}\n=1}"},
    {"EmptyQuotesArePlain", "\"\" 1\n'' 2\n\"\"x 3\n", "{\"\"=1 \"\"x=3 ''=2}"},
    {"QuotedAtTheEnd", "'a b\n\" c\n'", "{a b\n\" c\n=}"},
    {"NoSecondQuote", "'a b\n\"c d", "{\"c=d 'a=b}"},
    {"Escapes", "\\#\\} 1\na\\\\b 2\n\\101\\9x 3\nc\\ d 4\ne\\\nf 5\n",
     "{#}=1 A=3 a\\b=2 c d=4 e\nf=5}"},
    {"OctalStopsAtTheBlank", "a\\1 0\n", "{a\1=0}"},
    {"BraceInside", "a}b 1\n{} 2\n", "{a}b=1 {}=2}"},
};
const Case kValues[] = {
    {"TrimmedAndKept", "a \t x  'y' \"z\" \t # c\n", "{a=x  'y' \"z\"}"},
    {"EscapedHash", "a \\#x # y\nb a#b\n", "{a=#x b=a}"},
    {"Letters", "a <\\b\\n\\r\\t\\q\\\\>\n", "{a=<\b\n\r\tq\\>}"},
    {"Octal", "a \\101\\0612\\18z|\\1#2\n", "{a=A12\1|\1}"},
    {"OctalAtTheEnd", "a x\\6\nb x\\61", "{a=x\6 b=x1}"},
    {"TrimmedBehindEscapes", "a \\t\\040x\\n\\ #\n", "{a=x}"},
    {"NewlineEscaped", "a x\\\ny\nb 1\n", "{a=x\ny b=1}"},
    {"BackslashAtTheEnd", "a x\\", "{a=x\\}"},
    {"FarSpecials", "a 0123456789abcdef0123\\#456789abcdef & 0123456789 # x\n",
     "{a=0123456789abcdef0123#456789abcdef & 0123456789}"},
    {"QuotedZeroBytesAreOneKey", "\"\0z\" 1\n'\0yy' 2 and enough of a text\n"s,
     "{=2 and enough of a text}"},
    {"EndsAtAZeroByte", "a x\0y\nb\0c 1\n\"d\0e\" \\061\\400x\nf &Literal{\nx\0y}\n"s,
     "{a=x b=1 d=1 f=x}"},
    {"EndMarkers", "__END__x 1\n__EOF__ 2\n \t__DATA__ \t\nz 1\n", "{__END__x=1 __EOF__=2}"},
    {"EndMarkerLast", "a __END__\n__END__", "{a=__END__}"},
};
const Case kBlocks[] = {
    {"ListLines", "a &Tbl{ ignored\na b\n\nc\n}x\n", "{a=[a b||c]}"},
    {"ListComments", "a &Tbl{\n# no item\n # an item\nx # y\n__END__\n}", "{a=[|x|__END__]}"},
    {"BlankItem", "a &Tbl{\n \t\n}\n", "{a=[]}"},
    {"Nested", "a &Arr{\nb &Tbl{\n&Arr{\nc 1\n}\n&Tbl{\n}\n} # x\nd\n  }\ne 2\n",
     "{a={b=[{c=1}|[]] d=} e=2}"},
    {"BraceForAValue", "a &Arr{\nb 1\nc }\nd 2\n", "{a={b=1} d=2}"},
    {"UndefInAnArray", "a 1\nb 2\na &Undef{} x\nc &Undef{}\n", "{b=2}"},
    {"UndefAndAgain", "a &Undef{}\na 1\nb 1\nb &Undef{}\nb 2\n", "{a=1 b=2}"},
    {"UndefInAList", "a &Tbl{\n&Undef{}\nx\ny\n&Undef{}#\n}\n", "{a=[x]}"},
    {"Deepest",
     "a &Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\n&Tbl{\nx\n"
     "}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n",
     "{a=[[[[[[[[[[[x]]]]]]]]]]]}"},
};
const Case kFunctions[] = {
    {"Call", "a &env(HOME)\nb  &_x1(a (b) c) \t # d\n", "{a=f:&env(HOME) b=f:&_x1(a (b) c)}"},
    {"LastParenthesis", "a &f(x) # (y)\nb &f(x) # (y) z\nc &f(#)\n",
     "{a=f:&f(x) # (y) b=f:&f(x) c=f:&f(#)}"},
    {"MoreBehind", "a &env(HOME) x\nb &env(HOME)/x # (y) z\n", "{a=&env(HOME) x b=&env(HOME)/x}"},
    {"NoCall", "a &env (x)\nb &1(x)\nc &(x)\nd &x\ne &", "{a=&env (x) b=&1(x) c=&(x) d=&x e=&}"},
    {"InAList", "a &Tbl{\n&f()\n}\n", "{a=[f:&f()]}"},
    {"EndsBeforeAZeroByte", "a &f(\0)\n"s, "{a=&f(}"},
};
const Case kLiterals[] = {
    {"Braces", "l &Literal{ x}\nline {1}\n} x\na 1\n", "{a=1 l=line {1}\n}"},
    {"NotTrimmed", "l &Literal(\n \\# x )\n", "{l= \\# x }"},
    {"EveryPair", "a &Literal[\n[]]\nb &Literal<\n<>>\nc &Literal`\n`''\n", "{a=[] b=<> c=`'}"},
    {"SecondOfAPair", "a &Literal}\n}((\nb &Literal>\n}`\n", "{a=}( b=}}"},
    {"AnyOther", "a &Literal|/x\n||//y/\nb &Literalsome\nxo\n", "{a=||//y b=x}"},
    {"SameTwice", "a &Literal||\nx|\n", "{a=x}"},
    {"ClosedByTheNewline", "a &Literal|\nx|y\n\nb 1\n", "{a=x|y\n b=1}"},
    {"LineEndIsNoDelimiter", "a &Literal\nb &Literal", "{a=&Literal b=&Literal}"},
    {"Terminated", "a &Literal\"E O\n \"E\n}\"E O x\nb 1\n", "{a= \"E\n} b=1}"},
    {"EmptyTerminator", "a &Literal\"\nx\ny\"z\nb 1\n", "{a=x\ny b=1}"},
};

const auto kName = [](const auto& row) { return std::string(row.param.name); };
INSTANTIATE_TEST_SUITE_P(Keys, PflexTrees, testing::ValuesIn(kKeys), kName);
INSTANTIATE_TEST_SUITE_P(Values, PflexTrees, testing::ValuesIn(kValues), kName);
INSTANTIATE_TEST_SUITE_P(Blocks, PflexTrees, testing::ValuesIn(kBlocks), kName);
INSTANTIATE_TEST_SUITE_P(Functions, PflexTrees, testing::ValuesIn(kFunctions), kName);
INSTANTIATE_TEST_SUITE_P(Literals, PflexTrees, testing::ValuesIn(kLiterals), kName);

// What is told of a text that is refused; the tree keeps what came before.
struct Refusal {
    const char* name;
    std::string text;
    const char* tree;
    std::string told;
};
class PflexRefusals : public testing::TestWithParam<Refusal> {};

TEST_P(PflexRefusals, AreTold) {
    const Logged logged;
    const Tree tree(GetParam().text);
    EXPECT_EQ(tree.result, -2);
    EXPECT_EQ(tree.text(), GetParam().tree);
    EXPECT_EQ(tree.pf->type, PFFILE);
    EXPECT_EQ(logged.text(), GetParam().told);
}

std::string open_blocks(long line, int depth, const std::string& head) {
    return cat({"Unknown_Program: *stack* Unterminated arrays or tables at last line #",
                std::to_string(line), ", depth = ", std::to_string(depth), " in input string \n",
                head, "\n"});
}

std::string repeated(int count, const std::string& text) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

const Refusal kRefusals[] = {
    {"BraceTooMany", "a 1\n\"b\n\"\\\n2\n &Tbl{\n}\n}\nc 3\n", "{&Tbl{= a=1 b\n=2}",
     "Unknown_Program: *stack* invalid right brace at line #6 in pf file *internal buffer*\n"},
    {"BraceForAValue", "a }\n", "{}",
     "Unknown_Program: *stack* invalid right brace at line #1 in pf file *internal buffer*\n"},
    {"OpenAtTheEnd", "x &Arr{\na &Tbl{\nb\n", "{x={a=[b]}}",
     open_blocks(4, 2, "  --> x &Arr{\n  --> a &Tbl{\n  --> b\n")},
    {"FiveLines", "a &Tbl{\n1\n2\n3\n4\n5\n6", "{a=[1|2|3|4|5|6]}",
     open_blocks(7, 1, "  --> a &Tbl{\n  --> 1\n  --> 2\n  --> 3\n  --> 4\n  --> ...\n")},
    {"OpenBlockBeforeTheEndMarker", "a &Arr{\n__END__\n}\n", "{a={}}",
     open_blocks(2, 1, "  --> a &Arr{\n  --> __END__\n  --> }\n")},
    {"EndlessLiteral", "a &Arr{\nb &Arr{\nc 1\nc &Literal{\n{}\nd", "{a={b={c=1}}}",
     open_blocks(6, 1,
                 "  --> a &Arr{\n  --> b &Arr{\n  --> c 1\n  --> c &Literal{\n  --> {}\n"
                 "  --> ...\n")},
    {"EndlessWord", "a &Literal\"E\n\"\nb 1", "{}",
     open_blocks(3, 1, "  --> a &Literal\"E\n  --> \"\n")},
    {"ApostropheNeverCloses", "a &Literal'\n'`", "{}", open_blocks(2, 1, "  --> a &Literal'\n")},
    {"DelimiterAtTheEnd", "a &Literal|", "{}", open_blocks(1, 1, "")},
    {"TooDeep", cat({"k ", repeated(12, "&Tbl{\n"), "x\n"}), "{k=[[[[[[[[[[[[]]]]]]]]]]]]}",
     "Unknown_Program: *stack* too many Lex_levels of nesting at line #12 in pf file "
     "*internal buffer*\n" +
         open_blocks(12, 11,
                     cat({"  --> k &Tbl{\n", repeated(4, "  --> &Tbl{\n"), "  --> ...\n"}))},
};
INSTANTIATE_TEST_SUITE_P(All, PflexRefusals, testing::ValuesIn(kRefusals), kName);

TEST(Pflex, CutsLongKeysAndTerminators) {
    const std::string key(1023, 'k'), word(127, 'w');
    const Tree tree(cat(
        {key, "1 a\n'", key, "2' b\n\\", key, "3 c\nd &Literal\"", word, "x\ny\"", word, "\n"}));
    EXPECT_EQ(cntarr(tree.pf->value.arr), 2);
    EXPECT_STREQ(tree.at(key.c_str())->value.string, "c");
    EXPECT_STREQ(tree.at("d")->value.string, "y");
}

TEST(Pflex, ReadsOverATree) {
    Tree tree("a &Arr{\nx 1\n}\nb 1\nc &Tbl{\n1\n}\n");
    tree.read("a &Arr{\ny 2\n}\nc &Undef{}\nd &Undef{}\nb 2\nb 3\ne &Tbl{\n}\ne 4\n");
    EXPECT_EQ(tree.text(), "{a={y=2} b=3 e=4}");
    tree.read("");
    EXPECT_EQ(tree.text(), "{a={y=2} b=3 e=4}");
}

// The text is one of the strings that it replaces.
TEST(Pflex, ReadsAStringOfTheTree) {
    for (const char* first : {"script new", "script &Undef{}"}) {
        const Logged logged;
        Tree tree(cat({"script &Literal\"END\n", first, "\nx 1\ny &Tbl{\n\"END\n"}));
        EXPECT_EQ(pfcompile(tree.at("script")->value.string, &tree.pf), -2);
        EXPECT_STREQ(tree.at("x")->value.string, "1");
        EXPECT_NE(logged.text().find(first), std::string::npos);
    }
}

TEST(Pflex, SortsManyKeys) {
    std::string text, expected;
    for (int i = 0; i < 5000; ++i) {
        const std::string number = std::to_string(i * 7919 % 5000 + 10000);
        const std::string key = cat({"a_key_with_a_prefix_", number});
        if (i % 3 > 0) text += cat({key, " old\n"});
        text += cat({key, " ", number, "\n"});
        const std::string sorted = std::to_string(i + 10000);
        expected += cat({i > 0 ? " " : "{", "a_key_with_a_prefix_", sorted, "=", sorted});
    }
    const Tree tree(text);
    EXPECT_EQ(tree.text(), expected + "}");
    EXPECT_EQ(tree_check::fault(tree.pf->value.arr), "");
}

TEST(Pflex, TellsOfReplacements) {
    Pf_show_replacements = 1;
    const std::string told = kit::captured(2, [] {
        Tree tree("x 1 # one\nx 2\nl &Tbl{\n1\n1\n}\n \"x\" &Arr{\n}\n");
        tree.read("l 1\n");
    });
    Pf_show_replacements = 0;
    EXPECT_EQ(told,
              "replacing key 'x' at line #2 of *internal buffer*\n"
              "replacing key 'x' at line #7 of *internal buffer*\n"
              "replacing key 'l' at line #1 of *internal buffer*\n");
    EXPECT_EQ(kit::captured(2, [] { Tree("x 1\nx 2\n"); }), "");
}

TEST(Pflex, ComplainsOfOpenersBehindOtherText) {
    std::string shown;
    const std::string told = kit::captured(2, [&] {
        shown = Tree("a x &Tbl{\nb x\\t&Arr{ y\nc &Literal\nd &x &Literal{ &Tbl{\n").text();
    });
    EXPECT_EQ(shown, "{a=x &Tbl{ b=x\t&Arr{ y c=&Literal d=&x &Literal{ &Tbl{}");
    EXPECT_EQ(told,
              "Unknown_Program: value contains '&Tbl{'\n\t'x &Tbl{'\n"
              "Unknown_Program: value contains '&Arr{'\n\t'x\t&Arr{ y'\n"
              "Unknown_Program: value contains '&Tbl{'\n\t'&x &Literal{ &Tbl{'\n"
              "Unknown_Program: value contains '&Arr{'\n\t'&x &Literal{ &Tbl{'\n");
}

TEST(Pflex, NodesKnowTheirSource) {
    const Tree tree("a &Tbl{\n1\n}\nf &file(x)\ng &filename(x)\nh &files(x)\n");
    for (const Pf* node :
         {tree.pf, tree.at("a"), tree.at("f"), static_cast<Pf*>(gettbl(tree.at("a")->value.tbl, 0)),
          tree.at("f")->value.funct->result, tree.at("g")->value.funct->result})
        EXPECT_STREQ(node->filename, "*internal buffer*");
    EXPECT_EQ(tree.at("h")->value.funct->result, nullptr);
    Pf* root = pfnew(PFARR);
    root->filename = const_cast<char*>("mine");
    pfcompile("a 1", &root);
    EXPECT_STREQ(root->filename, "mine");
    pffree(root);
}

// Reads `text` from a pipe as a descriptor without a name, with one, and as a stream.
std::vector<Tree> read_as_files(const std::string& text) {
    const kit::TempDir dir;
    kit::write_file(dir.file("x"), text);
    std::vector<Tree> trees(3);
    FILE* stream = std::fopen(dir.file("x").c_str(), "r");
    const int fd = fileno(stream);
    trees[0].result = pfinfd(fd, &trees[0].pf);
    ::lseek(fd, 0, SEEK_SET);
    trees[1].result = morva::pf::read_descriptor(fd, "name.pf", &trees[1].pf);
    ::lseek(fd, 0, SEEK_SET);
    trees[2].result = pfin(stream, &trees[2].pf);
    std::fclose(stream);
    return trees;
}

TEST(PflexFiles, AreReadToTheirEnd) {
    std::string text = "a &Tbl{\n";
    for (int i = 0; i < 40000; ++i) text += "item\n";
    const char* const names[] = {"*pf filename unknown*", "name.pf", "*unknown pfin file*"};
    const char* const* name = names;
    for (const Tree& tree : read_as_files(text + "}\nz 1")) {
        EXPECT_EQ(tree.result, 0);
        EXPECT_STREQ(tree.at("z")->value.string, "1");
        EXPECT_EQ(maxtbl(tree.at("a")->value.tbl), 40000);
        EXPECT_STREQ(tree.pf->filename, *name++);
    }
}

TEST(PflexFiles, TellOfOpenBlocks) {
    const Logged logged;
    read_as_files("a &Arr{\n");
    const std::string told = "Unknown_Program: *stack* Unterminated arrays or tables in ";
    EXPECT_EQ(logged.text(), told + "input FILE at last line #2: depth = 1\n" + told +
                                 "parameter file name.pf at last line #2: depth = 1\n" + told +
                                 "input FILE at last line #2: depth = 1\n");
}

TEST(PflexFiles, KeepWholeLinesBeforeAReadError) {
    const Logged logged;
    const kit::TempDir dir;
    FILE* folder = std::fopen(dir.path().c_str(), "r");
    Tree tree("a 1");
    EXPECT_EQ(pfin(folder, &tree.pf), -2);
    EXPECT_EQ(morva::pf::read_descriptor(fileno(folder), "folder", &tree.pf), -2);
    std::fclose(folder);
    EXPECT_EQ(tree.text(), "{a=1}");
    const std::string told = "Unknown_Program: read failed in pf input routine for file ";
    EXPECT_EQ(logged.text(), told + "*unknown pfin file*\n\tIs a directory\n" + told +
                                 "folder\n\tIs a directory\n");
}

TEST(Pflex, RefusesWhatItCannotReadInto) {
    const Logged logged;
    Pf* list = pfnew(PFTBL);
    Pf* none = nullptr;
    EXPECT_EQ(pfcompile("a 1", &list), -2);
    EXPECT_EQ(pfinfd(0, &list), -2);
    EXPECT_EQ(pfin(stdin, nullptr), -2);
    EXPECT_EQ(pfin(nullptr, &none), -2);
    EXPECT_EQ(pfcompile(nullptr, &none), -2);
    EXPECT_EQ(pfcompile_counted("a", -1, &none), -2);
    EXPECT_EQ(list->type, PFTBL);
    EXPECT_EQ(none, nullptr);
    pffree(list);
    EXPECT_EQ(logged.text(),
              "Unknown_Program: pfcompile: can't read into a Pf of type 2\n"
              "Unknown_Program: pfinfd: can't read into a Pf of type 2\n"
              "Unknown_Program: pfin: no variable for the tree\n"
              "Unknown_Program: pfin: no stream\n"
              "Unknown_Program: pfcompile: no text\n"
              "Unknown_Program: pfcompile_counted: no text of -1 bytes\n");
}

TEST(PflexDeathTest, EndsWithoutMemory) {
    const std::string text =
        cat({"a 1\n\\b &Arr{\nc ", std::string(3000, 'x'), "\n}\nl &Tbl{\nf &f()\n}\n"});
    elog_log(0, "x");
    elog_clear_register(0);
    for (long nth = 1;; ++nth) {
        bool done = false;
        const auto read = [&] {
            morva::fail_allocation(nth, false);
            Pf* pf = nullptr;
            pfcompile(text.c_str(), &pf);
            done = morva::allocations_seen() < nth;
            morva::fail_allocation(0, false);
            std::exit(done ? 0 : 2);
        };
        EXPECT_EXIT(
            read(), [&](int status) { return (done = status == 0) || WEXITSTATUS(status) == 1; },
            "Out of memory|^$")
            << nth;
        if (done) break;
    }
}

// Each thread reads texts of its own; nobody sees another one's.
TEST(PflexThreads, ReadAtOnce) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t] {
            const std::string name = cat({"t", std::to_string(t)});
            Tree last;
            for (int i = 0; i < 200; ++i) {
                Tree tree(cat({name, " &Tbl{\n", name, "\n}\nx &env(", name, ")\ny }\n"}));
                ASSERT_EQ(tree.text(), cat({"{", name, "=[", name, "] x=f:&env(", name, ")}"}));
                std::swap(last.pf, tree.pf);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(__atomic_load_n(&Pf_busy, __ATOMIC_RELAXED), 0);
    elog_clear_register(0);
}

// Nodes of one reading are freed by several threads, the last one frees their memory.
TEST(PflexThreads, FreeNodesOfOneReading) {
    for (int round = 0; round < 50; ++round) {
        Tree tree("a &Tbl{\n1\n2\n}\nb &Arr{\nx 1\ny 2\n}\n");
        Pf* list = static_cast<Pf*>(delarr(tree.pf->value.arr, "a"));
        std::thread other([&] { pffree(list); });
        Pf* node = tree.at("b");
        morva::pf::clear_node(node);
        node->type = PFSTRING;
        node->value.string = morva::pf::new_text("a string in a block of its own");
        other.join();
    }
}

struct Tokens : morva::pf::SilentSink {
    std::string seen;
    std::string_view text;
    void add(const char* kind, const morva::pf::Span& where) {
        seen +=
            cat({kind, std::to_string(where.line), ":",
                 std::to_string(morva::pf::column_of(text, where.begin)), "=", where.text(), ";"});
    }
    void key(const morva::pf::Key& key) { add("k", key.where); }
    void value(const morva::pf::Value& value) { add("v", value.where); }
    void literal(const morva::pf::Literal& literal) { add("l", literal.where); }
    void function(const morva::pf::Span& where) { add("f", where); }
    void undef(const morva::pf::Span& where) { add("u", where); }
    void open(const morva::pf::Span& where, morva::pf::Block) { add("o", where); }
    void close(const morva::pf::Span& where) { add("c", where); }
    void end_marker(const morva::pf::Span& where) { add("e", where); }
};

TEST(Pfscan, TellsWhereTokensStand) {
    Tokens tokens;
    tokens.text =
        "a#x 1\n 'b\n' \tx y\\ \t# z\nc &Literal{\n}x\nd\t&f() # z\n&Undef{} &Undef{}\n"
        "e &Tbl{ x\n \\\n z\n } \n__END__ \nx";
    const morva::pf::Ending ending = morva::pf::scan(tokens.text, tokens);
    EXPECT_EQ(tokens.seen,
              "k1:1=a;v1:2=;k2:2='b\n';v3:4=x y\\ ;k4:1=c;l4:3=&Literal{\n};k6:1=d;f6:3=&f();"
              "k7:1=&Undef{};u7:10=&Undef{};k8:1=e;o8:3=&Tbl{;v9:2=\\\n z;c11:2=};e12:1=__END__ ;");
    EXPECT_TRUE(ending.clean);
    EXPECT_EQ(ending.line, 12);
}

// Reading takes time in proportion to the text, whatever stands in it: these would not end in time
// if anything were looked for to the end of the text again and again.
TEST(Pfscan, NeverLooksTwice) {
    for (const std::string line : {"'a b\n", "k &f(x)) ) y\n", "k &f(((\n", "k \"\n", "'' '\n",
                                   "a &Literal\n", "\\\n", "k x\\ \\ \\ y &Arr\n", "\\'k '\n"}) {
        std::string text = "k &Tbl{\n}\n";
        while (text.size() < 4000000) text += line;
        morva::pf::SilentSink sink;
        EXPECT_TRUE(morva::pf::scan(text, sink).clean);
    }
}

}  // namespace
