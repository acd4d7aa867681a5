#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

mode_t mode_of(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class MakeDir : public testing::Test {
  protected:
    MakeDir() : umask_(::umask(0)) {}
    ~MakeDir() override { ::umask(umask_); }
    mode_t umask_;
    kit::TempDir folder_;
    kit::Logged logged_;
};

TEST_F(MakeDir, CreatesEveryLevelWithItsMode) {
    EXPECT_EQ(makedir(folder_.file("a/b/c").c_str()), 0);
    for (const char* level : {"a", "a/b", "a/b/c"}) EXPECT_EQ(mode_of(folder_.file(level)), 0775u);
    EXPECT_EQ(makedir(folder_.file("a/b/c").c_str()), 0) << "an existing directory is success";
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(MakeDir, AcceptsOddSpellings) {
    for (const char* name : {"s/t/", "u//v", "w/./x", "y/../z"}) {
        EXPECT_EQ(makedir(folder_.file(name).c_str()), 0) << name;
        EXPECT_TRUE(std::filesystem::is_directory(folder_.file(name))) << name;
    }
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(MakeDir, RefusesAFileOnTheWay) {
    kit::write_file(folder_.file("file"), "x");
    EXPECT_EQ(makedir(folder_.file("file").c_str()), -1);
    EXPECT_EQ(makedir(folder_.file("file/a/b").c_str()), -1);
    EXPECT_THAT(logged_.text(), HasSubstr(folder_.file("file") + " is not a directory\n"));
    EXPECT_THAT(logged_.text(), testing::Not(HasSubstr("Can't open or create")));
}

TEST_F(MakeDir, RefusesWhatCannotBeCreated) {
    std::filesystem::create_symlink(folder_.file("nowhere/at/all"), folder_.file("dangling"));
    const std::string longest = folder_.path() + std::string(1024, '/');
    for (const std::string& name : {std::string(), folder_.file("dangling"), longest})
        EXPECT_EQ(makedir(name.c_str()), -1) << name;
    EXPECT_EQ(makedir(nullptr), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open or create directory \n"));
    EXPECT_THAT(logged_.text(),
                HasSubstr("Can't open or create directory " + folder_.file("dangling") + "\n"));
    EXPECT_THAT(logged_.text(), HasSubstr("File name too long"));
}

TEST_F(MakeDir, TakesTheLongestPath) {
    const std::string path = folder_.path() + std::string(1023 - folder_.path().size() - 1, '/');
    EXPECT_EQ(makedir((path + "d").c_str()), 0);
    EXPECT_EQ(mode_of(folder_.file("d")), 0775u);
}

TEST_F(MakeDir, RefusesADirectoryThatCannotBeWritten) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs to become another user";
    ::chmod(folder_.path().c_str(), 0755);
    ASSERT_EQ(::seteuid(65534), 0);
    const int itself = makedir(folder_.path().c_str());
    const int beneath = makedir(folder_.file("a/b").c_str());
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(itself, -1);
    EXPECT_EQ(beneath, -1);
    EXPECT_THAT(logged_.text(), HasSubstr("can't write to directory " + folder_.path() + "\n"));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("a")));
}

TEST_F(MakeDir, RacingCallersAllSucceed) {
    for (int round = 0; round < 20; ++round) {
        const std::string name = folder_.file(std::to_string(round) + "/1/2/3/4/5");
        std::atomic<int> sum = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) threads.emplace_back([&] { sum += makedir(name.c_str()); });
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(sum, 0) << logged_.text();
    }
}

TEST_F(MakeDir, PathDirsTakesTheDirectoryPart) {
    EXPECT_EQ(make_pathdirs("plain"), 0);
    EXPECT_EQ(make_pathdirs("/plain"), 0);
    EXPECT_EQ(make_pathdirs(folder_.file("p/q/file").c_str()), 0);
    EXPECT_EQ(mode_of(folder_.file("p/q")), 0775u);
    EXPECT_FALSE(std::filesystem::exists(folder_.file("p/q/file")));
    EXPECT_FALSE(std::filesystem::exists("plain"));
    EXPECT_EQ(make_pathdirs((folder_.path() + std::string(2000, 'd') + "/f").c_str()), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("File name too long"));
}

}  // namespace
