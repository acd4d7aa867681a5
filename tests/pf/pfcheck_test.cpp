// Findings, places, edits and layouts of parameter text.
#include "morva/pfcheck.h"

#include "support/kit.hpp"

namespace {

std::string lines_of(Tbl* findings) {
    std::string lines;
    for (long i = 0; i < maxtbl(findings); ++i) {
        const auto* f = static_cast<Pffinding*>(gettbl(findings, i));
        lines += std::to_string(f->line) + ":" + std::to_string(f->column) +
                 (f->severity == PFERROR ? " error: " : ": ") + f->text + "\n";
    }
    freetbl(findings, freepffinding);
    return lines;
}

struct CheckCase {
    const char* name;
    std::string text, findings;
};
class PfCheck : public testing::TestWithParam<CheckCase> {};

// What is reported as an error is just what the reader refuses.
TEST_P(PfCheck, FindsWhatIsWrong) {
    const std::string& text = GetParam().text;
    const kit::Guarded bytes(text);
    const long length = static_cast<long>(text.size());
    EXPECT_EQ(lines_of(pfcheck_text(bytes.data(), length, "x.pf")), GetParam().findings);
    const kit::Logged logged;
    Pf* pf = nullptr;
    int status = 0;
    kit::captured(2, [&] { status = pfcompile_counted(bytes.data(), length, &pf); });
    EXPECT_EQ(status != 0, GetParam().findings.find(" error: ") != std::string::npos);
    pffree(pf);
}

std::string nested(int blocks) {
    std::string text;
    for (int i = 0; i < blocks; ++i) text += "k &Arr{\n";
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Text, PfCheck,
    testing::Values(
        CheckCase{"Clean",
                  "a 1 # one\nl &Tbl{ # items\nx\n\n  # no comment\n} # end\nr &a/&{l[0]}\n", ""},
        CheckCase{"OpenBlocks", "a &Arr{\n  l &Tbl{\n x\n",
                  "1:3 error: this array 'a' is never closed\n"
                  "2:5 error: this list 'l' is never closed\n"},
        CheckCase{"OpenItem", "l &Tbl{\n&Arr{\n}\n", "1:3 error: this list 'l' is never closed\n"},
        CheckCase{"StrayBrace", "a 1\n }\nb &Arr{\r\n",
                  "2:2 error: a closing brace too many: no block is open; the rest is not read\n"},
        CheckCase{"TooDeep", nested(12),
                  "12:3 error: blocks are nested more than 11 deep; the rest is not read\n"},
        CheckCase{"OpenLiteral", "b &Arr{\na &Literal(\ntext(\n)}\n",
                  "2:3 error: this literal is never closed\n"},
        CheckCase{"OpenerInText", "a x &Tbl{\n",
                  "1:5: '&Tbl{' is part of a text here and opens nothing\n"},
        CheckCase{"OneLineBlock", "a &Tbl{ x }\n} y\n",
                  "1:9: 'x }' behind the opener is ignored\n"
                  "2:3: 'y' behind the closing brace is ignored\n"},
        CheckCase{"LiteralRests",
                  "a &Literal{ x\ny} z\nb &Literal\"" + std::string(130, 'w') + "\n\"" +
                      std::string(127, 'w') + "\n",
                  "1:13: 'x' behind the opener is ignored\n2:4: 'z' behind the end of the literal "
                  "is ignored\n"
                  "3:3: this terminator is cut to 127 characters\n"},
        CheckCase{"SameKey", "a 1\nb &Arr{\n  a 2\n  'a' 3\n}\na 4\n",
                  "4:3: the key ''a'' is given again: line 3 had it before\n"
                  "6:1: the key 'a' is given again: line 1 had it before\n"},
        CheckCase{"Undef", "a 1\na &Undef{}\nb &Undef{}\na 2\n",
                  "3:1: there is nothing that '&Undef{}' could remove\n"},
        CheckCase{"References",
                  "a &b &{c{d}} AT&&T\ne &Arr{\n  f &a\n  g &h\n}\ni &ref(e)\nj &ref(k)\nm &{n[}\n",
                  "1:3: '&b' refers to nothing and stays as written\n"
                  "1:6: '&{c{d}}' refers to nothing and stays as written\n"
                  "4:5: '&h' refers to nothing and stays as written\n"
                  "7:8: 'k' refers to nothing and stays as written\n"
                  "8:3: 'n[' is no path\n"},
        CheckCase{"Circles", "a &b\nb &ref(c)\nc &a\nd &d\n",
                  "3:3: this value refers back to itself and stays as written\n"
                  "4:3: this value refers back to itself and stays as written\n"},
        CheckCase{"Functions", "a &env(HOME)\nb &enf(HOME)\nc &exec(echo &x)\nd &env(&b) # x\n",
                  "2:3: there is no function '&enf'\n"},
        CheckCase{"Keys", "a#b 1\n'a\nb' 2\n" + std::string(1024, 'k') + " 3\n",
                  "1:2: the '#' ends the key 'a' and begins a comment\n"
                  "2:1: this quoted key goes on over the end of its line\n"
                  "4:1: this key is cut to 1023 characters\n"},
        CheckCase{"BraceForValue", "b &Arr{\n k }\n",
                  "2:2: the key 'k' gets no value: a brace closes the block\n"},
        CheckCase{"Bytes", std::string("a 1\r\nb \0 2\r\n", 12),
                  "1:4: carriage returns at the ends of lines belong to keys and values\n"
                  "2:3: a zero byte: the text that it stands in ends here\n"},
        CheckCase{"ControlCharacters", "\x1b[31m 1\n\x1b[31m 2\n",
                  "2:1: the key '\\033[31m' is given again: line 1 had it before\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PfCheckText, LimitsItsWarnings) {
    std::string text;
    for (int i = 0; i < 3000; ++i) text += "k &x\n";
    Tbl* findings = pfcheck_text((text + "}").c_str(), static_cast<long>(text.size() + 1), "x");
    EXPECT_EQ(maxtbl(findings), 1001);
    const auto* last = static_cast<Pffinding*>(gettbl(findings, 1000));
    EXPECT_EQ(last->severity, PFERROR);
    freetbl(findings, freepffinding);
}

// ---- Edits ----

struct EditCase {
    const char* name;
    std::string text;
    const char* path;
    const char* value;
    std::string result;  // or "refused: REASON"
    int flags = 0;
};
class PfEdit : public testing::TestWithParam<EditCase> {};

TEST_P(PfEdit, ChangesOnlyTheValue) {
    const EditCase& c = GetParam();
    const kit::Logged logged;
    long length = -1;
    char* result =
        pfedit(c.text.data(), static_cast<long>(c.text.size()), c.path, c.value, c.flags, &length);
    if (result != nullptr) {
        EXPECT_EQ(std::string(result, static_cast<size_t>(length)), c.result);
        std::free(result);
    } else {
        EXPECT_EQ("refused: " + logged.text().substr(logged.text().rfind(": ") + 2),
                  c.result + "\n");
    }
}

const std::string kShop =
    "# stations\n"
    "latency   20   # seconds\n"
    "stations &Arr{\n"
    "\tAAK &Tbl{\n"
    "\t\tBHZ\n"
    "\n"
    "\t} # end\n"
    "}\n"
    "last";

std::string with(std::string text, const std::string& old_text, const std::string& new_text) {
    return text.replace(text.find(old_text), old_text.size(), new_text);
}

INSTANTIATE_TEST_SUITE_P(
    Text, PfEdit,
    testing::Values(
        EditCase{"Value", kShop, "latency", "5", with(kShop, "20 ", "5 ")},
        EditCase{"SameValue", kShop, "latency", "20", kShop},
        EditCase{"EscapedValue", kShop, "latency", "a # } \\",
                 with(kShop, "20 ", "a \\# \\} \\\\ ")},
        EditCase{"Blanks", kShop, "latency", " x", with(kShop, "20 ", "&Literal{\n x} ")},
        EditCase{"Item", kShop, "stations{AAK}[0]", "HHZ", with(kShop, "BHZ", "HHZ")},
        EditCase{"EmptyItem", kShop, "stations{AAK}[-1]", "BHE", with(kShop, "BHZ\n", "BHZ\nBHE")},
        EditCase{"EmptyValue", kShop, "last", "5", kShop + "\t5"},
        EditCase{"EmptyBeforeComment", "a # c\nb#c\n", "b", "1", "a # c\nb\t1 #c\n"},
        EditCase{"ToEmptyItem", "l &Tbl{\nx#\n}\n", "l[0]", "", "l &Tbl{\n&Literal{\n}#\n}\n"},
        EditCase{"Opener", "a 1\n", "a", "&Tbl{", "a &Literal(\n&Tbl{)\n"},
        EditCase{"Call", "a 1\n", "a", "&env(X)", "a &Literal{\n&env(X)}\n"},
        EditCase{"Verbatim", "a 1 # c\n", "a", "&env(X)", "a &env(X) # c\n", PFEDIT_VERBATIM},
        EditCase{"VerbatimBlock", "a 1\n", "a", "&Tbl{\nx\n}", "a &Tbl{\nx\n}\n", PFEDIT_VERBATIM},
        EditCase{"LastOfTwo", "a 1\na 2\n", "a", "3", "a 1\na 3\n"},
        EditCase{"IgnoredRest", "a &Literal{\nx} y\nb 2\n", "a", "z", "a &Literal{\nz} y\nb 2\n"},
        EditCase{"LiteralKey", "a{b} 1\na &Arr{\nb 2\n}\n", "a{b}", "3",
                 "a{b} 3\na &Arr{\nb 2\n}\n"},
        EditCase{"NewKey", "a   1\n# end\n", "bb", "2", "a   1\n# end\nbb  2\n"},
        EditCase{"NewKeyBeforeEnd", "a 1\n__END__\nb 2\n", "b", "3", "a 1\nb 3\n__END__\nb 2\n"},
        EditCase{"NewEntry", kShop, "stations{KBK}", "x y",
                 with(kShop, "end\n", "end\n\tKBK x y\n")},
        EditCase{"NewItem", kShop, "stations{AAK}[2]", "", with(kShop, "\n\n", "\n\n\n")},
        EditCase{
            "NewWay", "a &Arr{\n}", "a{b}{c d}[0]", "1",
            "a &Arr{\n    b\t&Arr{\n        \"c d\"\t&Tbl{\n            1\n        }\n    }\n}"},
        EditCase{"FirstKey", "", "{\"}\"}", "1", "\"}\"\t1\n"},
        EditCase{"Block", kShop, "stations", "1", "refused: it is a whole list or array"},
        EditCase{"BlockForced", kShop, "stations{AAK}", "1",
                 with(kShop, "&Tbl{\n\t\tBHZ\n\n\t}", "1"), PFEDIT_BLOCKS},
        EditCase{"BehindTheEnd", kShop, "stations{AAK}[3]", "1",
                 "refused: the index is beyond the end of the list"},
        EditCase{"ThroughFunction", "a &ref(b)\nb &Arr{\nc 1\n}\n", "a{c}", "1",
                 "refused: it leads through a function"},
        EditCase{"TwoValues", "a 1\n", "a", "1\nb 2", "refused: the text is not that of one value",
                 PFEDIT_VERBATIM},
        EditCase{"Broken", "a 1\n}\n", "a", "2", "refused: the text has errors before line 3"},
        EditCase{"TooDeep", nested(11) + "a 1\n" + "}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n",
                 "k{k}{k}{k}{k}{k}{k}{k}{k}{k}{k}{b}{c}", "1",
                 "refused: no text would read back with just this change"},
        EditCase{"NoPath", "a 1\n", "a[", "2", "refused: this bracket is not closed"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PfEditFile, ReplacesTheFileOrLeavesItAlone) {
    const kit::TempDir folder;
    const std::string file = folder.file("x.pf");
    kit::write_file(file, "a 1\n");
    EXPECT_EQ(pfedit_file(file.c_str(), "a", "2", 0), 0);
    EXPECT_EQ(kit::read_file(file), "a 2\n");
    const kit::Logged logged;
    EXPECT_EQ(pfedit_file(file.c_str(), "a[", "3", 0), -1);
    EXPECT_EQ(kit::read_file(file), "a 2\n");
    EXPECT_EQ(pfedit_file(folder.path().c_str(), "a", "3", 0), -1);
    EXPECT_THAT(logged.text(), testing::HasSubstr("is no regular file"));
}

// ---- Layout ----

TEST(PfFormat, KeepsCommentsOrderAndValues) {
    const kit::Logged logged;
    const std::string text =
        "#!top\n\n  b   2 # two\n 'a' &Arr{# ignored\n# in\n\n c  &Tbl{\n# first\n  # item\nx  \n\n"
        "    y # z\n}\n  # last\n\t} end\n k &Literal{\n  as it is }  # l\nempty#c\n  __END__\n  "
        "rest";
    const std::string laid_out =
        "#!top\n\nb\t2 # two\n'a'\t&Arr{ # ignored\n    # in\n\n    c\t&Tbl{\n# first\n        # "
        "item\n"
        "        x\n\n        y # z\n    }\n    # last\n} end\nk\t&Literal{\n  as it is } # "
        "l\nempty #c\n"
        "__END__\n  rest";
    EXPECT_EQ(kit::taken(pfformat(text.c_str(), static_cast<long>(text.size()), nullptr)),
              laid_out);
    EXPECT_EQ(kit::taken(pfformat(laid_out.c_str(), static_cast<long>(laid_out.size()), nullptr)),
              laid_out);
    EXPECT_EQ(kit::taken(pfformat("a\\", 2, nullptr)), "a\\");
    EXPECT_EQ(pfformat("a &Tbl{", 7, nullptr), nullptr);
}

// ---- Places ----

class PfWhere : public testing::Test {
  protected:
    void write(const std::string& folder, const std::string& text) {
        std::filesystem::create_directories(folder_.file(folder));
        kit::write_file(folder_.file(folder + "/x.pf"), text);
    }
    // "FOLDER:LINE:COLUMN VALUE" for each place.
    std::string where(const char* path) {
        Tbl* places = pfwhere("x", path);
        if (places == nullptr) return "none";
        std::string text;
        for (long i = 0; i < maxtbl(places); ++i) {
            const auto* p = static_cast<Pfplace*>(gettbl(places, i));
            const std::string file = p->file;
            const std::string value = kit::read_file(file).substr(static_cast<size_t>(p->offset),
                                                                  static_cast<size_t>(p->length));
            text += file.substr(folder_.path().size() + 1, 1) + ":" + std::to_string(p->line) +
                    ":" + std::to_string(p->column) + " " +
                    (p->type == PFINVALID ? "gone" : value) + "\n";
        }
        freetbl(places, freepfplace);
        return text;
    }

    kit::TempDir folder_;
    kit::Env pfpath_{"PFPATH", (folder_.file("a") + ":" + folder_.file("b")).c_str()};
    kit::Logged logged_;
};

TEST_F(PfWhere, NamesWhatDecidedAndWhatItOverrode) {
    write("a", "v 1\ns &Arr{\n  k &Tbl{\n  x\n  y\n  }\n  d 1\n  d 2\n}\nu 1\nn 0\n");
    write("b", "n 1\nv &env(V)\ns &Arr{\n  k &Tbl{\n  z\n  }\n}\nu &Undef{}\n");
    EXPECT_EQ(where("v"), "b:2:1 &env(V)\na:1:1 1\n");
    EXPECT_EQ(where("s{k}[-1]"), "b:5:3 z\na:5:3 y\n");
    EXPECT_EQ(where("s{k}"), "b:4:3 &Tbl{\n  z\n  }\na:3:3 &Tbl{\n  x\n  y\n  }\n");
    EXPECT_EQ(where("s{d}"), "b:3:1 gone\na:8:3 2\na:7:3 1\n");
    EXPECT_EQ(where("u"), "b:8:1 gone\na:10:1 1\n");
    EXPECT_EQ(where("s{none}"), "");
    EXPECT_EQ(where("s["), "none");
    EXPECT_EQ(lines_of(pfcheck("x")), "8:3: the key 'd' is given again: line 7 had it before\n");
}

}  // namespace
