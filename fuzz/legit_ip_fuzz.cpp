// Access lists and server names of any bytes: the answers are the documented ones, and an address
// is let in only by an entry that the C library reads in the same way.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "morva/elog.h"
#include "morva/legit_ip.h"
#include "morva/pf.h"
#include "morva/sockets.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void check_entry(const std::string& line) {
    Pf* pf = pfnew(PFARR);
    pfset(pf, "valid_ip_addresses[0]", line.c_str());
    const uint32_t ip = ::inet_addr("10.1.2.3");
    char* comment = nullptr;
    const int result = legit_ip_pf(pf, ip, &comment);
    require(result == (Legit_accept == 0));
    // The entry is known by now.
    for (int i = 0; i < 3; ++i) {
        char* same = nullptr;
        require(legit_ip_pf(pf, ip, &same) == result && Legit_accept == result - 1);
        require((same == nullptr) == (comment == nullptr));
        require(same == nullptr || std::string(same) == comment);
        std::free(same);
    }
    const std::size_t first = line.find_first_not_of(" \t");
    if (result == 1 && line.find('&') == std::string::npos) {
        const std::size_t end = line.find_first_of(" \t", first);
        const std::size_t mask_at = line.find_first_not_of(" \t", end);
        const std::string mask = line.substr(mask_at, line.find_first_of(" \t", mask_at) - mask_at);
        const uint32_t bits = ::inet_addr(mask.c_str());
        require((::inet_addr(line.substr(first, end - first).c_str()) & bits) == (ip & bits));
    }
    std::free(comment);
    pffree(pf);
}

// A compiled list says the same as the entries one by one.
void check_compiled(const std::string& lines) {
    Pf* pf = pfnew(PFARR);
    int count[2] = {0, 0};
    for (std::size_t from = 0; from < lines.size() && count[0] + count[1] < 40;) {
        const std::size_t end = std::min(lines.find('\n', from), lines.size());
        const int which = (end - from) % 3 == 2 ? 1 : 0;
        const std::string key = which == 0 ? "valid_ip_addresses[" : "reject_ip_addresses[";
        pfset(pf, (key + std::to_string(count[which]++) + "]").c_str(),
              lines.substr(from, end - from).c_str());
        from = end + 1;
    }
    // Each look at a list may register forty reasons, and fifty end the process.
    const int mark = elog_mark();
    Access_list* list = newaccess(pf);
    for (const char* text : {"10.1.2.3", "127.0.0.1", "::ffff:10.1.2.3", "2001:db8::1"}) {
        sockaddr_storage storage{};
        auto* address = reinterpret_cast<sockaddr*>(&storage);
        vk_inet_pton(text, address);
        char *one = nullptr, *other = nullptr;
        elog_flush(0, mark);
        const int answer = legit_ipv6("", pf, address, &one);
        const int accept = Legit_accept, reject = Legit_reject;
        elog_flush(0, mark);
        require(legit_access(list, address, &other) == answer);
        require(Legit_accept == accept && Legit_reject == reject);
        require((one == nullptr) == (other == nullptr));
        require(one == nullptr || std::string(one) == other);
        std::free(one);
        std::free(other);
    }
    freeaccess(list);
    pffree(pf);
}

void check_server(const std::string& name) {
    char host[256] = "", description[256] = "";
    int port = 0;
    const int result = vk_parse_servername(name.c_str(), "6510", "", host, &port, description);
    require(result == 0 || result == -1);
    require(port <= 65535);
    sockaddr_storage storage{};
    char text[64];
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    if (vk_inet_pton(name.c_str(), address) == 1) {
        require(vk_inet_ntop(address, text, sizeof text) == text);
        require(ipmatches(address, text, text) == 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int mark = elog_mark();
    check_entry(text.c_str());
    check_server(text.c_str());
    elog_flush(0, mark);
    check_compiled(text.c_str());
    elog_flush(0, mark);
    return 0;
}
