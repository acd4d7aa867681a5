// Compiled access lists.
//
// The entries of a list stand in groups of one mask. In each group the address under the mask is
// searched, and the entry that comes first in the list wins, as if one looked at all of them in
// turn.
#include <algorithm>
#include <compare>
#include <new>

#include "base/diagnostics.hpp"
#include "morva/legit_ip.h"
#include "morva/sockets.h"
#include "net/address.hpp"
#include "net/entries.hpp"

namespace morva::net {
namespace {

// An address or a mask; only equality and some order matter.
struct Bits {
    uint64_t words[2] = {};
    explicit Bits(const AddressBytes& bytes) { std::memcpy(words, bytes.data(), sizeof words); }
    explicit Bits(const Bytes& bytes) { std::memcpy(words, bytes.data, bytes.size); }
    Bits& operator&=(const Bits& other) {
        for (const int i : {0, 1}) words[i] &= other.words[i];
        return *this;
    }
    auto operator<=>(const Bits&) const = default;
};

struct Slot {
    Bits address;
    int index;
    auto operator<=>(const Slot&) const = default;
};

struct Group {
    int family;
    Bits mask;
    Vector<Slot> slots;  // sorted
};

class CompiledList {
  public:
    explicit CompiledList(Tbl* list) : comments_(static_cast<std::size_t>(maxtbl(list))) {
        each_line(list, [&](int index, const char* line) {
            add(index, entry_of(line));
            return false;
        });
        for (Group& group : groups_) std::sort(group.slots.begin(), group.slots.end());
    }

    // The index of the first entry that matches, or -1.
    int find(int family, const Bits& address) const {
        int found = -1;
        for (const Group& group : groups_) {
            if (group.family != family) continue;
            Slot wanted{address, -1};
            wanted.address &= group.mask;
            const auto at = std::lower_bound(group.slots.begin(), group.slots.end(), wanted);
            if (at == group.slots.end() || at->address != wanted.address) continue;
            if (found < 0 || at->index < found) found = at->index;
        }
        return found;
    }
    const String& comment(int index) const { return comments_[static_cast<std::size_t>(index)]; }

  private:
    void add(int index, const Entry& entry) {
        const String address(entry.address), mask(entry.mask);
        if (address.empty()) return;
        if (mask.empty()) return elog_complain(0, "no mask string for ip : '%s'", address.c_str());
        const int family = vk_inet_family(address.c_str());
        Network network;
        if (family < 0 || !read_network(family, address.c_str(), mask.c_str(), network)) return;
        comments_[static_cast<std::size_t>(index)] = trimmed(entry.comment);
        Group& group = group_of(family, Bits(network.mask));
        Slot slot{Bits(network.address), index};
        slot.address &= group.mask;
        group.slots.push_back(slot);
    }
    Group& group_of(int family, const Bits& mask) {
        for (Group& group : groups_)
            if (group.family == family && group.mask == mask) return group;
        return groups_.emplace_back(Group{family, mask, {}});
    }

    Vector<Group> groups_;
    Vector<String> comments_;
};

}  // namespace
}  // namespace morva::net

using namespace morva::net;

struct Access_list {
    explicit Access_list(Pf* pf) : accept(list_of(pf, kAccept)), reject(list_of(pf, kReject)) {}
    CompiledList accept, reject;
};

Access_list* newaccess(Pf* pf) {
    if (list_of(pf, kAccept) == nullptr) elog_complain(0, "failed to get valid_ip_addresses list");
    return new (morva::must_calloc(1, sizeof(Access_list), "access list", MORVA_HERE))
        Access_list(pf);
}

int legit_access(const Access_list* list, const sockaddr* address, char** comment) {
    Legit_accept = Legit_reject = -1;
    const Bytes bytes = bytes_of(address);
    if (bytes.data == nullptr) return 0;
    const Bits bits(bytes);
    const int accept = list->accept.find(address->sa_family, bits);
    if (accept < 0) return 0;
    const int reject = list->reject.find(address->sa_family, bits);
    Legit_accept = accept;
    Legit_reject = reject;
    store_trimmed(reject < 0 ? list->accept.comment(accept) : list->reject.comment(reject),
                  comment);
    return reject < 0 ? 1 : 0;
}

void freeaccess(Access_list* list) {
    if (list == nullptr) return;
    list->~Access_list();
    std::free(list);
}
