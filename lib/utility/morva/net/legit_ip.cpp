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
#include "net/value_list.hpp"

int Legit_accept = -1;
int Legit_reject = -1;

namespace morva::net {
namespace {

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
    Legit_accept = Legit_reject = -1;
    const Tbl* accept = list_of(pf, kAccept);
    if (accept == nullptr) {
        elog_log(0, "failed to get valid_ip_addresses list");
    } else {
        const Found found = find_value(accept, ip);
        Legit_accept = found.index;
        if (found.index >= 0) store_trimmed(found.comment(), comment);
    }
    const Tbl* reject = list_of(pf, kReject);
    if (reject != nullptr) Legit_reject = find_value(reject, ip).index;
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
