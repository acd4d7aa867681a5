// morva morph, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

TEST(MorvaMorph, RenamesAndNamesTheRule) {
    const kit::TempDir folder;
    kit::write_file(folder.file("r"),
                    "# channels\n/^BH(.)$/HH$1/\r\n\n  \nLOG ACE\n/H(.)$/$1\\H/\n");
    kit::write_file(folder.file("bad"), "(x y\nA B");
    const struct {
        const char* command;
        int status;
        const char* out;
    } rows[] = {
        {"morva morph r BHZ LOG", 0,
         "BHZ      HHZ       line 2: ^BH(.)$ -> HH$1\n"
         "LOG      ACE       line 5: LOG -> ACE\n"},
        {"morva morph r LCQ", 1, "LCQ      LCQ       no rule\n"},
        {"morva morph -p r LHQ", 0, "LHQ      LQH       line 6: H(.)$ -> $1\\H\n"},
        {"morva morph -q -a -p r BHZ LCQ ''", 1, "HZH\nLCQ\n\n"},
        {"printf 'BHZ\\nx y\\n' | morva morph --all -p --json r -", 1,
         "{\"name\":\"BHZ\",\"result\":\"HZH\",\"rules\":[{\"line\":2,\"pattern\":\"^BH(.)$\","
         "\"replacement\":\"HH$1\"},{\"line\":6,\"pattern\":\"H(.)$\","
         "\"replacement\":\"$1\\\\H\"}]}\n"
         "{\"name\":\"x y\",\"result\":\"x y\",\"rules\":[]}\n"},
        {"morva morph -q bad A", 1,
         "morva: '(x' did not compile: Unmatched ( or \\(\n"
         "morva: bad: 1 rule can't be used\nB\n"},
        {"morva morph none A", 2, "morva: can't read none\n\tNo such file or directory\n"},
        {"morva morph . A 2>/dev/null", 2, ""},
        {"morva morph r 2>/dev/null", 2, ""},
    };
    for (const auto& row : rows) {
        const std::string line = "cd '" + folder.path() +
                                 "'; PATH='" MORVA_BINARY_DIR "/bin':$PATH; { " + row.command +
                                 "; } 2>&1";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string out;
        for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
        EXPECT_EQ(WEXITSTATUS(::pclose(pipe)), row.status) << row.command;
        EXPECT_EQ(out, row.out) << row.command;
    }
}

}  // namespace
