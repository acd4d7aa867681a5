#include <pwd.h>

#include "base/memory.hpp"
#include "support/kit.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

// A folder that the process stands in for a scope.
class Inside {
  public:
    explicit Inside(const std::string& path) : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~Inside() { std::filesystem::current_path(before_); }

  private:
    std::filesystem::path before_;
};

// What a function that returns a status writes into a buffer of the documented size.
struct Given {
    int status;
    std::string text;
    bool operator==(const Given&) const = default;
};
void PrintTo(const Given& given, std::ostream* out) {
    *out << given.status << " '" << given.text << "'";
}

template <class Call>
Given given(Call call) {
    const kit::Guarded buffer(std::string(1024, '?'));
    const int status = call(buffer.data());
    return {status, buffer.data()};
}

Given cleaned(const std::string& path, bool follow_links = false) {
    return given([&](char* result) { return cleanpath(path.c_str(), follow_links, result); });
}

Given absolute(const std::string& path) {
    return given([&](char* result) { return abspath(path.c_str(), result); });
}

Given way(const std::string& from, const std::string& to) {
    return given([&](char* result) { return relpath(from.c_str(), to.c_str(), result); });
}

// `start` followed by as many letters as make it that long.
std::string filled(std::string start, size_t length) {
    start.resize(length, 'x');
    return start;
}

const std::string kTooLong = filled("", 1024), kLongest = filled("/", 1023);

TEST(PathParts, Dirbase) {
    const struct {
        const char *path, *dir, *base;
    } kRows[] = {{"/x", "/", "x"},       {"x", ".", "x"},     {"/a/b", "/a", "b"},
                 {"a/", "a", ""},        {"a//b", "a/", "b"}, {"", ".", ""},
                 {"/", "/", ""},         {"//x", "/", "x"},   {nullptr, ".", ""},
                 {"./a.pf", ".", "a.pf"}};
    for (const auto& row : kRows) {
        char dir[1024], base[1024];
        EXPECT_EQ(dirbase(row.path, dir, base), 0);
        EXPECT_STREQ(dir, row.dir) << row.path;
        EXPECT_STREQ(base, row.base) << row.path;
    }
    char same[1024] = "some/where/file";
    EXPECT_EQ(dirbase(same, nullptr, same), 0);
    EXPECT_STREQ(same, "file");
}

TEST(PathParts, Parsepath) {
    const struct {
        const char *path, *dir, *base, *suffix;
    } kRows[] = {{"/x.pf", "", "x", "pf"},      {"a/b.c.d", "a", "b.c", "d"}, {"b", ".", "b", ""},
                 {".login", ".", ".login", ""}, {"/a/.b.c", "/a", ".b", "c"}, {"x.", ".", "x", ""},
                 {"a.b/c", "a.b", "c", ""},     {"a/", "a", "", ""}};
    for (const auto& row : kRows) {
        char dir[1024], base[1024], suffix[1024];
        EXPECT_EQ(parsepath(row.path, dir, base, suffix), 0);
        EXPECT_EQ(std::string(dir) + "|" + base + "|" + suffix,
                  std::string(row.dir) + "|" + row.base + "|" + row.suffix);
    }
    char dir[1024], base[1024];
    EXPECT_EQ(parsepath("/a/b.c", dir, base, nullptr), 0);
    EXPECT_STREQ(base, "b.c");
}

TEST(PathParts, TooLongAPathIsRefused) {
    const kit::Logged logged;
    const kit::Guarded dir(std::string(1024, '?')), base(std::string(1024, '?'));
    EXPECT_EQ(dirbase(kLongest.c_str(), dir.data(), base.data()), 0);
    EXPECT_EQ(kLongest.substr(1), base.data());
    EXPECT_EQ(logged.text(), "");
    EXPECT_EQ(dirbase(kTooLong.c_str(), dir.data(), base.data()), -1);
    EXPECT_STREQ(base.data(), "");
    EXPECT_EQ(parsepath(kTooLong.c_str(), dir.data(), base.data(), nullptr), -1);
    EXPECT_THAT(logged.text(), HasSubstr("path is longer than 1023 characters: xxx"));
}

