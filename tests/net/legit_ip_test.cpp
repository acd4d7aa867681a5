#include "morva/legit_ip.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "morva/pflex.h"
#include "morva/sockets.h"
#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

constexpr char kLists[] = R"(
valid_ip_addresses &Tbl{
    bogus       255.0.0.0          a name
    10.0.0.0
    192.168.1.7 255.255.255.255
    192.168.0.0 255.255.0.0        house
    10.0.0.0	255.0.0.0    first  match	
    10.1.0.0    255.255.0.0        second
    ::1         ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff  loop
    2001:db8::  ffff:ffff::        partners
    ::ffff:172.16.0.0  ffff:ffff:ffff:ffff:ffff:ffff:fff0:0  mapped
    1.2.3.999   255.0.0.0          broken
    1.0.0.0     255.0.0.x          broken too
    255.255.255.255 255.255.255.255
}
reject_ip_addresses &Tbl{
    172.0.0.0 255.0.0.0            elsewhere
    10.0.13.0 255.255.255.0        guests
    10.0.14.0 255.255.255.0
    2001:db8:1:: ffff:ffff:ffff::  rivals
}
)";

struct Checked {
    int result, accept, reject;
    std::string comment;  // "-": none was stored
    bool operator==(const Checked&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Checked& c) {
    return out << c.result << " " << c.accept << " " << c.reject << " " << c.comment;
}

class Legit : public testing::Test {
  protected:
    Legit() { pfcompile(kLists, &pf_); }
    ~Legit() override { pffree(pf_); }

    template <class Check>
    Checked checked(Check check) {
        static char untouched[] = "-";
        char* comment = untouched;
        Legit_accept = Legit_reject = 77;
        const int result = check(&comment);
        Checked all{result, Legit_accept, Legit_reject,
                    comment == untouched ? "-"
                    : comment == nullptr ? "null"
                                         : comment};
        if (comment != untouched) std::free(comment);
        return all;
    }
    Checked value(const char* ip) {
        return checked([&](char** comment) { return legit_ip_pf(pf_, ::inet_addr(ip), comment); });
    }
    Checked socket(const char* ip) {
        sockaddr_storage storage{};
        auto* address = reinterpret_cast<sockaddr*>(&storage);
        EXPECT_EQ(vk_inet_pton(ip, address), 1);
        const Checked answer =
            checked([&](char** comment) { return legit_ipv6("x", pf_, address, comment); });
        Access_list* list = newaccess(pf_);
        EXPECT_EQ(checked([&](char** comment) { return legit_access(list, address, comment); }),
                  answer)
            << ip;
        freeaccess(list);
        return answer;
    }

