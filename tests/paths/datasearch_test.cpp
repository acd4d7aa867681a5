#include <cerrno>

#include "support/kit.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A tree: a/sub/f, a/f, b/f, and a file that is an element of the path itself.
class DataSearch : public testing::Test {
  protected:
    DataSearch() {
        for (const char* dir : {"a/sub", "b", "root/data"})
            std::filesystem::create_directories(folder_.file(dir));
        for (const char* file : {"a/sub/f", "b/f", "file", "root/data/f"})
            kit::write_file(folder_.file(file), "x");
        std::filesystem::current_path(folder_.path());
    }
    ~DataSearch() override { std::filesystem::current_path("/"); }

    // What is found, with the folder's name left out.
    std::vector<std::string> search(const std::string& path, const char* name, int flags = 0,
                                    const char* subdir = nullptr) {
        errno = ENOTTY;
        Tbl* found = datasearch(in_folder(path).c_str(), subdir, name, flags);
        EXPECT_EQ(errno, ENOTTY);
        std::vector<std::string> names;
        for (long i = 0; i < maxtbl(found); ++i)
            names.push_back(shown(static_cast<char*>(gettbl(found, i))));
        freetbl(found, std::free);
        return names;
    }
    // "@" stands for the folder.
    std::string in_folder(std::string path) const {
        for (size_t at; (at = path.find('@')) != path.npos;) path.replace(at, 1, folder_.path());
        return path;
    }
    std::string shown(std::string path) const {
        if (path.starts_with(folder_.path())) path.replace(0, folder_.path().size(), "@");
        return path;
    }
    std::string found(char* path) const { return shown(kit::taken(path)); }

    kit::TempDir folder_;
    const kit::Env unset_{"DATAPATH", nullptr};
};

TEST_F(DataSearch, TakesWhatIsReadableInOrder) {
    EXPECT_THAT(search("@/a:@/b", "f"), ElementsAre("@/b/f"));
    kit::write_file("a/f", "x");
    EXPECT_THAT(search("@/b::@/none:@/a:", "f"), ElementsAre("@/b/f", "@/a/f"));
    EXPECT_THAT(search("@/a", "sub/f"), ElementsAre("@/a/sub/f", "@/a/f"));
    EXPECT_THAT(search("@/b", "sub/f"), ElementsAre("@/b/f"));
    EXPECT_THAT(search("a:b", "f"), ElementsAre("a/f", "b/f"));
    EXPECT_THAT(search("@/a", "none"), IsEmpty());
    EXPECT_THAT(search("@:@/b", "f", 0, "/sub"), IsEmpty());
    EXPECT_THAT(search("@:@/a//", "f", 0, "/sub"), ElementsAre("@/a/sub/f"));
}

TEST_F(DataSearch, TakesFilesOnThePathThemselves) {
    EXPECT_THAT(search("@/file:file", "x"), ElementsAre("@/file"));
    EXPECT_THAT(search("@/file", "sub/x"), ElementsAre("@/file")) << "once";
    EXPECT_THAT(search("@/file:file:none", "x", 2), ElementsAre("@/file", "file"));
}

TEST_F(DataSearch, TakesUnreadableCandidatesWhenAsked) {
    EXPECT_THAT(search("@/b:@/none:@/a", "f", 2), ElementsAre("@/b/f", "@/a/f"));
    EXPECT_THAT(search("@/b", "y/z", 2), ElementsAre("@/b/y/z", "@/b/z"));
}

TEST_F(DataSearch, LooksThroughTheEyesOfTheUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs to become another user";
    kit::write_file("a/f", "x");
    std::filesystem::permissions("a/f", std::filesystem::perms::none);
    std::filesystem::permissions("b", std::filesystem::perms::none);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    ASSERT_EQ(::setreuid(65534, 0), 0);
    const auto without_rights = search("@/a:@/b:@/root/data", "f");
    ASSERT_EQ(::setreuid(0, 0), 0);
    EXPECT_THAT(without_rights, ElementsAre("@/root/data/f"));
}

