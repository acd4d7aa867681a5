// Addresses against lists of entries.
#include "morva/legit_ip.h"

#include <arpa/inet.h>

#include <memory>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/pfread.h"
#include "morva/sockets.h"
#include "net/address.hpp"
#include "net/entries.hpp"

int Legit_accept = -1;
int Legit_reject = -1;

namespace morva::net {
namespace {

// ---- IPv4 values

// A number of a plain dotted quad: no sign, no leading zero, below 256.
inline bool take_byte(const char*& at, uint32_t& value) {
    const auto digit = [&](int i) { return static_cast<uint32_t>(at[i] - '0'); };
    uint32_t number = digit(0);
    if (number > 9) return false;
    int length = 1;
    if (digit(1) <= 9) {
        if (number == 0) return false;
        number = 10 * number + digit(1);
        length = 2;
        if (digit(2) <= 9) {
            number = 10 * number + digit(2);
            length = 3;
        }
    }
    at += length;
    value = value << 8 | number;
    return number < 256;
}

// Four bytes at the start of a word that ends behind them.
bool take_quad(const char*& at, uint32_t& value) {
    for (int byte = 0; byte < 4; ++byte) {
        if (byte > 0 && *at != '.') return false;
        if (byte > 0) ++at;
        if (!take_byte(at, value)) return false;
    }
    value = htonl(value);
    return *at == '\0' || is_blank(*at);
}

// As inet_addr: the plain form is read here, the odd ones (octal, hexadecimal, fewer numbers)
// there.
uint32_t value_of(std::string_view text) {
    return ::inet_addr(String(text).c_str());
}

bool matches_value(const char* line, Entry& entry, uint32_t ip) {
    const char* at = line;
    uint32_t address = 0, mask = 0;
    while (is_blank(*at)) ++at;
    bool plain = take_quad(at, address);
    while (is_blank(*at)) ++at;
    plain = plain && take_quad(at, mask);
    if (plain && ((ip ^ address) & mask) != 0) return false;
    entry = entry_of(line);
    if (entry.mask.empty()) return false;
    if (!plain) {
        mask = value_of(entry.mask);
        address = value_of(entry.address);
    }
    return ((ip ^ address) & mask) == 0;
}

// ---- addresses of sockets

bool read_bytes(int family, const char* text, const char* what, AddressBytes& bytes) {
    if (::inet_pton(family, text, bytes.data()) == 1) return true;
    elog_complain(0, "invalid %s %s '%s'", family == AF_INET ? "ipv4" : "ipv6", what, text);
    return false;
}

bool holds(const Network& network, const Bytes& peer) {
    for (std::size_t i = 0; i < peer.size; ++i)
        if (((peer.data[i] ^ network.address[i]) & network.mask[i]) != 0) return false;
    return true;
}

bool matches_address(const Entry& entry, const sockaddr* address) {
    const String text(entry.address), mask(entry.mask);
    return ipmatches(address, text.empty() ? nullptr : text.c_str(),
                     mask.empty() ? nullptr : mask.c_str()) == 1;
}

}  // namespace

bool read_network(int family, const char* address, const char* mask, Network& network) {
    network.family = family;
    return read_bytes(family, address, "address", network.address) &&
           read_bytes(family, mask, "mask", network.mask);
}

}  // namespace morva::net

using namespace morva::net;

int ipmatches(const sockaddr* address, const char* entry_address, const char* entry_mask) {
    if (entry_address == nullptr || *entry_address == '\0') return 0;
    if (entry_mask == nullptr || *entry_mask == '\0') {
        elog_complain(0, "no mask string for ip : '%s'", entry_address);
        return 0;
    }
    const int family = vk_inet_family(entry_address);
    if (family != address->sa_family) return 0;
    Network network;
    if (!read_network(family, entry_address, entry_mask, network)) return 0;
    const Bytes peer = bytes_of(address);
    if (peer.data == nullptr) {
        elog_complain(0, "unrecognized family %d", family);
        return 0;
    }
    return holds(network, peer) ? 1 : 0;
}

int legit_ipv6(const char*, Pf* pf, const sockaddr* address, char** comment) {
    Entry entry;
    const auto matches = [&](int, const char* line) {
        entry = entry_of(line);
        return matches_address(entry, address);
    };
    Legit_accept = Legit_reject = -1;
    Tbl* accept = list_of(pf, kAccept);
    if (accept == nullptr) {
        elog_complain(0, "failed to get valid_ip_addresses list");
        return 0;
    }
    Legit_accept = each_line(accept, matches);
    if (Legit_accept < 0) return 0;
    // References in a list are expanded in place: the comment is copied before the next list is
    // read.
    store_comment(entry.comment, comment);
    Legit_reject = each_line(list_of(pf, kReject), matches);
    if (Legit_reject < 0) return 1;
    if (comment != nullptr) std::free(*comment);
    store_comment(entry.comment, comment);
    return 0;
}

int legit_ip_pf(Pf* pf, uint32_t ip, char** comment) {
    Entry entry;
    const auto matches = [&](int, const char* line) { return matches_value(line, entry, ip); };
    Legit_accept = Legit_reject = -1;
    Tbl* accept = list_of(pf, kAccept);
    if (accept == nullptr) {
        elog_log(0, "failed to get valid_ip_addresses list");
    } else {
        Legit_accept = each_line(accept, matches);
        if (Legit_accept >= 0) store_comment(entry.comment, comment);
    }
    Legit_reject = each_line(list_of(pf, kReject), matches);
    return Legit_accept >= 0 && Legit_reject < 0;
}

int legit_ip(const char* pfname, uint32_t ip, char** comment) {
    Pf* pf = nullptr;
    if (pfread(pfname, &pf) < 0) {
        elog_log(1, "Can't read parameter file '%s'", pfname);
        pffree(pf);
        return -1;
    }
    const std::unique_ptr<Pf, void (*)(Pf*)> owner(pf, pffree);
    return legit_ip_pf(pf, ip, comment);
}
