// morva units, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

std::string run(const std::string& command) {
    const kit::Env root("KORVALIN", MORVA_SOURCE_DIR);
    const kit::Env path("DATAPATH", nullptr);
    const kit::Env own("UNITS", nullptr);
    const std::string line = "PATH='" MORVA_BINARY_DIR "/bin':$PATH; { " + command + "; } 2>&1";
    FILE* pipe = ::popen(line.c_str(), "r");
    std::string out;
    for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
    const int status = ::pclose(pipe);
    return std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + " " + out;
}

TEST(MorvaUnits, Commands) {
    const kit::TempDir folder;
    kit::write_file(folder.file("table"), "! m\nkm = 1000 mm\nkm = 5 m\nkm = 6 m\nkm\nx = \n");
    const std::string at = folder.file("table:");
    const struct {
        const char* arguments;
        std::string out;
    } rows[] = {
        {"convert 90 km/h m/s", "0 25\n"},
        {"convert --absolute -- -40 degF degC", "0 -40\n"},
        {"convert --absolute 32 degF degC", "0 0\n"},
        {"convert --absolute 20 degC degF", "0 68\n"},
        {"convert --absolute 1e-17 km m", "0 1e-14\n"},
        {"convert 1 m s",
         "1 morva: 'm' and 's' measure different things: the first has m s^-1 more\n"},
        {"convert --json 1 m s",
         "1 {\"value\":1,\"from\":\"m\",\"to\":\"s\",\"difference\":\"m s^-1 \"}\n"},
        {"convert --json 2 km m", "0 {\"value\":2,\"from\":\"km\",\"to\":\"m\",\"result\":2000}\n"},
        {"convert 1 metrz m",
         "2 morva: xunits : can't find unit 'metrz' near line #1\n"
         "morva: in the units 'metrz' at character 1, the nearest known name is 'metre'\n"
         "morva: no such units\n"},
        {"convert one m m", "2 morva: 'one' is no number\n"},
        {"match gal/s", "1 "},
        {"match --json lx", "0 \"footcandle\"\n\"klx\"\n\"lux\"\n\"phot\"\n"},
        {"show hPa degC",
         "0 hPa = 100 m^-1 kg s^-2\n"
         "degC = 1 K  (readings: 273.15 is added first)\n"},
        {"show --json nm/s", "0 {\"units\":\"nm/s\",\"factor\":1e-09,\"basis\":\"m s^-1\"}\n"},
        {"list | grep ^inch", "0 inch = 0.0254 m\n"},
        {"check", "0 "},
        {"check TABLE", "1 " + at +
                            "2:11: error: can't find unit 'mm', the nearest known name is "
                            "'m'\n" +
                            at + "4:1: warning: replacing definition for km\n" + at +
                            "5:1: warning: this line defines nothing\n" + at +
                            "6:5: error: syntax error\n"},
        {"check /nowhere 2>/dev/null", "2 "},
    };
    for (const auto& row : rows) {
        std::string arguments = row.arguments;
        if (const std::size_t table = arguments.find("TABLE"); table != arguments.npos)
            arguments.replace(table, 5, folder.file("table"));
        EXPECT_EQ(run("morva units " + arguments), row.out) << arguments;
    }
    const std::string list = run("UNITS='" + folder.file("table") + "' morva units list");
    EXPECT_THAT(list, testing::StartsWith("1 morva: xunits : can't find unit 'mm' near line #2\n"));
    EXPECT_THAT(list, testing::EndsWith("morva: the table is read no further\nm = 1 m\n"));
}

}  // namespace
