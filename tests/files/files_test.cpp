#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <thread>

#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

class Files : public testing::Test {
  protected:
    struct stat status(const std::string& path) {
        struct stat result {};
        EXPECT_EQ(::lstat(path.c_str(), &result), 0) << path;
        return result;
    }
    size_t entries() {
        return static_cast<size_t>(
            std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
    }
    kit::TempDir folder_;
    kit::Logged logged_;
};

TEST_F(Files, UniqueNamesAreNewPrivateFiles) {
    const std::string base = folder_.file("snoop");
    const std::string one = kit::taken(vkunique_filename(base.c_str()));
    const std::string two = kit::taken(vkunique_filename(base.c_str()));
    EXPECT_NE(one, two);
    for (const std::string& name : {one, two}) {
        EXPECT_EQ(name.substr(0, base.size() + 1), base + ".");
        EXPECT_EQ(status(name).st_mode, S_IFREG | 0600u);
        EXPECT_EQ(status(name).st_size, 0);
    }
}

TEST_F(Files, UniqueNamesFailWithAReason) {
    EXPECT_EQ(vkunique_filename(folder_.file("no/such").c_str()), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("from '" + folder_.file("no/such") + "'\n"));
    EXPECT_EQ(vkunique_filename(""), nullptr);
    EXPECT_EQ(vkunique_filename(nullptr), nullptr);
    EXPECT_EQ(entries(), 0u);
}

TEST_F(Files, MadeFilesHaveTheirBytesAndTheirRoom) {
    const std::string path = folder_.file("made");
    const long size = 300'001;
    ASSERT_EQ(mkfile(path.c_str(), size, "head\0er", 7), 0) << logged_.text();
    std::string expected(size, '\0');
    expected.replace(0, 7, std::string_view("head\0er", 7));
    EXPECT_EQ(kit::read_file(path), expected);
    EXPECT_GE(status(path).st_blocks * 512, size) << "the file has holes";
}

TEST_F(Files, MadeFilesReplaceWhatWasThere) {
    const std::string path = folder_.file("made");
    kit::write_file(path, std::string(100, 'x'));
    EXPECT_EQ(mkfile(path.c_str(), 10, "ab", 2), 0);
    EXPECT_EQ(kit::read_file(path), std::string("ab\0\0\0\0\0\0\0\0", 10));
    EXPECT_EQ(mkfile(path.c_str(), 3, "xyz", 3), 0);
    EXPECT_EQ(kit::read_file(path), "xyz");
    EXPECT_EQ(mkfile(path.c_str(), 0, nullptr, 0), 0);
    EXPECT_EQ(kit::read_file(path), "");
}

TEST_F(Files, FilesThatCannotBeMadeLeaveNothing) {
    ::mkfifo(folder_.file("pipe").c_str(), 0600);
    const std::string path = folder_.file("made");
    EXPECT_EQ(mkfile(path.c_str(), -1, "", 0), -1);
    EXPECT_EQ(mkfile(path.c_str(), 2, "abc", 3), -1);
    EXPECT_EQ(mkfile(path.c_str(), 2, "abc", -1), -1);
    EXPECT_EQ(mkfile(path.c_str(), 2, nullptr, 1), -1);
    EXPECT_EQ(mkfile(nullptr, 2, "a", 1), -1);
    EXPECT_EQ(mkfile(folder_.path().c_str(), 2, "a", 1), -1);
    EXPECT_EQ(mkfile(folder_.file("pipe").c_str(), 2, "a", 1), -1);
    EXPECT_EQ(mkfile(folder_.file("no/such").c_str(), 2, "a", 1), -1);
    EXPECT_EQ(mkfile(path.c_str(), LONG_MAX, "a", 1), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't make file '" + path + "'\n"));
    EXPECT_EQ(entries(), 1u) << "only the pipe";
}

TEST_F(Files, ThePartialFileIsRemoved) {
    const std::string path = folder_.file("made"), link = folder_.file("link");
    struct rlimit limit, small;
    ::getrlimit(RLIMIT_FSIZE, &limit);
    small = {4096, limit.rlim_max};
    const auto old = ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &small);
    const int plain = mkfile(path.c_str(), 100'000, "ab", 2);
    const bool left = std::filesystem::exists(path);
    kit::write_file(path, "old");
    std::filesystem::create_symlink(path, link);
    const int linked = mkfile(link.c_str(), 100'000, "ab", 2);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, old);
    EXPECT_EQ(plain, -1);
    EXPECT_FALSE(left);
    EXPECT_EQ(linked, -1);
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << "a link is not ours to remove";
    EXPECT_EQ(status(path).st_size, 0);
    EXPECT_THAT(logged_.text(), HasSubstr("File too large"));
}

TEST_F(Files, KindsAreTold) {
    kit::write_file(folder_.file("file"), "x");
    std::filesystem::create_symlink("file", folder_.file("link"));
    std::filesystem::create_symlink("nowhere", folder_.file("dangling"));
    ::mkfifo(folder_.file("pipe").c_str(), 0600);
    errno = 77;
    for (const auto& [name, expected] :
         {std::pair("file", 1), {"link", 1}, {"dangling", 0}, {"pipe", 0}, {".", 0}, {"none", 0}}) {
        EXPECT_EQ(is_filename(folder_.file(name).c_str()), expected) << name;
        EXPECT_EQ(is_file(folder_.file(name).c_str()), expected) << name;
    }
    EXPECT_EQ(is_filename(nullptr), 0);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(Files, RestatIsStat) {
    kit::write_file(folder_.file("file"), "four");
    struct stat found {};
    EXPECT_EQ(restat(folder_.file("file").c_str(), &found), 0);
    EXPECT_EQ(found.st_size, 4);
    EXPECT_EQ(restat(folder_.file("none").c_str(), &found), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(restat(nullptr, &found), -1);
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(Files, MapsAWholeFile) {
    const std::string path = folder_.file("file");
    kit::write_file(path, std::string(10000, 'a'));
    void* address = nullptr;
    long size = -1;
    ASSERT_EQ(mapfile(path.c_str(), 1, &address, &size), 0);
    EXPECT_EQ(std::string(static_cast<char*>(address), static_cast<size_t>(size)),
              std::string(10000, 'a'));
    static_cast<char*>(address)[9999] = 'z';
    ::munmap(address, static_cast<size_t>(size));
    EXPECT_EQ(kit::read_file(path).back(), 'z');
    ASSERT_EQ(mapfile(path.c_str(), 0, &address, &size), 0);
    EXPECT_EQ(static_cast<char*>(address)[9999], 'z');
    EXPECT_EQ(::mprotect(address, 1, PROT_READ | PROT_WRITE), -1) << "not opened for writing";
    ::munmap(address, static_cast<size_t>(size));
    kit::write_file(path, "");
    ASSERT_EQ(mapfile(path.c_str(), 0, &address, &size), 0);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(size, 0);
}

TEST_F(Files, MapsNothingElse) {
    ::mkfifo(folder_.file("pipe").c_str(), 0600);
    char there;
    void* address = &there;
    long size = 77;
    for (const char* name : {"none", "pipe", "."})
        for (const int writable : {0, 1}) {
            EXPECT_EQ(mapfile(folder_.file(name).c_str(), writable, &address, &size), -1) << name;
            EXPECT_THAT(logged_.text(), HasSubstr("Can't map file '" + folder_.file(name) + "'\n"));
        }
    EXPECT_EQ(mapfile(nullptr, 0, &address, &size), -1);
    EXPECT_EQ(address, &there);
    EXPECT_EQ(size, 77);
}

}  // namespace
