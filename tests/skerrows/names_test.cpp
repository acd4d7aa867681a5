// Names of zones, hosts, users, signals and the executable; where files lie.
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <set>
#include <thread>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

// A zone folder of our own, so that the tests need no installed one.
class Zones : public testing::Test {
  protected:
    Zones() : tzdir_("TZDIR", folder_.path().c_str()) {
        std::filesystem::create_directories(folder_.file("Area/Deep"));
        for (const char* name : {"Area/Deep/Town", "Area/Town", "Etc-GMT+7", "Plain_1"})
            kit::write_file(folder_.file(name), "TZif2 and more");
        kit::write_file(folder_.file("zone.tab"), "# zones");
        kit::write_file(folder_.file("Text"), "no zone");
        kit::write_file(folder_.file("Short"), "TZi");
        kit::write_file(folder_.file("dot.ted"), "TZif2");
        kit::write_file(folder_.file("7th"), "TZif2");
        ::mkfifo(folder_.file("Pipe").c_str(), 0600);
        std::filesystem::create_symlink("Plain_1", folder_.file("Link"));
    }
    kit::TempDir folder_;
    kit::Env tzdir_;
};

TEST_F(Zones, KnowsTheFilesOfTheFolder) {
    for (const char* name :
         {"Area/Deep/Town", "Area/Town", "Etc-GMT+7", "Plain_1", "Link", "UTC", "GMT"})
        EXPECT_EQ(is_timezone(name), 1) << name;
}

TEST_F(Zones, RefusesEverythingElse) {
    errno = 77;
    const std::string outside = "../" + std::filesystem::path(folder_.path()).filename().string();
    const std::string absolute = folder_.file("Plain_1");
    const std::string longest(100000, 'A');
    for (const std::string& name : {std::string(),
                                    std::string("Nowhere"),
                                    std::string("Area"),
                                    std::string("Area/"),
                                    std::string("Area//Town"),
                                    std::string("Area/../Plain_1"),
                                    std::string("./Plain_1"),
                                    std::string("Text"),
                                    std::string("Short"),
                                    std::string("zone.tab"),
                                    std::string("dot.ted"),
                                    std::string("7th"),
                                    std::string("Pipe"),
                                    std::string("plain_1"),
                                    std::string("Plain_1 "),
                                    std::string("EST5EDT4,M3.2.0,M11.1.0"),
                                    std::string("Jun24"),
                                    std::string("Plain_1\xc3"),
                                    outside + "/Plain_1",
                                    absolute,
                                    longest})
        EXPECT_EQ(is_timezone(name.c_str()), 0) << name.substr(0, 100);
    EXPECT_EQ(is_timezone(nullptr), 0);
    EXPECT_EQ(errno, 77);
}

TEST_F(Zones, NeverReadsBeyondTheName) {
    const kit::Guarded endless(std::string(300, 'A'));
    EXPECT_EQ(is_timezone(endless.data()), 0);
}

TEST(InstalledZones, AreKnownFromSeveralThreads) {
    if (!std::filesystem::exists("/usr/share/zoneinfo/Europe/Vienna")) GTEST_SKIP();
    const kit::Env none("TZDIR", nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round) {
                EXPECT_EQ(is_timezone("Europe/Vienna"), 1);
                EXPECT_EQ(is_timezone("Europe/Nowhere"), 0);
            }
        });
    for (auto& thread : threads) thread.join();
}

TEST(Nfs, LocalFilesAreNot) {
    const kit::TempDir folder;
    errno = 77;
    for (const std::string& path :
         {folder.path(), folder.file("missing"), folder.file("no/such"), std::string(5000, 'a'),
          std::string("missing"), std::string("/missing"), std::string()})
        EXPECT_EQ(is_nfs(path.c_str()), 0) << path;
    EXPECT_EQ(errno, 77);
}

TEST(Names, AreWholeOrRefused) {
    struct Case {
        const char* what;
        int (*get)(char*, size_t);
        std::string expected;
    };
    char host[300];
    ASSERT_EQ(::gethostname(host, sizeof host), 0);
    const passwd* user = ::getpwuid(::geteuid());
    if (user == nullptr) GTEST_SKIP() << "the user has no entry";
    const Case cases[] = {
        {"host", my_hostname, host},
        {"user", my_username, user->pw_name},
        {"address", [](char* name, size_t size) { return name2ip("192.0.2.7", name, size); },
         "192.0.2.7"},
        {"long address",
         [](char* name, size_t size) { return name2ip("2001:DB8:0::7", name, size); },
         "2001:db8::7"},
    };
    for (const auto& [what, get, expected] : cases) {
        std::string buffer(expected.size() + 1, '#');
        EXPECT_EQ(get(buffer.data(), buffer.size()), 0) << what;
        EXPECT_STREQ(buffer.c_str(), expected.c_str()) << what;
        buffer.assign(expected.size() + 1, '#');
        EXPECT_EQ(get(buffer.data(), expected.size()), -1) << what;
        EXPECT_EQ(errno, ERANGE) << what;
        EXPECT_EQ(buffer, std::string(expected.size() + 1, '#')) << what;
        EXPECT_EQ(get(nullptr, 0), -1) << what;
    }
}

