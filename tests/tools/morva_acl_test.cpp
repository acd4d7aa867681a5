// morva acl, run as a user runs it.
#include "tools/run.hpp"

namespace {

constexpr char kLists[] = R"(valid_ip_addresses &Tbl{
    10.0.0.0    255.0.0.0        the institute
    10.1.0.0    255.255.0.0      inside
    192.168.1.7 255.255.255.0
    fe80::      ffff::           link
    ::          ::               everybody
    host        255.0.0.0
    10.2.0.0    24
    10.3.0.0
    172.16.1.0  255.255.255.0    lost
}
reject_ip_addresses &Tbl{
    10.0.13.0   255.255.255.0    guests
    172.16.0.0  255.240.0.0
    11.0.0.0    255.0.0.0
    ::ffff:172.0.0.0  ffff:ffff:ffff:ffff:ffff:ffff:ff00:0
}
)";

TEST(MorvaAcl, Commands) {
    const kit::TempDir folder;
    kit::write_file(folder.file("lists.pf"), kLists);
    kit::write_file(folder.file("good.pf"),
                    "valid_ip_addresses &Tbl{\n10.0.0.0 255.0.0.0\n}\n"
                    "reject_ip_addresses &Tbl{\n10.9.0.0 255.255.0.0\n}\n");
    kit::write_file(folder.file("none.pf"), "x 1\n");
    const struct {
        const char* command;
        const char* out;
    } rows[] = {
        {"lint lists",
         "1 ./lists.pf:3:5: warning: never decides: valid_ip_addresses[0] (10.0.0.0 255.0.0.0) "
         "stands before it and matches the same\n"
         "./lists.pf:4:5: warning: '192.168.1.7' has bits that the mask leaves out\n"
         "./lists.pf:7:5: error: 'host' is no address: no client matches it, but legit_ip takes it "
         "for 255.255.255.255\n"
         "./lists.pf:8:5: error: '24' is no IPv4 mask, such as 255.255.255.0\n"
         "./lists.pf:9:5: error: there is no mask\n"
         "./lists.pf:10:5: warning: lets nobody in: reject_ip_addresses[1] (172.16.0.0 255.240.0.0)"
         " turns all of it away\n"
         "./lists.pf:13:5: warning: clients pass it by that come to an IPv6 socket, as "
         "::ffff:10.0.13.0\n"
         "./lists.pf:15:5: warning: turns nobody away that valid_ip_addresses lets in\n"
         "./lists.pf:15:5: warning: clients pass it by that come to an IPv6 socket, as "
         "::ffff:11.0.0.0\n"},
        {"lint --json lists | tail -n 1",
         "0 {\"file\":\"./lists.pf\",\"line\":15,\"column\":5,\"severity\":\"warning\",\"path\":"
         "\"reject_ip_addresses[2]\",\"text\":\"clients pass it by that come to an IPv6 socket, as "
         "::ffff:11.0.0.0\"}\n"},
        {"lint good", "0 "},
        {"lint none",
         "1 morva: no list valid_ip_addresses in parameter file none: it lets nobody in\n"},
        {"lint missing", "2 morva: no parameter file missing\n"},
        {"test good 10.8.0.1",
         "0 as a client        let in by ./good.pf:2: 10.0.0.0 255.0.0.0\n"
         "as a value         let in by ./good.pf:2: 10.0.0.0 255.0.0.0\n"
         "to an IPv6 socket  turned away: no entry of valid_ip_addresses matches\n"},
        {"test lists 10.0.13.4 2>/dev/null",
         "1 as a client        turned away by ./lists.pf:13: 10.0.13.0   255.255.255.0    guests\n"
         "as a value         turned away by ./lists.pf:13: 10.0.13.0   255.255.255.0    guests\n"
         "to an IPv6 socket  let in by ./lists.pf:6: ::          ::               everybody\n"},
        {"test --json good ::1",
         "1 {\"as\":\"socket\",\"accepted\":false,\"accept\":null,\"reject\":null}\n"},
        {"test good 10.9.1.2.3", "2 morva: '10.9.1.2.3' is no address\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(kit::run(folder, std::string("morva acl ") + row.command), row.out)
            << row.command;
}

}  // namespace