TEST(PathParts, Concatpaths) {
    const auto joined = [](auto... paths) {
        return kit::taken(concatpaths(paths..., static_cast<char*>(nullptr)));
    };
    EXPECT_EQ(joined("a", "b", "c"), "a/b/c");
    EXPECT_EQ(joined("/a//", "//b/"), "/a/b/");
    EXPECT_EQ(joined("/", "a"), "/a");
    EXPECT_EQ(joined("", "a", "", "b"), "a/b");
    EXPECT_EQ(joined(static_cast<char*>(nullptr)), "");
    EXPECT_EQ(joined(kTooLong.c_str(), "a"), kTooLong + "/a");
}

TEST(CleanPath, WorksOffDetours) {
    const struct {
        const char *path, *result;
    } kRows[] = {{"/a/./b//c/", "/a/b/c"},
                 {"/a/b/../c", "/a/c"},
                 {"/../..", "/"},
                 {"/a/../..//b", "/b"},
                 {"", "."},
                 {"./", "."},
                 {"a/../b", "b"},
                 {"./a/b", "a/b"},
                 {"a/..", "."},
                 {"../a", "../a"},
                 {"a/../../..", "../.."},
                 {"../../a/..", "../.."},
                 {"//", "/"},
                 {"/...", "/..."},
                 {"/a/.b/..c", "/a/.b/..c"},
                 {"/~", "/~"},
                 {"a/~", "a/~"},
                 {"..a/..", "."},
                 {"x/.././~", "./~"}};
    for (const auto& row : kRows) EXPECT_EQ(cleaned(row.path), (Given{0, row.result})) << row.path;
    EXPECT_EQ(given([](char* result) { return cleanpath(nullptr, 1, result); }), (Given{0, "."}));
}

TEST(CleanPath, PutsHomeDirectoriesIn) {
    const kit::Env home("HOME", "/not/asked");
    const std::string own = ::getpwuid(::geteuid())->pw_dir, other = ::getpwnam("daemon")->pw_dir;
    EXPECT_EQ(kit::taken(homedir(nullptr)), own);
    EXPECT_EQ(kit::taken(homedir("daemon")), other);
    EXPECT_EQ(cleaned("~"), (Given{0, own}));
    EXPECT_EQ(cleaned("~/a/../b"), (Given{0, own + "/b"}));
    EXPECT_EQ(absolute("~daemon/x"), (Given{0, cleaned(other + "/x").text}));
    const kit::Logged logged;
    EXPECT_EQ(homedir("no-such-user"), nullptr);
    EXPECT_EQ(cleaned("~no-such-user/x"), (Given{-1, ""}));
    EXPECT_EQ(cleaned(filled("~", 900)), (Given{-1, ""}));
    EXPECT_THAT(logged.text(), HasSubstr("the home directory for ~no-such-user/x\n"));
}

TEST(CleanPath, FollowsLinks) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    const std::string top = std::filesystem::current_path();
    const auto link = [](const char* target, const char* name) {
        std::filesystem::create_symlink(target, name);
    };
    std::filesystem::create_directories("a/b");
    link("a/b", "relative");
    link((top + "/a/./b/").c_str(), "absolute");
    link("../relative/..", "a/up");
    link("gone", "dangling");
    link("loop", "loop");
    EXPECT_EQ(cleaned(top + "/relative/x", true), (Given{0, top + "/a/b/x"}));
    EXPECT_EQ(cleaned(top + "/relative/../x", true), (Given{0, top + "/a/x"}));
    EXPECT_EQ(cleaned(top + "/relative/../x", false), (Given{0, top + "/x"}));
    EXPECT_EQ(cleaned("relative/x", true), (Given{0, "a/b/x"}));
    EXPECT_EQ(cleaned("absolute/../x", true), (Given{0, top + "/a/x"}));
    EXPECT_EQ(cleaned("a/up/x", true), (Given{0, "a/x"}));
    EXPECT_EQ(cleaned("dangling/x", true), (Given{0, "gone/x"}));
    EXPECT_EQ(cleaned("loop", false), (Given{0, "loop"}));
    const kit::Logged logged;
    EXPECT_EQ(cleaned("loop/x", true), (Given{-1, ""}));
    EXPECT_THAT(logged.text(), EndsWith("too many symbolic links (>32) for loop/x\n"));
}

