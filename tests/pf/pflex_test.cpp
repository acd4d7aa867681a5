#include <fcntl.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "pf/pflex.hpp"
#include "pf/pfscan.hpp"
#include "skerrows.h"
#include "support/kit.hpp"

using namespace std::string_literals;

namespace {

using kit::Logged;

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
    ~Tree() { pffree(pf); }
    int read(const std::string& text) {
        const kit::Guarded copy(text);
        return result = pfcompile_counted(copy.data(), static_cast<long>(copy.size()), &pf);
    }
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
INSTANTIATE_TEST_SUITE_P(Keys, PflexTrees, testing::ValuesIn(kKeys),
                         [](const auto& row) { return row.param.name; });

}  // namespace
