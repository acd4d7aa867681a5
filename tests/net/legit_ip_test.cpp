#include "morva/legit_ip.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <mutex>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

#include "morva/pflex.h"
#include "morva/sockets.h"
#include "pf/pfpool.hpp"
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

// ---- Lists that change between checks

// What the lines say, one after the other.
Checked by_lines(Pf* pf, uint32_t ip) {
    Checked all{0, -1, -1, "-"};
    for (const bool first : {true, false}) {
        Pf* node = nullptr;
        pfresolve(pf, first ? "valid_ip_addresses" : "reject_ip_addresses", 0, &node);
        for (int i = 0; node != nullptr && i < maxtbl(node->value.tbl); ++i) {
            Pf* line = static_cast<Pf*>(gettbl(node->value.tbl, i));
            if (line == nullptr || line->type != PFSTRING || line->value.string == nullptr)
                continue;
            const bool refers = std::strchr(line->value.string, '&') != nullptr;
            std::istringstream words(refers ? pfexpand(line) : line->value.string);
            std::string address, mask, comment;
            if (!(words >> address >> mask)) continue;
            std::getline(words >> std::ws, comment, '\0');
            if (((ip ^ ::inet_addr(address.c_str())) & ::inet_addr(mask.c_str())) != 0) continue;
            (first ? all.accept : all.reject) = i;
            comment.erase(comment.find_last_not_of(" \t") + 1);
            if (first) all.comment = comment.empty() ? "null" : comment;
            break;
        }
    }
    all.result = all.accept >= 0 && all.reject < 0;
    return all;
}

// Programs may do all this to a tree, and the library hears nothing of it.
class Changes {
  public:
    explicit Changes(unsigned seed) : random_(seed) {
        for (Pf*& tree : trees_) tree = read();
    }
    ~Changes() {
        for (Pf* tree : trees_) pffree(tree);
    }

    // Changes something and gives the tree where.
    Pf* make() {
        if (cut_ != nullptr) {
            *std::exchange(cut_, nullptr) = rest_;
            return where_;
        }
        Pf*& tree = trees_[below(3)];
        Pf* node = nullptr;
        pfresolve(tree, below(3) > 0 ? "valid_ip_addresses" : "reject_ip_addresses", 0, &node);
        Tbl* list = node->value.tbl;
        const long i = below(static_cast<int>(maxtbl(list)) + 1);
        switch (below(12)) {
            case 0:
                pffree(tree);
                tree = read();
                break;
            case 1:
                instbl(list, i, fresh());
                break;
            case 2:
                pffree(static_cast<Pf*>(deltbl(list, i)));
                break;
            case 3: {
                Pf* old = static_cast<Pf*>(gettbl(list, i));
                settbl(list, i, below(5) > 0 ? fresh() : nullptr);
                pffree(old);
                break;
            }
            case 4:
                swap(static_cast<void**>(addrtbl(list, i)), static_cast<void**>(addrtbl(list, 0)));
                break;
            case 5:
                freetbl(pfget_tbl(node, nullptr), nullptr);  // expands
                break;
            case 6:
                trunctbl(list, i / 2 * 2, [](void* old) { pffree(static_cast<Pf*>(old)); });
                while (maxtbl(list) < 8) pushtbl(list, fresh());
                break;
            default:
                edit(static_cast<Pf*>(gettbl(list, i)));
        }
        return where_ = tree;
    }
    uint32_t address() {
        return ::inet_addr(("10." + std::to_string(10 + below(9)) + ".1.1").c_str());
    }
    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

  private:
    static void swap(void** a, void** b) {
        if (a != nullptr && b != nullptr) std::swap(*a, *b);
    }
    std::string line() {
        static const char* const kKinds[] = {
            " 255.255.0.0 a comment",
            " 255.255.0.0",
            " 255.255.128.0\t of some length that is not so short ",
            "",
            " 0xffff0000 odd",
            " 255.255.0.0 &{net} it is"};
        return "10." + std::to_string(10 + below(12)) + ".0.0" +
               kKinds[below(29) < 24 ? 0 : below(6)];
    }
    Pf* fresh() {
        Pf* node = pfnew(below(9) > 0 ? PFSTRING : PFARR);
        if (node->type == PFSTRING && below(9) > 0) node->value.string = ::strdup(line().c_str());
        return node;
    }
    Pf* read() {
        std::string text = "net one\n";
        for (const char* key : {"valid_ip_addresses", "reject_ip_addresses"}) {
            text += std::string(key) + " &Tbl{\n";
            for (int i = below(9); i >= 0; --i) text += line() + "\n";
            text += "}\n";
        }
        Pf* pf = nullptr;
        pfcompile(text.c_str(), &pf);
        return pf;
    }
    // In place: another byte, or a shorter text, which is as long as before the next time.
    void edit(Pf* node) {
        if (node == nullptr || node->type != PFSTRING || node->value.string == nullptr) return;
        const int size = static_cast<int>(std::strlen(node->value.string));
        if (size == 0) return;
        char& byte = node->value.string[below(size)];
        if (below(4) == 0) cut_ = &byte, rest_ = byte;
        byte = cut_ != nullptr ? '\0' : "0123456789. &"[below(3) > 0 ? below(10) : below(13)];
    }

    std::mt19937 random_;
    Pf* trees_[3];
    Pf* where_ = nullptr;
    char* cut_ = nullptr;
    char rest_ = 0;
};

TEST_F(Legit, AnswersOfListsAsTheyStand) {
    Changes changes(7);
    std::mutex turn;
    const auto check = [&] {
        for (int i = 0; i < 500; ++i) {
            const std::lock_guard lock(turn);
            Pf* pf = changes.make();
            for (int same = changes.below(4); same >= 0; --same) {
                const uint32_t ip = changes.address();
                const Checked expected = by_lines(pf, ip);
                const Checked answer =
                    checked([&](char** comment) { return legit_ip_pf(pf, ip, comment); });
                ASSERT_EQ(answer, expected);
            }
        }
    };
    std::thread other(check), third(check);
    check();
    other.join();
    third.join();
}

// Where a longer text was once, there may be no memory any more.
TEST_F(Legit, ReadsNothingBehindTheBlockOfANode) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    constexpr std::size_t kRoom = 8;  // of the text before the second page
    auto* pages = static_cast<char*>(
        ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    auto* block = new (pages) morva::pf::NodeBlock{1, 2 * page};
    const std::size_t at = page - kRoom - sizeof(Pf);
    const auto place = static_cast<std::uint32_t>(at / morva::pf::NodeBlock::kUnit);
    auto* node = new (pages + at) Pf{PFSTRING, place, {nullptr}, nullptr, nullptr, nullptr};
    node->value.string = std::strcpy(pages + page - kRoom, "10.0.0.0 255.0.0.0 all of us");
    pfput(pf_, const_cast<char*>("valid_ip_addresses"), strtbl(nullptr, nullptr), PFTBL);
    Pf* list = nullptr;
    pfresolve(pf_, "valid_ip_addresses", 0, &list);
    settbl(list->value.tbl, 0, node);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(value("10.1.2.3"), (Checked{1, 0, -1, "all of us"}));
    ::munmap(pages + page, page);
    block->size = page;
    std::strcpy(node->value.string, "1.2 0");
    EXPECT_EQ(value("10.1.2.3"), (Checked{1, 0, -1, "null"}));
    clrtbl(list->value.tbl, nullptr);
    ::munmap(pages, page);
}

}  // namespace