TEST(CleanPath, Follows32LinksAndNoMore) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    const auto name = [](int i) { return std::to_string(i).append("l"); };
    for (int i = 0; i < 33; ++i) std::filesystem::create_symlink(name(i + 1), name(i));
    const kit::Logged logged;
    EXPECT_EQ(cleaned("1l", true), (Given{0, "33l"}));
    EXPECT_EQ(logged.text(), "");
    EXPECT_EQ(cleaned("0l", true), (Given{-1, ""}));
}

TEST(CleanPath, TellsOfALinkThatCannotBeRead) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs to become another user";
    const kit::Logged logged;
    ASSERT_EQ(::seteuid(65534), 0);
    const Given result = cleaned("/proc/1/./exe/x", true);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(result, (Given{-1, ""}));
    EXPECT_THAT(logged.text(), HasSubstr("can't read link for /proc/1/exe"));
    EXPECT_THAT(logged.text(), HasSubstr("Permission denied"));
}

TEST(CleanPath, RefusesWhatDoesNotFit) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    std::filesystem::create_symlink(std::string(1000, 'x'), "long");
    std::filesystem::create_symlink(std::string(1500, 'x'), "longer");
    const kit::Logged logged;
    EXPECT_EQ(cleaned(kLongest, true), (Given{0, kLongest}));
    EXPECT_EQ(logged.text(), "");
    for (const std::string& path :
         {kTooLong, filled("~/", 1023), std::string("longer"), filled("long/", 100)})
        EXPECT_EQ(cleaned(path, true), (Given{-1, ""})) << path;
    EXPECT_EQ(absolute(kTooLong.substr(4)), (Given{-1, ""}));
    EXPECT_EQ(samepath(kTooLong.c_str(), kTooLong.c_str()), 0);
    EXPECT_THAT(logged.text(), HasSubstr("path is longer than 1023 characters: longer\n"));
}

TEST(AbsPath, StartsAtTheCurrentDirectory) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    const std::string top = std::filesystem::current_path();
    EXPECT_EQ(absolute("a"), (Given{0, top + "/a"}));
    EXPECT_EQ(absolute("./a/../b"), (Given{0, top + "/b"}));
    EXPECT_EQ(absolute(""), (Given{0, top}));
    EXPECT_EQ(absolute("/x/.."), (Given{0, "/"}));
    EXPECT_EQ(samepath("a", (top + "/b/../a").c_str()), 1);
    EXPECT_EQ(samepath("a", "A"), 0);
}

TEST(AbsPath, TakesWhatFitsBehindTheCurrentDirectory) {
    const kit::TempDir folder;
    const std::string above = folder.file(filled("", 250) + "/" + filled("", 250) + "/x");
    const std::string deep = filled(above + "/" + filled("", 250) + "/", 1000);
    std::filesystem::create_directories(deep);
    const Inside inside(deep);
    EXPECT_EQ(absolute("./" + filled("", 22)), (Given{0, deep + "/" + filled("", 22)}));
    EXPECT_EQ(absolute("../../" + filled("", 90)), (Given{0, above + "/" + filled("", 90)}));
    const kit::Logged logged;
    EXPECT_EQ(absolute(filled("", 23)), (Given{-1, ""}));
    EXPECT_THAT(logged.text(), HasSubstr("path is longer than 1023 characters: xxx"));
}

TEST(AbsPath, CopiesThePathWithoutACurrentDirectory) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    std::filesystem::remove(folder.path());
    const kit::Logged logged;
    EXPECT_EQ(absolute("./a"), (Given{-1, "./a"}));
    EXPECT_EQ(absolute("/a/."), (Given{0, "/a"}));
    EXPECT_THAT(logged.text(), HasSubstr("Can't discover current directory: getcwd(3) fails\n"));
}

