#include <arpa/inet.h>
#include <netinet/in.h>

#include "log/elog_child.hpp"
#include "morva/pflex.h"
#include "morva/sockets.h"
#include "net/portname.hpp"

namespace {

using testing::HasSubstr;

constexpr char kNames[] =
    "waves\t6510 waveforms of the archive\n"
    "hex\t0x1f90\n"
    "octal\t010 old\n"
    "same\t6510\n"
    "large\t70000 too large\n"
    "emulate\temulator -q\n"
    "list\t&Tbl{\n1\n}\n";

// A process that has not read its port names yet, in a folder of its own.
class PortNames : public testing::Test {
  protected:
    void check(const std::function<void()>& body, const char* names = kNames) {
        const kit::Ended ended = kit::in_child([&] {
            morva::net::port_file().tried = false;  // as in a fresh process
            if (names != nullptr) kit::write_file(folder_.file("orbserver_names.pf"), names);
            body();
            return testing::Test::HasFailure() ? (std::fflush(nullptr), 1) : 0;
        });
        EXPECT_EQ(ended.status, 0) << ended.errors;
    }
    kit::TempDir folder_;
    const kit::Env path_{"PFPATH", folder_.path().c_str()};
};

TEST_F(PortNames, GiveNumbersAndDescriptions) {
    check([] {
        const struct {
            const char* name;
            int port;
            const char* description;
            const char* message;
        } rows[] = {
            {"waves", 6510, "waveforms of the archive", ""},
            {"waves: mine ", 6510, "mine", ""},
            {"waves:", 6510, "", ""},
            {"hex", 8080, "", ""},
            {"octal", 8, "old", ""},
            {"6580: abc", 6580, "abc", ""},
            {"6580", 6580, "", ""},
            {"65535", 65535, "", ""},
            {"70000", 0, "", "port number is 70000, but must be less than 65535"},
            {"large", 0, "too large", "port number is 70000, but must be less than 65535"},
            {"99999999999999999999", 0, "", "port number is 2147483647, but"},
            {"0x1f90", 0, "", "Don't understand orbserver port '0x1f90'"},
            {"nobody:x", 0, "", "Don't understand orbserver port 'nobody:x'"},
            {"list", 0, "", "Don't understand orbserver port 'list'"},
            {":1", 0, "", "Don't understand orbserver port ':1'"},
            {"", 0, "", "port name unspecified"},
            {nullptr, 0, "", "port name unspecified"},
        };
        for (const auto& row : rows) {
            const kit::Logged logged;
            char description[256] = "before";
            EXPECT_EQ(vk_portnumber(row.name, description), row.port) << row.name;
            EXPECT_STREQ(description, row.description) << row.name;
            EXPECT_THAT(logged.text(), HasSubstr(row.message));
            EXPECT_EQ(vk_portnumber(row.name, nullptr), row.port);
        }
        Tbl* found = vk_portbynumber(6510);
        ASSERT_EQ(maxtbl(found), 2);
        EXPECT_STREQ(static_cast<char*>(gettbl(found, 0)), "same");
        freetbl(found, std::free);
        Tbl* all = vk_portnames();
        EXPECT_EQ(maxtbl(all), 7);
        freetbl(all, nullptr);
    });
}

TEST_F(PortNames, MayBeMissing) {
    check(
        [] {
            Tbl* none = vk_portnames();
            EXPECT_EQ(maxtbl(none), 0);
            freetbl(none, nullptr);
            EXPECT_EQ(vk_portnumber("6510", nullptr), 6510);
        },
        nullptr);
}

TEST_F(PortNames, ServersAreHostsAndPorts) {
    const std::string file = folder_.file("data.bin"), long_host(256, 'h');
    kit::write_file(file, "x");
    check([&] {
        const struct {
            std::string name;
            const char* emulator;
            int result;
            const char* host;
            int port;
        } rows[] = {
            {"archive:waves", "", 0, "archive", 6510},
            {"archive:7000", "", 0, "archive", 7000},
            {"archive:", "", 0, "archive", 8080},
            {"archive", "", 0, "archive", 8080},
            {":6510", "", 0, "localhost", 6510},
            {"", "", 0, "localhost", 8080},
            {"::1", "", 0, "localhost", 0},
            {"[::1]:6510", "", 0, "::1", 6510},
            {"[abc]:5", "", 0, "[abc]", 5},
            {"[2001:db8::7]", "", 0, "2001:db8::7", 8080},
            {long_host + ":6510", "", -1, "before", 6510},
            {long_host, "", -1, "before", 8080},
            {long_host.substr(1) + ":1", "", 0, long_host.c_str() + 1, 1},
            {file, "emulate", 1, "emulator -q", -2},
            {file, "nothing", 0, file.c_str(), 8080},
            {file, nullptr, 0, file.c_str(), 8080},
        };
        for (const auto& row : rows) {
            char host[256] = "before", description[256];
            int port = 77;
            errno = 5;
            EXPECT_EQ(vk_parse_servername(row.name.c_str(), "hex", row.emulator, host, &port,
                                          description),
                      row.result)
                << row.name;
            EXPECT_STREQ(host, row.host);
            EXPECT_EQ(port, row.port) << row.name;
        }
    });
}

TEST_F(PortNames, OlderFormTakesTheNameForThePort) {
    const std::string text = "default_port 9000\nnames &Arr{\n}\nwaves 6510 the waves\n";
    Pf* pf = nullptr;
    ASSERT_EQ(pfcompile(text.c_str(), &pf), 0);
    char host[256], port[256], description[256];
    vk_parsename("archive:waves", pf, host, port, description);
    EXPECT_EQ(std::string(host) + "|" + port + "|" + description, "archive|waves|the waves");
    vk_parsename(":", pf, host, port, description);
    EXPECT_EQ(std::string(host) + "|" + port + "|" + description, "localhost|9000|");
    vk_parsename("there", nullptr, host, port, description);
    EXPECT_EQ(std::string(host) + "|" + port + "|" + description, "there|8000|");
    pffree(pf);
}

TEST(Addresses, AreTextAndBytes) {
    const struct {
        const char* text;
        int family;
        const char* back;  // null: no address
    } rows[] = {{"10.0.0.1", AF_INET, "10.0.0.1"},
                {"::1", AF_INET6, "::1"},
                {"2001:DB8::7", AF_INET6, "2001:db8::7"},
                {"300.1.1.1", AF_INET, nullptr},
                {"1.2.3", -1, nullptr},
                {"1.2.3.4.5", -1, nullptr},
                {"a.b.c.d", -1, nullptr},
                {"host", -1, nullptr},
                {"", -1, nullptr},
                {"x:y", AF_INET6, nullptr}};
    for (const auto& row : rows) {
        sockaddr_storage storage{};
        auto* address = reinterpret_cast<sockaddr*>(&storage);
        char text[64];
        EXPECT_EQ(vk_inet_family(row.text), row.family) << row.text;
        ASSERT_EQ(vk_inet_pton(row.text, address), row.back != nullptr ? 1 : -1) << row.text;
        if (row.back == nullptr) continue;
        EXPECT_STREQ(vk_inet_ntop(address, text, sizeof text), row.back);
        EXPECT_EQ(vk_inet_ntop(address, text, 3), nullptr);
    }
    sockaddr other{};
    char text[64];
    EXPECT_EQ(vk_inet_ntop(&other, text, sizeof text), nullptr);
    EXPECT_STREQ(text, "Unknown AF");
}

}  // namespace
