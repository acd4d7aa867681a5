#include <thread>

#include "paths/root.hpp"
#include "support/kit.hpp"

namespace {

class Root : public testing::Test {
  protected:
    Root() {
        for (const char* dir : {"standard", "2.0b", "10.0a", "1.9z", "bin", "prog/bin"})
            std::filesystem::create_directories(folder_.file(dir));
        kit::write_file(folder_.file("3.1a"), "no directory");
        kit::write_file(folder_.file("prog/bin/run"), "");
    }
    // Names below the folder; "" yields nothing.
    std::string decided(const char* standard, const std::string& executable,
                        const char* releases = "none*") {
        const std::string root = folder_.file(standard), pattern = folder_.file(releases);
        morva::paths::Path path;
        const bool found = morva::paths::decide_root(
            {root.c_str(), pattern.c_str(), executable.empty() ? nullptr : executable.c_str()},
            &path);
        if (!found) return "nothing";
        const std::string name(path.view());
        return name.starts_with(folder_.path()) ? name.substr(folder_.path().size()) : name;
    }
    kit::TempDir folder_;
    const kit::Env unset_{"KORVALIN", nullptr};
};

TEST_F(Root, IsDecidedStepByStep) {
    const std::string program = folder_.file("prog/./bin/run");
    const char* kReleases = "[1-9].[0-9][a-z]*";
    EXPECT_EQ(decided("standard", program, kReleases), "/standard");
    EXPECT_EQ(decided("3.1a", program, kReleases), "/prog");
    EXPECT_EQ(decided("none", "/bin/run", kReleases), "/2.0b") << "too short a name of a folder";
    EXPECT_EQ(decided("none", folder_.file("prog/run"), kReleases), "/2.0b");
    EXPECT_EQ(decided("none", "", kReleases), "/2.0b") << "the last that is a directory";
    EXPECT_EQ(decided("none", ""), "nothing");
    const kit::Env given("KORVALIN", "/x");
    EXPECT_EQ(decided("standard", program, kReleases), "/x");
}

TEST_F(Root, IsThatOfAProgramFoundByName) {
    const kit::Env path("PATH", (folder_.file("bin") + ":" + folder_.file("prog/bin")).c_str());
    EXPECT_EQ(decided("none", "run"), "/prog");
    EXPECT_EQ(decided("none", "no-such-program"), "nothing");
    const kit::Env unset("PATH", nullptr);
    EXPECT_EQ(decided("none", "run"), "nothing");
}

TEST_F(Root, IsCutToItsRoom) {
    for (const std::size_t length : {1023, 1024, 5000}) {
        const kit::Env given("KORVALIN", std::string(length, 'x').c_str());
        EXPECT_EQ(decided("standard", ""), std::string(1023, 'x')) << length;
    }
}

// What follows needs a process that has no root yet.
using RootDeathTest = Root;

void expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::_Exit(1);
}

void keep_and_export() {
    ::setenv("KORVALIN", "/x", 1);
    const std::string root = getkorvalin();
    ::setenv("KORVALIN", "/y", 1);
    expect(root == "/x" && std::string(getkorvalin()) == "/x", "the first answer is kept");
    const char* kept = getkorvalin();
    expect(putkorvalin("/z") == 0 && std::string(getkorvalin()) == "/z", "another one is put");
    expect(std::string(kept) == "/x", "texts handed out stay");
    expect(std::string(::getenv("KORVALIN")) == "/y", "the entry is made once");
    expect(putkorvalin(std::string(1024, 'x').c_str()) == 0, "a long root is put");
    expect(getkorvalin() == std::string(1023, 'x'), "and cut");
    std::_Exit(0);
}

void put_first() {
    ::unsetenv("KORVALIN");
    expect(putkorvalin("/a") == 0 && std::string(::getenv("KORVALIN")) == "/a", "exported");
    expect(putkorvalin("/b") == 0 && std::string(::getenv("KORVALIN")) == "/a", "once");
    expect(std::string(getkorvalin()) == "/b", "put");
    std::_Exit(0);
}

void put_from_threads() {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int round = 0; round < 1000; ++round) {
                putkorvalin(i % 2 == 0 ? "/even" : "/odd");
                const std::string root = getkorvalin();
                expect(root == "/even" || root == "/odd", "a whole root");
            }
        });
    for (auto& thread : threads) thread.join();
    std::_Exit(0);
}

TEST_F(RootDeathTest, IsKeptAndExportedOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(keep_and_export(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(put_first(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(put_from_threads(), testing::ExitedWithCode(0), "");
}

}  // namespace