TEST_F(DataSearch, ExpandsVariablesAndHomes) {
    const kit::Env variable("MORVADIR", folder_.file("b").c_str());
    EXPECT_THAT(search("$MORVADIR", "f", 1), ElementsAre("@/b/f"));
    EXPECT_THAT(search("$MORVADIR", "f", 0), IsEmpty());
    const std::string home = kit::taken(homedir(nullptr));
    EXPECT_THAT(search("~no-such-user:~/", "", 2), ElementsAre(home + "/"));
    EXPECT_EQ(elog_mark(), 0) << "nothing is registered";
}

TEST_F(DataSearch, PassesOverWhatDoesNotFit) {
    const std::string many(2000, 'x');
    const std::string longest = folder_.path() + std::string(1013, '/');
    const std::string element = longest.substr(0, 1018) + "file";
    EXPECT_THAT(search(element, "x").size(), 1u) << "the file, though no name fits behind it";
    EXPECT_THAT(search(longest + "file", "x"), IsEmpty());
    EXPECT_THAT(search(many + ":@/b", "f"), ElementsAre("@/b/f"));
    EXPECT_THAT(search("@/b", many.c_str(), 2), IsEmpty());
    EXPECT_THAT(search("@/b", (many + "/f").c_str()), ElementsAre("@/b/f"));
    EXPECT_EQ(datapath("", nullptr, "f", many.c_str()), nullptr);
}

TEST_F(DataSearch, DatapathTakesItsVariable) {
    putkorvalin(folder_.file("root").c_str());
    EXPECT_EQ(found(datapath("MORVAPATH", nullptr, "f", nullptr)), "@/root/data/f");
    const kit::Env standard("DATAPATH", "$MORVADIR");
    const kit::Env variable("MORVADIR", folder_.file("b").c_str());
    EXPECT_EQ(found(datapath("MORVAPATH", "", "f", "")), "@/b/f");
    const kit::Env own("MORVAPATH", in_folder("@/none:@").c_str());
    EXPECT_EQ(found(datapath("MORVAPATH", "a/sub", "f", "")), "@/a/sub/f");
    kit::write_file("b/f.pf", "x");
    EXPECT_EQ(found(datapath("MORVAPATH", "b", "f", "pf")), "@/b/f.pf");
    EXPECT_EQ(datapath("MORVAPATH", "b", "g", "pf"), nullptr);
    EXPECT_EQ(found(datafile("MORVAPATH", "a/sub/f")), "@/a/sub/f");
    EXPECT_EQ(found(datafile(nullptr, "f")), "@/b/f");
    EXPECT_EQ(found(datafile("PATH", "sh")), kit::taken(datapath("PATH", nullptr, "sh", nullptr)));
}

TEST_F(DataSearch, NewdataTellsWhereAFileMayBeWritten) {
    const kit::Env own("MORVAPATH", in_folder("@/none:@/b:@/a").c_str());
    EXPECT_EQ(found(newdata("MORVAPATH", nullptr, "new", "pf")), "@/b/new.pf");
    EXPECT_EQ(found(newdata("MORVAPATH", nullptr, "sub/new", nullptr)), "@/b/new");
    EXPECT_EQ(found(newdata("MORVAPATH", "sub", "new", nullptr)), "@/a/sub/new");
    EXPECT_EQ(found(newdata("MORVAPATH", nullptr, "f", nullptr)), "@/b/f");
    const kit::Logged logged;
    EXPECT_EQ(newdata("MORVAPATH", "deeper", "new", nullptr), nullptr);
    EXPECT_EQ(newdata("MORVAPATH", nullptr, "", "pf"), nullptr);
    EXPECT_THAT(logged.text(), testing::HasSubstr("no directory in which new can be written\n"));
}

}  // namespace
