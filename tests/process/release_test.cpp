// The script that writes the release and revision texts.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

class ReleaseScript : public testing::Test {
  protected:
    // A source tree without a checkout, whose change log is of 2001-09-09.
    ReleaseScript() {
        std::filesystem::create_directory(folder_.file("cmake"));
        const std::string from = MORVA_SOURCE_DIR "/cmake/release.cpp.in";
        std::filesystem::copy(from, folder_.file("cmake/release.cpp.in"));
        shell("touch -d @1000000000 CHANGELOG.md");
    }
    int shell(const std::string& command) {
        return std::system(
            ("cd '" + folder_.path() + "' && { " + command + "; } >out 2>&1").c_str());
    }
    // What the script writes; its complaint when it fails.
    std::string write(const std::string& settings) {
        const int status = shell("cmake -DSOURCE=" + folder_.path() +
                                 " -DOUTPUT=release.cpp -DVERSION=1.2 -DPLATFORM=Os-cpu " +
                                 settings + " -P " MORVA_SOURCE_DIR "/cmake/release.cmake");
        return kit::read_file(folder_.file(status == 0 ? "release.cpp" : "out"));
    }

    kit::TempDir folder_;
};

TEST_F(ReleaseScript, FallsBackOnTheChangeLog) {
    const std::string text = write("-DGIT=git");
    EXPECT_THAT(text, testing::HasSubstr("kText = \"libmorva 1.2 Os-cpu 2001-09-09\";"));
    EXPECT_THAT(text, testing::HasSubstr("kBuild = \"1.2 Os-cpu 2001-09-09\";"));
    EXPECT_THAT(text, testing::HasSubstr('"' + std::string(40, '0') + '"'));
}

TEST_F(ReleaseScript, TakesSettings) {
    const std::string revision(40, 'b');
    const std::string text = write("-DEPOCH=86400 -DREVISION=" + std::string(40, 'B'));
    EXPECT_THAT(text, testing::HasSubstr("Os-cpu 1970-01-02\";"));
    EXPECT_THAT(text, testing::HasSubstr('"' + revision + '"'));
    EXPECT_THAT(write("-DREVISION=v1.2"), testing::HasSubstr("'v1.2' is no revision"));
    EXPECT_THAT(write("-DREVISION=abc"), testing::HasSubstr("'abc' is no revision"));
}

TEST_F(ReleaseScript, AsksTheCheckout) {
    if (shell("git init -q . && git add CHANGELOG.md && GIT_COMMITTER_DATE='@172800 +0000' git "
              "-c user.name=n -c user.email=e commit -qm c && git rev-parse HEAD") != 0)
        GTEST_SKIP() << "no git here";
    const std::string revision = kit::read_file(folder_.file("out")).substr(0, 40);
    const std::string text = write("-DGIT=git");
    EXPECT_THAT(text, testing::HasSubstr('"' + revision + '"'));
    EXPECT_THAT(text, testing::HasSubstr("Os-cpu 1970-01-03\";"));
    EXPECT_EQ(write("-DGIT=git"), text);
}

}  // namespace
