// The command morva, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

class Morva : public testing::Test {
  protected:
    // Runs a shell command line in the private folder, with the program in the path.
    Outcome run(const std::string& command) {
        const std::string line = "cd '" + folder_.path() +
                                 "' && PATH='" MORVA_BINARY_DIR "/bin':$PATH && { " + command +
                                 "; } 2>errors";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string out;
        for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
        const int status = ::pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out,
                kit::read_file(folder_.file("errors"))};
    }
    void write(const std::string& name, const std::string& text) {
        std::filesystem::create_directories(
            std::filesystem::path(folder_.file(name)).parent_path());
        kit::write_file(folder_.file(name), text);
    }
    std::string read(const std::string& name) { return kit::read_file(folder_.file(name)); }

    kit::TempDir folder_;
    kit::Env pfpath_{"PFPATH", "site:."};
};

const std::string kSite =
    "# site defaults\nlatency 20 # seconds\nroot /data\nstations &Arr{\n    AAK &Tbl{\n        "
    "BHZ\n"
    "        &root/B\n    }\n}\n";
const std::string kLocal = "latency 5\nhost &env(MORVA_TEST_HOST)\n";

struct Row {
    const char* arguments;
    int status;
    std::string out;
};

TEST_F(Morva, ReadsValues) {
    write("site/rt.pf", kSite);
    write("rt.pf", kLocal);
    const kit::Env host("MORVA_TEST_HOST", "here");
    const Row rows[] = {
        {"get rt latency", 0, "5\n"},
        {"get rt 'stations{AAK}[-1]'", 0, "/data/B\n"},
        {"get --raw rt 'stations{AAK}[-1]'", 0, "&root/B\n"},
        {"get rt 'stations{AAK}'", 0, "BHZ\n/data/B\n"},
        {"get --json rt stations", 0, "{\"AAK\":[\"BHZ\",\"/data/B\"]}\n"},
        {"get rt host", 0, "here\n"},
        {"get rt none", 1, ""},
        {"get none latency", 2, ""},
        {"keys rt", 0, "host\nlatency\nroot\nstations\n"},
        {"keys --all rt stations", 0, "stations{AAK}[0]\nstations{AAK}[1]\n"},
        {"keys --json rt stations", 0, "[\"AAK\"]\n"},
        {"keys rt latency", 1, ""},
        {"show rt stations", 0, "AAK\t&Tbl{\n    BHZ\n    &root/B\n}\n"},
        {"show --expand --json rt", 0,
         "{\"host\":\"here\",\"latency\":\"5\",\"root\":\"/"
         "data\",\"stations\":{\"AAK\":[\"BHZ\",\"/data/B\"]}}\n"},
        {"files rt", 0, "site/rt.pf\tread\n./rt.pf\tread\n"},
        {"files other", 1, "site/other.pf\tskipped, missing\n./other.pf\tskipped, missing\n"},
        {"files", 0, "rt\n"},
        {"explain rt latency", 0, "./rt.pf:1:1: decides: 5\nsite/rt.pf:2:1: overridden: 20\n"},
        {"explain --json rt stations", 0,
         "[{\"file\":\"site/"
         "rt.pf\",\"line\":4,\"column\":1,\"role\":\"decides\",\"block\":\"array\"}]\n"},
        {"explain rt none", 1, ""},
        {"diff rt rt", 0, ""},
        {"diff rt none", 2, ""},
    };
    for (const Row& row : rows) {
        const Outcome seen = run(std::string("morva pf ") + row.arguments);
        EXPECT_EQ(seen.status, row.status) << row.arguments << "\n" << seen.err;
        EXPECT_EQ(seen.out, row.out) << row.arguments;
        EXPECT_EQ(seen.err.empty(), row.status == 0 || !row.out.empty())
            << row.arguments << seen.err;
    }
}

TEST_F(Morva, SetsAValueWhereItIsDecided) {
    write("site/rt.pf", kSite);
    write("rt.pf", kLocal);
    EXPECT_EQ(run("morva pf set rt 'stations{AAK}[0]' -5").out,
              "site/rt.pf:6:\n- stations{AAK}[0]\tBHZ\n+ stations{AAK}[0]\t-5\n");
    EXPECT_EQ(run("morva pf set --json rt latency 7").out,
              "{\"file\":\"./"
              "rt.pf\",\"line\":1,\"changed\":true,\"changes\":[{\"path\":\"latency\",\"old\":"
              "\"5\",\"new\":\"7\"}]}\n");
    EXPECT_EQ(run("morva pf set -n rt latency 8").status, 0);
    EXPECT_EQ(run("morva pf set rt 'stations{KBK}' x").status, 0);
    EXPECT_EQ(run("morva pf set rt new 'a # b'").status, 0);
    std::string site = kSite;
    site.replace(site.find("BHZ"), 3, "-5");
    EXPECT_EQ(read("site/rt.pf"), site.insert(site.rfind('}'), "    KBK x\n"));
    EXPECT_EQ(read("rt.pf"), "latency 7\nhost &env(MORVA_TEST_HOST)\nnew a \\# b\n");
    const Outcome refused = run("morva pf set rt stations 1");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, testing::HasSubstr("it is a whole list or array"));
    EXPECT_EQ(run("morva pf set ./none a 1").status, 2);
}

