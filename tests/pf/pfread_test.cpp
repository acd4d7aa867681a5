// Which files a name stands for, and the tree that they give.
#include <sys/stat.h>

#include <cerrno>

#include "pf/pf_files.hpp"

namespace {

using kit::Env;
using kit::holds;
using kit::Logged;

std::string joined(Tbl* files) {
    std::string text;
    for (long i = 0; i < maxtbl(files); ++i)
        text += (i > 0 ? " " : "") + std::string(static_cast<char*>(gettbl(files, i)));
    freetbl(files, std::free);
    return text;
}

// "@" is the private folder, which is also the current one. There are a/x.pf, b/x.pf, b/y.pf,
// c/x.pf, x.pf and a file "site".
struct Search {
    const char* label;
    const char* path;
    std::string name;
    int all;
    std::string files;
};
const Search kSearches[] = {
    {"InPathOrder", "@/a:@/b", "x", 0, "@/a/x.pf @/b/x.pf"},
    {"NoSecondSuffix", "@/b:@/a", "x.pf", 0, "@/b/x.pf @/a/x.pf"},
    {"OnlyThoseThatExist", "@/a:@/none:@/b", "y", 0, "@/b/y.pf"},
    {"None", "@/a:@/b", "z", 0, ""},
    {"AllPlaces", "@/a:@/none:@/b", "y", 1, "@/a/y.pf @/b/y.pf"},
    {"FromTheEnvironment", "$MORVAX/a:${MORVA_X}/c", "x", 0, "@/./a/x.pf @/./c/x.pf"},
    {"AFullNameIsLast", "@/a:@/b", "@/c/x", 0, "@/a/x.pf @/b/x.pf @/c/x.pf"},
    {"AFullNameWithSuffix", "@/b", "@/c/x.pf", 0, "@/b/x.pf @/c/x.pf"},
    {"AFullNameThatIsMissing", "@/a", "@/b/../z/x", 0, "@/a/x.pf"},
    {"AFullNameThatIsMissingOfAll", "@/a", "@/z/x", 1, "@/a/x.pf @/z/x.pf"},
    {"TheCurrentFolderIsLast", ".:@/a", "./x", 0, "./x.pf @/a/x.pf ./x.pf"},
    {"ABareNameIsNot", "@/a", "x", 0, "@/a/x.pf"},
    {"AFolderInTheName", "@/a", "c/x", 0, "@/a/x.pf c/x.pf"},
    {"AFileInThePath", "@/site:@/a", "x", 0, "@/site @/a/x.pf"},
    {"AFileInThePathAsFolder", "@/site:@/a", "@/site/x", 1, "@/site @/a/x.pf"},
    {"TooLong", "@/a", std::string(1024, 'x'), 1, ""},
    {"TooLongWithItsSuffix", "@/a", "./" + std::string(1020, 'x'), 1, ""},
};
void PrintTo(const Search& row, std::ostream* out) {
    *out << row.label;
}

class PfFilesOf : public kit::PfFiles, public testing::WithParamInterface<Search> {
  protected:
    PfFilesOf() {
        for (const char* name : {"a/x.pf", "b/x.pf", "b/y.pf", "c/x.pf", "x.pf", "site"})
            write(name, "k v\n");
        std::filesystem::current_path(file("."));
    }
    ~PfFilesOf() override { std::filesystem::current_path("/"); }
};

TEST_P(PfFilesOf, AreFoundAlongThePath) {
    const Search& row = GetParam();
    const Env path("PFPATH", here(row.path).c_str()), x("MORVAX", file(".").c_str()),
        y("MORVA_X", file(".").c_str());
    errno = EXDEV;
    const std::string found = joined(pffiles(here(row.name).c_str(), row.all));
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(found, here(row.files));
}

INSTANTIATE_TEST_SUITE_P(Table, PfFilesOf, testing::ValuesIn(kSearches),
                         [](const auto& row) { return row.param.label; });

TEST_F(PfFilesOf, AreThoseOfTheRootAndTheCurrentFolderWithoutAPath) {
    const Env path("PFPATH", nullptr);
    std::filesystem::create_directories(file("root/data/pf"));
    write("root/data/pf/x.pf", "k v\n");
    putkorvalin(file("root").c_str());
    EXPECT_EQ(joined(pffiles("x", 0)), here("@/root/data/pf/x.pf ./x.pf"));
}

class PfRead : public kit::PfFiles {
  protected:
    ~PfRead() override { pffree(pf_); }
    Pf* pf_ = nullptr;
};

TEST_F(PfRead, LaterFilesReplaceValuesOfEarlierOnesWhole) {
    write("a/x.pf", "only_a 1\nboth 1\narr &Arr{\n p 1\n q 2\n}\nlist &Tbl{\n1\n2\n}\n");
    write("b/x.pf", "both 2\narr &Arr{\n p 3\n}\nlist &Tbl{\n3\n}\nonly_b 4\n");
    EXPECT_EQ(pfread("x", &pf_), 0);
    EXPECT_TRUE(holds(pf_, "only_a 1\nboth 2\narr &Arr{\n p 3\n}\nlist &Tbl{\n3\n}\nonly_b 4\n"));
    EXPECT_EQ(pf_->type, PFFILE);
    EXPECT_STREQ(pf_->filename, "x");
}

TEST_F(PfRead, LeavesTheTreeBeforeItAlone) {
    write("a/x.pf", "k v\n");
    Pf* const before = pf_ = pfnew(PFFILE);
    EXPECT_EQ(pfread("x", &pf_), 0);
    EXPECT_NE(pf_, before);
    pffree(before);
}

TEST_F(PfRead, AddsTheResultsUp) {
    const struct {
        const char *a, *b;
        int result;
        const char* tree;
    } rows[] = {
        {"k 1\n", "}\n", -2, "k 1\n"},
        {"}\n", "k 1\n", -2, "k 1\n"},
        {"k 1\n}\nl 2\n", "m &Tbl{\n", -4, "k 1\nm &Tbl{\n}\n"},
        {"", "# nothing\n", -1, ""},
        {"}\n", "", -1, ""},
    };
    for (const auto& row : rows) {
        const Logged logged;
        write("a/x.pf", row.a);
        write("b/x.pf", row.b);
        Pf* pf = nullptr;
        EXPECT_EQ(pfread("x", &pf), row.result) << row.a << row.b;
        EXPECT_TRUE(holds(pf, row.tree));
        EXPECT_EQ(pf->type, PFFILE);
        pffree(pf);
    }
    const Logged logged;
    EXPECT_EQ(pfread("missing", &pf_), -1);
    EXPECT_TRUE(holds(pf_, ""));
    EXPECT_EQ(logged.text(), "");
}

TEST_F(PfRead, NamesTheFileInMessages) {
    const Logged logged;
    write("b/x.pf", "k &Arr{\n");
    EXPECT_EQ(pfread("x", &pf_), -2);
    EXPECT_THAT(logged.text(), testing::HasSubstr(here("in parameter file @/b/x.pf at last line")));
}

TEST_F(PfRead, LoadReadsTheOneFileThatTheDataSearchFinds) {
    const Env data("MORVA_DATA", here("@/a:@/b").c_str());
    std::filesystem::create_directories(file("b/sub"));
    write("b/sub/x.pf", "k b\n");
    EXPECT_EQ(pfload("MORVA_DATA", "sub", "x", &pf_), 0);
    EXPECT_TRUE(holds(pf_, "k b\n"));
    EXPECT_STREQ(pf_->filename, "x");
    pffree(pf_);

    write("b/sub/bad.pf", "k b\n}\n");
    const Logged logged;
    EXPECT_EQ(pfload("MORVA_DATA", "sub", "bad", &pf_), -2);
    pffree(pf_);
    elog_clear();
    EXPECT_EQ(pfload("MORVA_DATA", "sub", "none", &pf_), -1);
    EXPECT_TRUE(holds(pf_, ""));
    EXPECT_EQ(logged.text(), "Unknown_Program: Can't find parameter file sub/none\n");
    pffree(pf_);
    elog_clear();
    ASSERT_EQ(::mknod(file("a/socket.pf").c_str(), S_IFSOCK | 0600, 0), 0);  // not to be opened
    EXPECT_EQ(pfload("MORVA_DATA", nullptr, "socket", &pf_), -1);
    EXPECT_THAT(logged.text(),
                testing::StartsWith(here("Unknown_Program: can't open '@/a/socket.pf'\n")));
}

TEST_F(PfRead, PrintWritesAString) {
    write("b/x.pf", "k  a b # c\n");
    std::string told;
    const auto print = [&](const char* name, const char* key, int expected) {
        std::string out;
        told = kit::captured(
            2, [&] { out = kit::captured(1, [&] { EXPECT_EQ(pfprint(name, key), expected); }); });
        return out;
    };
    EXPECT_EQ(print("x", "k", 0), "a b\n");
    EXPECT_EQ(told, "");
    EXPECT_EQ(print("x", "none", -1), "");
    EXPECT_EQ(told, "Unknown_Program: no entry 'none' in parameter file x\n");
    EXPECT_EQ(print("none", "k", -1), "");
    EXPECT_EQ(told, "Unknown_Program: Can't read parameter file none\n");
}

}  // namespace
