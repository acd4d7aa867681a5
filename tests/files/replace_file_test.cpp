#include "files/replace_file.hpp"

#include "support/failing_calls.hpp"
#include "support/kit.hpp"

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class ReplaceFile : public testing::Test {
  protected:
    ReplaceFile() { kit::write_file(path_, "old"); }
    ~ReplaceFile() override { kit::fail_call(0, 0); }
    mode_t mode(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }
    long entries() { return std::distance(fs::directory_iterator(folder_.path()), {}); }
    kit::TempDir folder_;
    const std::string path_ = folder_.file("file");
    kit::Logged logged_;
};

TEST_F(ReplaceFile, KeepsModeAndOwnerAndLeavesNothingBehind) {
    const bool root = ::geteuid() == 0;
    if (root && ::chown(path_.c_str(), 12, 34) != 0) FAIL();
    for (const mode_t kept : {0600u, 0640u, 04751u, 0666u}) {
        ::chmod(path_.c_str(), kept);
        ASSERT_EQ(morva::replace_file(path_.c_str(), "new\0er"), 0) << logged_.text();
        EXPECT_EQ(mode(path_), kept);
    }
    struct stat status {};
    ::stat(path_.c_str(), &status);
    EXPECT_TRUE(!root || (status.st_uid == 12 && status.st_gid == 34));
    EXPECT_EQ(kit::read_file(path_), "new");
    EXPECT_EQ(entries(), 1);
}

TEST_F(ReplaceFile, MakesFilesAsTheUmaskSays) {
    const std::string path = folder_.file(std::string(255, 'n'));
    const mode_t mask = ::umask(027);
    const int made = morva::replace_file(path.c_str(), "new");
    ::umask(mask);
    EXPECT_EQ(made, 0) << logged_.text();
    EXPECT_EQ(mode(path), 0640u);
}

TEST_F(ReplaceFile, FollowsLinks) {
    fs::create_directory(folder_.file("far"));
    fs::create_symlink("two", folder_.file("one"));
    fs::create_symlink(folder_.file("far/three"), folder_.file("two"));
    fs::create_symlink("../file", folder_.file("far/three"));
    ASSERT_EQ(morva::replace_file(folder_.file("one").c_str(), "new"), 0) << logged_.text();
    for (const char* link : {"one", "two", "far/three"})
        EXPECT_TRUE(fs::is_symlink(folder_.file(link))) << link;
    EXPECT_EQ(kit::read_file(path_), "new");
    fs::create_symlink("far/made", folder_.file("dangling"));
    EXPECT_EQ(morva::replace_file(folder_.file("dangling").c_str(), "made"), 0);
    EXPECT_EQ(kit::read_file(folder_.file("far/made")), "made");
}

TEST_F(ReplaceFile, RefusesWhatIsNoFile) {
    fs::create_symlink("loop", folder_.file("loop"));
    ::mkfifo(folder_.file("pipe").c_str(), 0600);
    const long before = entries();
    for (const char* name : {"", ".", "..", "loop", "pipe", "no/such", "file/", "file/x"})
        EXPECT_EQ(morva::replace_file(folder_.file(name).c_str(), "new"), -1) << name;
    EXPECT_EQ(morva::replace_file(nullptr, "new"), -1);
    EXPECT_EQ(morva::replace_file("", "new"), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't replace file '" + folder_.file("pipe") + "'"));
    EXPECT_EQ(kit::read_file(path_), "old");
    EXPECT_EQ(entries(), before);
}

// Every system call fails once, with every error.
TEST_F(ReplaceFile, FailingCallsLeaveTheOldFile) {
    const bool root = ::geteuid() == 0;
    if (root && ::chown(path_.c_str(), 12, 34) != 0) FAIL();
    for (const int error : {EIO, ENOSPC, EMFILE, EACCES}) {
        long nth = 1;
        for (;; ++nth) {
            kit::write_file(path_, "old");
            kit::fail_call(nth, error);
            const int result = morva::replace_file(path_.c_str(), "new");
            const bool met = kit::calls_seen() >= nth;
            kit::fail_call(0, 0);
            if (!met) break;
            EXPECT_EQ(result, -1) << nth;
            const bool in_place = logged_.text().find("after replacing") != std::string::npos;
            EXPECT_EQ(kit::read_file(path_), in_place ? "new" : "old") << nth;
            EXPECT_EQ(entries(), 1) << nth;
        }
        EXPECT_EQ(nth, root ? 8 : 7);
        EXPECT_THAT(logged_.text(), HasSubstr("after replacing the file"));
        elog_flush(0, 0);
    }
}

TEST_F(ReplaceFile, InterruptedAndShortCallsGoUnnoticed) {
    const std::string text(1000, 'x');
    for (const int error : {EINTR, 0})
        for (long nth = 1; nth < 9; ++nth) {
            kit::fail_call(nth, error);
            EXPECT_EQ(morva::replace_file(path_.c_str(), text), 0) << nth << logged_.text();
            EXPECT_EQ(kit::read_file(path_), text);
        }
}

}  // namespace
