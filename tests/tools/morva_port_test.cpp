// morva port, run as a user runs it.
#include "tools/run.hpp"

namespace {

TEST(MorvaPort, Commands) {
    const kit::TempDir folder;
    kit::write_file(folder.file("orbserver_names.pf"),
                    "waves 6510 waveforms\nother 6510\nhex 0x1f90\nemu /bin/prog\n");
    const struct {
        const char* command;
        const char* out;
    } rows[] = {
        {"list 2>/dev/null",
         "0 hex              8080\nother            6510\nwaves            6510  waveforms\n"},
        {"list --names", "0 emu\nhex\nother\nwaves\n"},
        {"find 6510 6580:abc",
         "0 other            6510\nwaves            6510  waveforms\n6580:abc         6580  abc\n"},
        {"find --json waves",
         "0 {\"name\":\"waves\",\"port\":6510,\"description\":\"waveforms\"}\n"},
        {"find 99", "1 morva: port 99 has no name\n"},
        {"find zz 70000:a",
         "1 morva: Don't understand orbserver port 'zz'\nmorva: there is no port 'zz'\n"
         "morva: port number is 70000, but must be less than 65535\n"
         "morva: there is no port '70000:a'\n"},
        {"server -d 99 archive archive:waves :6580:x '[::1]:7'",
         "0 archive  host archive, port 99\narchive:waves  host archive, port 6510: waveforms\n"
         ":6580:x  host localhost, port 6580: x\n[::1]:7  host ::1, port 7\n"},
        {"server -e emu orbserver_names.pf",
         "0 orbserver_names.pf  is a file, which the program /bin/prog serves\n"},
        {"server --json a:waves",
         "0 {\"name\":\"a:waves\",\"host\":\"a\",\"port\":6510,\"description\":\"waveforms\"}\n"},
        {"server archive", "1 morva: port name unspecified\nmorva: 'archive' names no server\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(kit::run(folder, std::string("morva port ") + row.command), row.out)
            << row.command;
}

}  // namespace