TEST_F(Morva, ChecksComparesAndLaysOut) {
    write("a.pf", "k  1\nl &Tbl{\n x\n}\nk 2\n");
    write("b.pf", "k 2\nl &Tbl{\n x\n y\tz\n}\n");
    const Outcome findings = run("morva pf check a b");
    EXPECT_EQ(findings.status, 1);
    EXPECT_EQ(findings.out,
              "./a.pf:5:1: warning: the key 'k' is given again: line 1 had it before\n");
    EXPECT_EQ(run("morva pf check --json a").out,
              "[{\"file\":\"./a.pf\",\"line\":5,\"column\":1,\"severity\":\"warning\","
              "\"text\":\"the key 'k' is given again: line 1 had it before\"}]\n");
    EXPECT_EQ(run("morva pf check b").status, 0);
    EXPECT_EQ(run("morva pf check b none").status, 2);
    const Outcome difference = run("morva pf diff a b");
    EXPECT_EQ(difference.status, 1);
    EXPECT_EQ(difference.out, "+ l[1]\ty\\tz\n");
    EXPECT_EQ(run("morva pf diff --json b a").out, "[{\"path\":\"l[1]\",\"old\":\"y\\tz\"}]\n");
    EXPECT_EQ(run("morva pf fmt --check a.pf b.pf").out, "a.pf\nb.pf\n");
    EXPECT_EQ(run("morva pf fmt --normal a").out, "k\t2\nl\t&Tbl{\n    x\n}\n");
    EXPECT_EQ(run("morva pf fmt -i --normal a").status, 2);
    EXPECT_EQ(run("morva pf fmt -i a.pf b && morva pf fmt --check a b").status, 0);
    EXPECT_EQ(read("a.pf"), "k\t1\nl\t&Tbl{\n    x\n}\nk\t2\n");
}

// Reload by reload; a signal ends it as a success.
TEST_F(Morva, WatchesReloads) {
    write("w.pf", "a 1\n");
    const std::string script =
        "morva pf watch --interval 0.01 --count 3 w >told & pid=$!\n"
        "await() { for i in $(seq 500); do [ $(grep -c \"$1\" told) -ge $2 ] && return; sleep "
        "0.02; done; }\n"
        "sleep 0.3; printf 'a 2\\nb 3\\n' >w.new; mv w.new w.pf; await reloaded 1\n"
        "rm w.pf; await gone 1; printf 'b 3\\n' >w.new; mv w.new w.pf; wait $pid; echo $?\n"
        "morva pf watch --interval 100 w & pid=$!; sleep 0.3; kill -INT $pid; wait $pid; echo $?";
    const Outcome seen = run(script);
    EXPECT_EQ(seen.out, "0\n0\n") << seen.err;
    std::string told = read("told");
    for (std::size_t at; (at = told.find("Z w")) != std::string::npos;) {
        const std::size_t line = told.rfind('\n', at) + 1;  // 0 for the first
        told.replace(line, at + 3 - line, "T");
    }
    EXPECT_EQ(told, "T reloaded\n- a\t1\n+ a\t2\n+ b\t3\nT is gone\nT reloaded\n- a\t2\n");
}

TEST_F(Morva, ExplainsItself) {
    const Outcome none = run("morva pf bogus");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(run("morva --version").out, testing::StartsWith("morva "));
    const Outcome help = run("morva pf set --help");
    EXPECT_EQ(help.status, 0);
    for (const char* option : {"--dry-run", "--force", "--verbatim", "--json"})
        EXPECT_THAT(help.out, testing::HasSubstr(option));
}

// The shell offers what the tables have; names and paths come from the files.
TEST_F(Morva, CompletesInBash) {
    write("rt.pf", kSite + "'$(touch hacked)' 1\n");
    const std::string ask =
        "source <(morva generate bash); compopt() { :; }; "
        "ask() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _morva; echo ${COMPREPLY[*]}; }; ";
    const Row rows[] = {
        {"morva ge", 0, "generate\n"},
        {"morva pf s", 0, "set show\n"},
        {"morva pf get --r", 0, "--raw\n"},
        {"morva pf get r", 0, "rt rt.pf\n"},
        {"morva pf get rt sta", 0, "stations{AAK}[0] stations{AAK}[1]\n"},
        {"morva pf watch --interval 3 rt la", 0, "latency\n"},
        {"morva pf get rt \"\"", 0, "latency root stations{AAK}[0] stations{AAK}[1]\n"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(run("bash -c '" + ask + "ask " + row.arguments + "'").out, row.out)
            << row.arguments;
    for (const char* shell : {"zsh", "fish"}) {
        const std::string name = shell;
        EXPECT_EQ(run("command -v " + name + " || exit 0; morva generate " + name + " >s; " + name +
                      " -n s")
                      .status,
                  0);
    }
}

}  // namespace
