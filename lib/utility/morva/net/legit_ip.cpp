// Addresses against lists of entries.
#include "morva/legit_ip.h"

#include <arpa/inet.h>

#include <array>
#include <memory>
#include <optional>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/pfread.h"
#include "morva/pfresolve.h"
#include "morva/sockets.h"
#include "net/address.hpp"
#include "net/words.hpp"

int Legit_accept = -1;
int Legit_reject = -1;

namespace morva::net {
namespace {

constexpr char kAccept[] = "valid_ip_addresses";
constexpr char kReject[] = "reject_ip_addresses";

// The line of an entry in parts.
struct Entry {
    std::string_view address, mask, comment;
};

std::string_view take_word(std::string_view& line) {
    constexpr std::string_view kBlanks = " \t";
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

Entry entry_of(std::string_view line) {
    Entry entry;
    entry.address = take_word(line);
    entry.mask = take_word(line);
    entry.comment = trimmed(line);
    return entry;
}

// The list of a parameter file, or null.
Tbl* list_of(Pf* pf, const char* key) {
    Pf* node = nullptr;
    return pfresolve(pf, key, 0, &node) == PFTBL ? node->value.tbl : nullptr;
}

// The index of the first entry that `matches`, and the entry itself; -1 when there is none.
template <class Matches>
int first_match(Tbl* list, Entry& entry, Matches matches) {
    for (long i = 0; i < maxtbl(list); ++i) {
        Pf* node = static_cast<Pf*>(gettbl(list, i));
        if (node == nullptr || node->type != PFSTRING) continue;
        const char* line = pfexpand(node);
        if (line == nullptr || *line == '\0') continue;
        entry = entry_of(line);
        if (matches(entry)) return static_cast<int>(i);
    }
    return -1;
}

void store_comment(std::string_view text, char** comment) {
    if (comment == nullptr) return;
    *comment = text.empty() ? nullptr : must_strdup(String(text).c_str(), "comment", MORVA_HERE);
}

// ---- IPv4 values

// A number of a plain dotted quad: no sign, no leading zero, below 256.
bool take_byte(const char*& at, const char* end, uint32_t& value) {
    const char* first = at;
    uint32_t number = 0;
    while (at != end && *at >= '0' && *at <= '9' && at - first < 3)
        number = 10 * number + static_cast<uint32_t>(*at++ - '0');
    value = value << 8 | number;
    return at != first && number < 256 && (at - first == 1 || *first != '0');
}

// As inet_addr: the plain form is read here, the odd ones (octal, hexadecimal, fewer numbers)
// there.
uint32_t value_of(std::string_view text) {
    const char* at = text.data();
    const char* end = at + text.size();
    uint32_t value = 0;
    int bytes = 0;
    while (take_byte(at, end, value) && ++bytes < 4 && at != end && *at == '.') ++at;
    if (bytes == 4 && at == end) return htonl(value);
    return ::inet_addr(String(text).c_str());
}

bool matches_value(const Entry& entry, uint32_t ip) {
    if (entry.mask.empty()) return false;
    const uint32_t mask = value_of(entry.mask);
    return (ip & mask) == (value_of(entry.address) & mask);
}

// ---- addresses of sockets

std::optional<std::array<unsigned char, 16>> parsed(int family, const String& text,
                                                    const char* what) {
    std::array<unsigned char, 16> bytes{};
    if (::inet_pton(family, text.c_str(), bytes.data()) == 1) return bytes;
    elog_complain(0, "invalid %s %s '%s'", family == AF_INET ? "ipv4" : "ipv6", what, text.c_str());
    return std::nullopt;
}

bool equal_under(const Bytes& peer, const unsigned char* entry, const unsigned char* mask) {
    for (std::size_t i = 0; i < peer.size; ++i)
        if (((peer.data[i] ^ entry[i]) & mask[i]) != 0) return false;
    return true;
}

bool matches_address(const Entry& entry, const sockaddr* address) {
    const String text(entry.address), mask(entry.mask);
    return ipmatches(address, text.empty() ? nullptr : text.c_str(),
                     mask.empty() ? nullptr : mask.c_str()) == 1;
}

}  // namespace
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
    const auto entry = parsed(family, entry_address, "address");
    if (!entry) return 0;
    const auto mask = parsed(family, entry_mask, "mask");
    if (!mask) return 0;
    const Bytes peer = bytes_of(address);
    if (peer.data == nullptr) {
        elog_complain(0, "unrecognized family %d", family);
        return 0;
    }
    return equal_under(peer, entry->data(), mask->data()) ? 1 : 0;
}

int legit_ipv6(const char*, Pf* pf, const sockaddr* address, char** comment) {
    const auto matches = [&](const Entry& entry) { return matches_address(entry, address); };
    Legit_accept = Legit_reject = -1;
    Tbl* accept = list_of(pf, kAccept);
    if (accept == nullptr) {
        elog_complain(0, "failed to get valid_ip_addresses list");
        return 0;
    }
    Entry entry;
    Legit_accept = first_match(accept, entry, matches);
    if (Legit_accept < 0) return 0;
    // References in a list are expanded in place: the comment is copied before the next list is
    // read.
    store_comment(entry.comment, comment);
    Legit_reject = first_match(list_of(pf, kReject), entry, matches);
    if (Legit_reject < 0) return 1;
    if (comment != nullptr) std::free(*comment);
    store_comment(entry.comment, comment);
    return 0;
}

int legit_ip_pf(Pf* pf, uint32_t ip, char** comment) {
    const auto matches = [&](const Entry& entry) { return matches_value(entry, ip); };
    Legit_accept = Legit_reject = -1;
    Entry entry;
    Tbl* accept = list_of(pf, kAccept);
    if (accept == nullptr) {
        elog_log(0, "failed to get valid_ip_addresses list");
    } else {
        Legit_accept = first_match(accept, entry, matches);
        if (Legit_accept >= 0) store_comment(entry.comment, comment);
    }
    Legit_reject = first_match(list_of(pf, kReject), entry, matches);
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