TEST(RelPath, LeadsFromDirectoryToFile) {
    const kit::TempDir folder;
    const Inside inside(folder.path());
    std::filesystem::create_directories("a/b");
    std::filesystem::create_directories("ab/c");
    std::filesystem::create_symlink("ab/c", "link");
    const struct {
        const char *from, *to, *result;
    } kRows[] = {{"a/b", "a/c/d", "../c/d"},
                 {"a/b", "a/b", "."},
                 {"a", "ab/x", "../ab/x"},
                 {"ab", "a", "../a"},
                 {"a/b", "a", ".."},
                 {"a", "a/b/c", "b/c"},
                 {".", "x", "x"},
                 {"/", "/x/y", "x/y"},
                 {"link", "a", "../../a"},
                 {"link", "link", "."},
                 {"a", "link", "../ab/c"}};
    for (const auto& row : kRows) EXPECT_EQ(way(row.from, row.to), (Given{0, row.result}));
    const kit::Logged logged;
    kit::write_file("a/file", "");
    EXPECT_EQ(way("a/file", "a/x"), (Given{-1, "x"})) << "seen from the folder of the file";
    EXPECT_EQ(way("/missing", "/x/y"), (Given{-1, "x/y"}));
    EXPECT_THAT(logged.text(), HasSubstr("/missing is not a directory\n"));
}

TEST(RelPath, RefusesWhatDoesNotFit) {
    const kit::Logged logged;
    std::string deep;
    for (int i = 0; i < 511; ++i) deep += "/d";
    EXPECT_EQ(way(deep, "/x"), (Given{-1, ""}));
    EXPECT_EQ(way("/", kTooLong), (Given{-1, ""}));
    EXPECT_THAT(logged.text(), HasSubstr("path is longer than 1023 characters"));
}

TEST(ExpandEnv, PutsValuesIn) {
    const kit::Env first("MORVAA", "one"), second("MORVA2", ""), odd("MORVA_B", "two words");
    const kit::Env none("NOPE", nullptr), dollar("MORVAD", "$MORVAA");
    const struct {
        const char *text, *result;
    } kRows[] = {{"plain", "plain"},
                 {"$MORVAA_DIR", "one_DIR"},
                 {"${NOPE}x", "${NOPE}x"},
                 {"$NOPE/x", "$NOPE/x"},
                 {"[${MORVA_B}]", "[two words]"},
                 {"$MORVAA$MORVA2$MORVAA", "oneone"},
                 {"${MORVAA", "one"},
                 {"${NOPE", "${NOPE"},
                 {"$", "$"},
                 {"a$$MORVAA", "a$one"},
                 {"${}$-", "${}$-"},
                 {"$MORVAD", "$MORVAA"},
                 {"${A$MORVAA}", "${A$MORVAA}"},
                 {nullptr, ""}};
    for (const auto& row : kRows) EXPECT_EQ(kit::taken(expand_env(row.text)), row.result);
}

TEST(ExpandEnv, TakesAnyLength) {
    const std::string name = filled("", 1500), value = filled("v", 3000);
    const kit::Env variable(name.substr(0, 1023).c_str(), value.c_str());
    const std::string text = "a$" + name + "/${" + name + "}b";
    EXPECT_EQ(kit::taken(expand_env(text.c_str())), "a" + value + "/" + value + "b")
        << "names are cut to 1023 characters";
}

TEST(ExpandEnvDeathTest, NamesTheResultWhenMemoryRunsOut) {
    const kit::Env variable("MORVAA", filled("", 3000).c_str());
    for (const auto& [nth, bytes] : {std::pair(1, "1024"), std::pair(2, "3000")})
        EXPECT_EXIT((morva::fail_allocation(nth, false), expand_env("$MORVAA")),
                    testing::ExitedWithCode(1),
                    HasSubstr(std::string("Can't malloc ") + bytes + " bytes for result\n"));
}

}  // namespace
