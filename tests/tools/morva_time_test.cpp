// morva time, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

struct Outcome {
    int status;
    std::string out;
};

// Runs a shell command line with the program in the path; complaints are part of the output.
Outcome run(const std::string& command) {
    const kit::Env zone("TZ", "UTC");
    const std::string line = "PATH='" MORVA_BINARY_DIR "/bin':$PATH; { " + command + "; } 2>&1";
    FILE* pipe = ::popen(line.c_str(), "r");
    std::string out;
    for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(MorvaTime, TellsWhatATextMeans) {
    const struct {
        const char* command;
        int status;
        const char* out;
    } rows[] = {
        {"morva time -f '%G %T' June 24 2014 12:30 US/Mountain", 0, "2014-06-24 18:30:00.000\n"},
        {"morva time -f '%G %H %z' -z Asia/Kathmandu 2014175", 0, "2014-06-24 05 +0545\n"},
        {"morva time -f %E -- -.5", 0, "         -0.500\n"},
        {"morva time 2014-6-24", 1,
         "morva: str2epoch: Bad date format:'2014-6-24'\nmorva: '2014-6-24' is no time\n"},
        {"morva time ''", 1, "morva: '' is no time\n"},
        {"printf '2014175\\n\\n1 2 3\\nnope\\n5' | morva time --json -f %g - 2>/dev/null", 1,
         "{\"text\":\"2014175\",\"formatted\":\"2014-175\"}\n"
         "{\"text\":\"1 2 3\",\"error\":\"str2epoch: extra number '3'\"}\n"
         "{\"text\":\"nope\",\"error\":\"str2epoch: no timezone 'nope'\"}\n"
         "{\"text\":\"5\",\"formatted\":\"1970-001\"}\n"},
        {"morva time -v -f %G 6/4/2014 MST", 0,
         "2014-06-04\n"
         "    columns 1-8, rule 1: '6/4/2014': date: year 2014, month 6, day 4\n"
         "    columns 10-12, rule 64: 'MST': time zone\n"
         "    the clock time is that of the zone\n"
         "    could also be 2014-04-06 07:00:00.000, with the day first\n"},
        {"morva time --strict 6/4/2014", 1,
         "morva: str2epoch: which is the month in '6/4/2014'?\n"
         "morva: '6/4/2014' is no time\n"},
        {"morva time -z No/Where now >/dev/null 2>&1", 2, ""},
        {"morva time 2>/dev/null", 2, ""},
    };
    for (const auto& row : rows) {
        const Outcome seen = run(row.command);
        EXPECT_EQ(seen.status, row.status) << row.command;
        EXPECT_EQ(seen.out, row.out) << row.command;
    }
}

TEST(MorvaTime, ShowsEveryForm) {
    const Outcome forms = run("morva time --zone MST 1403613015.5");
    EXPECT_EQ(forms.status, 0);
    for (const char* part :
         {"epoch                1403613015.500\n", "06/24/2014  12:30:15.500\n",
          "06/24/2014  (175) 12:30:15.500\n", "Tuesday\n", "06/24/2014  05:30:15.500 MST\n",
          "06/24/2014 MST\n", "2014-06-24 05:30:15.500 MST\n", "from now             -"})
        EXPECT_THAT(forms.out, testing::HasSubstr(part));
    EXPECT_THAT(run("morva time --json -v 5").out,
                testing::EndsWith("\"steps\":[{\"rule\":58,\"first\":1,\"last\":1,\"said\":"
                                  "\"number: first number 5\"},{\"said\":"
                                  "\"a number alone is the epoch time\"}]}\n"));
    EXPECT_EQ(run("bash -c 'source <(morva generate bash); "
                  "COMP_WORDS=(morva time 5 --z); COMP_CWORD=3; _morva; echo ${COMPREPLY[*]}'")
                  .out,
              "--zone\n");
}

}  // namespace
