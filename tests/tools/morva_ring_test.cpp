// morva ring, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

class MorvaRing : public testing::Test {
  protected:
    struct Outcome {
        int status;
        std::string out;
    };
    // Runs a shell command line in the private folder; complaints are part of the output.
    Outcome run(const std::string& command) const {
        const std::string line = "cd '" + dir_.path() +
                                 "'; PATH='" MORVA_BINARY_DIR "/bin':$PATH; { " + command +
                                 "; } 2>&1";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string out;
        for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
        const int status = ::pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
    }
    kit::TempDir dir_;
};

TEST_F(MorvaRing, MakesFillsAndReads) {
    const struct {
        const char* command;
        int status;
        const char* out;
    } rows[] = {
        {"morva ring create a.ring 5 --id 'latency, s' --gap 10", 0, ""},
        {"morva ring create a.ring 5", 2, "morva: a.ring is there already; --force replaces it\n"},
        {"printf '1 2.5\\n\\n2014-06-24 12:30:15.5 0.1\\n' | morva ring push a.ring -", 0, ""},
        {"morva ring tail a.ring", 0,
         "1970-01-01T00:00:01.000Z  2.5\n1970-01-01T00:00:01.000Z  break\n"
         "2014-06-24T12:30:15.500Z  break\n2014-06-24T12:30:15.500Z  0.1\n"},
        {"morva ring push a.ring --time 2014175 5", 1,
         "morva: not behind the newest point: 2014-06-24T00:00:00.000Z 5\n"},
        {"morva ring push a.ring nothing", 2, "morva: 'nothing' is no number\n"},
        {"morva ring push b.ring 1", 2, "morva: there is no b.ring: see morva ring create\n"},
        {"morva ring push a.ring --time 1403613016 -- -1", 0, ""},
        {"morva ring tail --json -n 3 a.ring", 0,
         "{\"time\":1403613015.5,\"iso\":\"2014-06-24T12:30:15.500Z\",\"value\":null,\"break\":"
         "true}\n"
         "{\"time\":1403613015.5,\"iso\":\"2014-06-24T12:30:15.500Z\",\"value\":0.1,\"break\":"
         "false}\n"
         "{\"time\":1403613016,\"iso\":\"2014-06-24T12:30:16.000Z\",\"value\":-1,\"break\":false}"
         "\n"},
        {"morva ring tail --span 0.2 a.ring", 0, "2014-06-24T12:30:16.000Z  -1\n"},
        {"morva ring tail --span nan a.ring", 2,
         "--span: 'nan' is no number of seconds above 0\nRun with --help for more information.\n"},
        {"morva ring plot --json --span 1 a.ring", 0,
         "{\"file\":\"a.ring\",\"title\":\"latency, s\",\"from\":1403613015,"
         "\"from_iso\":\"2014-06-24T12:30:15.000Z\",\"to\":1403613016,"
         "\"to_iso\":\"2014-06-24T12:30:16.000Z\","
         "\"pieces\":[[[1403613015.5,0.1],[1403613016,-1]]]}\n"},
    };
    for (const auto& row : rows) {
        const Outcome seen = run(row.command);
        EXPECT_EQ(seen.status, row.status) << row.command;
        EXPECT_EQ(seen.out, row.out) << row.command;
    }
}

TEST_F(MorvaRing, TellsStatistics) {
    run("morva ring create a.ring 9; printf '0 4\\n10 6\\n20 8\\n30 14\\n' | morva ring push "
        "a.ring -");
    const Outcome text = run("morva ring stats a.ring");
    for (const char* part :
         {"points         4\n", "newest         1970-01-01T00:00:30.000Z  14\n",
          "largest        14  1970-01-01T00:00:30.000Z\n", "mean           8\n",
          "deviation      4.32049\n", "median         7\n", "slope an hour  1152\n"})
        EXPECT_THAT(text.out, HasSubstr(part));
    EXPECT_THAT(run("morva ring stats --json --span 15 a.ring").out,
                HasSubstr("\"n\":2,\"min\":8,\"max\":14,\"mean\":11,"));
    EXPECT_EQ(run("morva ring stats missing").status, 2);
}

TEST_F(MorvaRing, WatchesWhatComes) {
    EXPECT_EQ(run("morva ring create a.ring 9; morva ring push a.ring -t 1 7;"
                  "morva ring watch --interval 0.02 --count 2 a.ring & sleep 0.2;"
                  "printf '2 8\\n3 9\\n4 10\\n' | morva ring push a.ring -; wait")
                  .out,
              "1970-01-01T00:00:02.000Z  8\n1970-01-01T00:00:03.000Z  9\n");
}

TEST_F(MorvaRing, Draws) {
    // The drawing library's list of fonts is never freed.
    const kit::Env leaks("ASAN_OPTIONS", "detect_leaks=0");
    run("morva ring create a.ring 9000 --id tide --gap 50; morva ring create empty.ring 9;"
        "seq 0 8000 | awk '{ print $1 * 10 + ($1 > 4000) * 9999, sin($1 / 500) }' |"
        "morva ring push a.ring -");
    const Outcome drawn =
        run("morva ring plot a.ring empty.ring -o a.png && "
            "morva ring plot a.ring -o a.svg --width 400 --height 100");
    EXPECT_EQ(drawn.status, 0) << drawn.out;
    EXPECT_EQ(kit::read_file(dir_.file("a.png")).substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_THAT(kit::read_file(dir_.file("a.svg")), HasSubstr("<svg"));
    const Outcome terminal = run("morva ring plot a.ring");
    for (const char* part : {"tide  ", "       0 ", "1970-01-01", "\u28c0"})
        EXPECT_THAT(terminal.out, HasSubstr(part));
    const Outcome strange = run(
        "morva ring create b.ring 9 --id \"$(printf 'a\\377\\nb')\"; printf '1 nan\\n2 1e308\\n3 "
        "5\\n' |"
        "morva ring push b.ring -; morva ring plot b.ring -o b.png && morva ring plot b.ring");
    EXPECT_EQ(strange.status, 0) << strange.out;
    EXPECT_EQ(run("morva ring plot a.ring -o a.gif").status, 2);
    EXPECT_EQ(run("morva ring plot a.ring -o no/where.png").status, 2);
    EXPECT_EQ(run("morva ring plot a.ring -o no/where.svg").status, 2);
}

}  // namespace