    Pf* pf_ = nullptr;
    kit::Logged logged_;
};

TEST_F(Legit, ChecksAddressesOfSockets) {
    std::string said = kit::captured(2, [&] {
        EXPECT_EQ(socket("10.1.2.3"), (Checked{1, 4, -1, "first  match"}));
        EXPECT_EQ(socket("10.0.13.5"), (Checked{0, 4, 1, "guests"}));
        EXPECT_EQ(socket("10.0.14.5"), (Checked{0, 4, 2, "null"}));
        EXPECT_EQ(socket("192.168.1.7"), (Checked{1, 2, -1, "null"}));
        EXPECT_EQ(socket("172.16.1.1"), (Checked{0, -1, -1, "-"}));
        EXPECT_EQ(socket("::1"), (Checked{1, 6, -1, "loop"}));
        EXPECT_EQ(socket("2001:db8:2::1"), (Checked{1, 7, -1, "partners"}));
        EXPECT_EQ(socket("2001:db8:1::1"), (Checked{0, 7, 3, "rivals"}));
        EXPECT_EQ(socket("::ffff:172.17.0.1"), (Checked{1, 8, -1, "mapped"}));
        EXPECT_EQ(socket("::2"), (Checked{0, -1, -1, "-"}));
    });
    EXPECT_THAT(said, HasSubstr("no mask string for ip : '10.0.0.0'"));
    EXPECT_EQ(said.find("bogus"), std::string::npos);
    said = kit::captured(2, [&] { EXPECT_EQ(socket("1.1.1.1").result, 0); });
    EXPECT_THAT(said, HasSubstr("invalid ipv4 address '1.2.3.999'"));
    EXPECT_THAT(said, HasSubstr("invalid ipv4 mask '255.0.0.x'"));
}

TEST_F(Legit, ChecksValuesInItsOwnWay) {
    const std::string said = kit::captured(2, [&] {
        EXPECT_EQ(value("10.1.2.3"), (Checked{1, 4, -1, "first  match"}));
        EXPECT_EQ(value("10.0.13.5"), (Checked{0, 4, 1, "first  match"}));  // of the first list
        EXPECT_EQ(value("172.1.1.1"), (Checked{0, -1, 0, "-"}));            // rejected all the same
        EXPECT_EQ(value("255.1.1.1"), (Checked{1, 0, -1, "a name"}));       // a name is all ones
        EXPECT_EQ(value("192.168.1.8"), (Checked{1, 3, -1, "house"}));
    });
    EXPECT_EQ(said, "");
}

TEST_F(Legit, WithoutListsNobodyEnters) {
    pffree(pf_);
    pf_ = nullptr;
    pfcompile("reject_ip_addresses &Tbl{\n10.0.0.0 255.0.0.0\n}\nvalid_ip_addresses text\n", &pf_);
    const std::string said = kit::captured(2, [&] {
        EXPECT_EQ(value("10.1.1.1"), (Checked{0, -1, 0, "-"}));
        EXPECT_THAT(logged_.text(), HasSubstr("failed to get valid_ip_addresses list"));
        EXPECT_EQ(socket("10.1.1.1"), (Checked{0, -1, -1, "-"}));
    });
    EXPECT_THAT(said, HasSubstr("failed to get valid_ip_addresses list"));
    kit::TempDir folder;
    const kit::Env path("PFPATH", folder.path().c_str());
    EXPECT_EQ(legit_ip("nosuch", 0, nullptr), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't read parameter file 'nosuch'"));
    kit::write_file(folder.file("house.pf"), "valid_ip_addresses &Tbl{\n0.0.0.0 0.0.0.0 all\n}\n");
    EXPECT_EQ(legit_ip("house", ::inet_addr("8.8.8.8"), nullptr), 1);
}

TEST_F(Legit, ChecksThePeerOfASocket) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const std::string said = kit::captured(2, [&] {
        EXPECT_EQ(legit_fd("x", pf_, -1, nullptr), 0);
        EXPECT_EQ(legit_fd("x", pf_, ends[0], nullptr), 0);
    });
    EXPECT_THAT(said, HasSubstr("Rejecting open from unknown source (getpeername failed)"));
    ::close(ends[0]), ::close(ends[1]);
}

// Quick and slow reading of numbers give what the C library gives.
TEST_F(Legit, ReadsValuesAsTheCLibrary) {
    for (const char* text : {"1.2.3.4", "01.2.3.4", "0x7f.1", "1.2.3", "1.2.3.256", "1.2.3.4.5",
                             "1..3.4", "4294967295", "255.255.255.254", "1.2.3.", "0.0.0.0", "x",
                             "00.2.3.4", "1.2.3.1234", "1.2.3.010", "1.2.3.0x1f", "25.2.3.09"}) {
        Pf* pf = nullptr;
        const std::string list =
            std::string("valid_ip_addresses &Tbl{\n") + text + " 255.255.255.255\n}\n";
        pfcompile(list.c_str(), &pf);
        EXPECT_EQ(legit_ip_pf(pf, ::inet_addr(text), nullptr), 1) << text;
        pffree(pf);
    }
}

}  // namespace
