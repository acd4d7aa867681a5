// Announcements, banners and command lines.
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>

#include "support/kit.hpp"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string kRelease = "libmorva [0-9.]+ [A-Za-z]+-[a-z0-9_]+ [0-9]{4}-[0-9]{2}-[0-9]{2}";
const std::string kTime = "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}";

// A folder along PATH with a program `tool`, changed last at 2001-09-09 01:46:40 UTC.
class Banner : public testing::Test {
  protected:
    Banner() {
        kit::write_file(folder_.file("tool"), "");
        const struct utimbuf times = {1000000000, 1000000000};
        ::utime(folder_.file("tool").c_str(), &times);
        ::tzset();
    }
    ~Banner() override { ::tzset(); }

    kit::TempDir folder_;
    kit::CommaLocale foreign_;
    kit::Env path_{"PATH", folder_.path().c_str()};
    kit::Env zone_{"TZ", "UTC"};
};

std::string error(const std::function<void()>& body) {
    return kit::captured(2, body);
}

std::string program() {
    return std::filesystem::read_symlink("/proc/self/exe").filename();
}

TEST_F(Banner, TellsReleaseRevisionAndTime) {
    const std::string release = morva_release(), revision = morva_revision();
    EXPECT_THAT(release, MatchesRegex(kRelease));
    EXPECT_THAT(revision, MatchesRegex("[0-9a-f]{40}"));
    const std::string time = "    Sun Sep  9 01:46:40 2001 <#>\n";
    EXPECT_EQ(std::string(announce_str("tool", "2.1")),
              "\ntool 2.1   using " + release + "  <#>\n   " + revision + "  <#>\n" + time);
    EXPECT_EQ(std::string(announce_str("notool", nullptr)),
              "\nnotool    using " + release + "  <#>\n   " + revision + "  <#>\n");
    EXPECT_THAT(announce_str(nullptr, ""), StartsWith("\n" + std::string(Program_Name) + " "));
    EXPECT_EQ(
        error([] { banner("tool", "2.1"); }),
        "\ntool 2.1 <#>\n" + time + "    using " + release + "  <#>\n   " + revision + "  <#>\n");
    EXPECT_EQ(std::string(announce_str(std::string(5000, 'x').c_str(), "")),
              "\n" + std::string(1022, 'x'));
}

TEST_F(Banner, TakesTheExecutableWithoutAName) {
    char* const saved = Program_Name;
    char none[] = "";
    Program_Name = none;
    EXPECT_THAT(announce_str("", ""), StartsWith("\n" + program() + "    using "));
    Program_Name = saved;
}

TEST_F(Banner, AnnouncesThroughTheRegister) {
    char tool[] = "/bin/tool", option[] = "-v", *command[] = {tool, option, nullptr};
    char** argv;
    int argc;
    elog_query(ELOG_ARGV, 0, &argv);
    elog_query(ELOG_ARGC, 0, &argc);
    elog_set(ELOG_ARGV, 0, command);
    elog_set(ELOG_ARGC, 0, reinterpret_cast<void*>(2));
    const std::string seen = error([] { announce("tool", "2.1"); });
    elog_set(ELOG_ARGV, 0, argv);
    elog_set(ELOG_ARGC, 0, reinterpret_cast<void*>(static_cast<intptr_t>(argc)));
    const std::string tag = std::string(Program_Name) + ": ";
    EXPECT_EQ(seen, "\n" + tag + "tool 2.1   using " + morva_release() + "  <#>\n" + tag + "   " +
                        morva_revision() + "  <#>\n" + tag + "    Sun Sep  9 01:46:40 2001 <#>\n" +
                        "\n" + tag + "--> /bin/tool -v <#>\n\n");
}

TEST_F(Banner, OfContributedProgramsLeavesOutWhatIsNotGiven) {
    const std::string release = std::string(morva_release()).substr(sizeof "libmorva");
    const std::string notice = "    libmorva contributed software\n\tRelease " + release + "\n\n";
    const std::string all =
        error([] { cbanner("2.1", "[-v] FILE", "A. Nyman", "Uppsala", "a@b"); });
    EXPECT_THAT(all, MatchesRegex(program() + " 2\\.1\n    " + kTime + "\n  Usage: " + program() +
                                  " \\[-v\\] FILE\n\n    libmorva.*\n\tRelease .*\n\n    A. Nyman\n"
                                  "    Uppsala\n\n    Please report problems to a@b\n\n"));
    EXPECT_THAT(all, HasSubstr(notice));
    const std::string none = error([] { cbanner(nullptr, "", "\tx", "\xc3\xa9", nullptr); });
    EXPECT_THAT(none, MatchesRegex(program() + "\n    " + kTime + "\n    libmorva.*\n\n"));
    EXPECT_THAT(none, testing::EndsWith(notice));
}

TEST(Cmdline, BeginsWithTheExecutable) {
    char other[] = "other", a[] = "-a", b[] = "b c", *argv[] = {other, a, b, nullptr};
    EXPECT_EQ(kit::taken(cmdline(1, argv, 0)), program());
    EXPECT_EQ(kit::taken(cmdline(3, argv, 0)), program() + " -a b c");
    EXPECT_EQ(kit::taken(cmdline(2, argv, 1)),
              std::filesystem::read_symlink("/proc/self/exe").string() + " -a");
    EXPECT_EQ(kit::taken(cmdline(0, nullptr, 0)), program());
    EXPECT_EQ(error([&] { echo_cmdline(2, argv); }), "command line: " + program() + " -a\n");
}

TEST(Deprecate, TellsOfTheReplacement) {
    const std::string tag = std::string(Program_Name) + ": ";
    const std::string alone = error([] { deprecate(nullptr); });
    EXPECT_THAT(alone, HasSubstr("*** Please note: This program is deprecated, ***\n"
                                 "*** and may disappear from future releases.  ***\n\n"));
    EXPECT_EQ(error([] { deprecate("\n"); }), alone);
    EXPECT_EQ(error([] { deprecate("use wf2"); }), alone + "*** use wf2 ***\n\n");
}

}  // namespace