TEST(Names, OfUnknownHostsAreErrors) {
    char address[64] = "untouched";
    for (const std::string& name : {std::string(), std::string(100, 'a'), std::string(5000, 'b')}) {
        errno = 0;
        EXPECT_EQ(name2ip(name.c_str(), address, sizeof address), -1) << name;
        EXPECT_NE(errno, 0) << name;
    }
    EXPECT_EQ(name2ip(nullptr, address, sizeof address), -1);
    EXPECT_STREQ(address, "untouched");
}

TEST(Signals, HaveTheirNames) {
    const std::pair<int, const char*> cases[] = {
        {0, "EXIT"},         {SIGHUP, "HUP"},           {SIGINT, "INT"},
        {SIGABRT, "ABRT"},   {SIGSEGV, "SEGV"},         {SIGCHLD, "CHLD"},
        {SIGSYS, "SYS"},     {SIGRTMIN, "RTMIN"},       {SIGRTMIN + 1, "RTMIN+1"},
        {SIGRTMAX, "RTMAX"}, {SIGRTMAX - 1, "RTMAX-1"},
    };
    for (const auto& [signo, expected] : cases) {
        char name[SIG2STR_MAX];
        EXPECT_EQ(sig2str(signo, name), 0) << expected;
        EXPECT_STREQ(name, expected);
    }
}

TEST(Signals, EveryNameLeadsBackToItsNumber) {
    std::set<std::string> names;
    for (int signo = 0; signo <= SIGRTMAX; ++signo) {
        char name[SIG2STR_MAX];
        // Two numbers before the real-time signals are the C library's own.
        ASSERT_EQ(sig2str(signo, name), signo >= 32 && signo < SIGRTMIN ? -1 : 0) << signo;
        if (signo >= 32 && signo < SIGRTMIN) continue;
        int back = -1;
        EXPECT_EQ(str2sig(name, &back), 0) << name;
        EXPECT_EQ(back, signo) << name;
        EXPECT_TRUE(names.insert(name).second) << name;
    }
}

TEST(Signals, UnderstandsOtherNames) {
    const std::pair<const char*, int> cases[] = {
        {"IOT", SIGABRT},
        {"CLD", SIGCHLD},
        {"9", 9},
        {"0", 0},
        {"RTMIN+30", SIGRTMIN + 30},
        {"RTMAX-30", SIGRTMAX - 30},
        {"RTMIN+0", SIGRTMIN},
    };
    for (const auto& [name, expected] : cases) {
        int signo = -1;
        EXPECT_EQ(str2sig(name, &signo), 0) << name;
        EXPECT_EQ(signo, expected) << name;
    }
}

TEST(Signals, RefusesWhatIsNone) {
    int signo = 1234;
    for (const char* name :
         {"", "int", "SIGINT", "INT ", "INTX", "-1", "+9", "9x", "65", "33", "99999999999999999999",
          "RTMIN+31", "RTMIN+-1", "RTMIN-1", "RTMAX+1", "RTMAX-", "RTMIN+1x"})
        EXPECT_EQ(str2sig(name, &signo), -1) << name;
    EXPECT_EQ(str2sig(nullptr, &signo), -1);
    EXPECT_EQ(signo, 1234);
    char name[SIG2STR_MAX] = "untouched";
    for (const int none : {-1, SIGRTMAX + 1, INT_MAX, INT_MIN}) EXPECT_EQ(sig2str(none, name), -1);
    EXPECT_STREQ(name, "untouched");
}

TEST(ExecName, IsThisProgram) {
    const char* name = getexecname();
    ASSERT_NE(name, nullptr);
    EXPECT_TRUE(std::filesystem::equivalent(name, "/proc/self/exe"));
    EXPECT_EQ(name[0], '/');
    EXPECT_EQ(getexecname(), name);
}

TEST(Environment, IsBelievedInAnOrdinaryProcess) {
    const kit::Env set("MORVA_TEST_VARIABLE", "value"), unset("MORVA_TEST_OTHER", nullptr);
    EXPECT_STREQ(std_getenv("MORVA_TEST_VARIABLE"), "value");
    EXPECT_EQ(std_getenv("MORVA_TEST_OTHER"), nullptr);
}

}  // namespace
