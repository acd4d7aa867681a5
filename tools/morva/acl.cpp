// morva acl: which entry of an access list decides, and what is wrong with the entries.
#include <arpa/inet.h>

#include <cstring>

#include "command.hpp"
#include "output.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

constexpr const char* kAccept = "valid_ip_addresses";
constexpr const char* kReject = "reject_ip_addresses";

// A line of a list: the network that it means, or what is wrong with it.
struct Entry {
    std::string line, address, mask, wrong;
    int family = -1, size = 0;
    unsigned char address_bytes[16] = {}, mask_bytes[16] = {};

    bool is_network() const { return size > 0; }
    bool same_under(const Entry& other, const unsigned char* one, const unsigned char* two) const {
        for (int i = 0; i < size; ++i)
            if (((address_bytes[i] ^ other.address_bytes[i]) & one[i] & two[i]) != 0) return false;
        return true;
    }
    // Whether there are addresses that both match.
    bool overlaps(const Entry& other) const {
        return family == other.family && is_network() && other.is_network() &&
               same_under(other, mask_bytes, other.mask_bytes);
    }
    // Whether this one matches all that the other matches.
    bool covers(const Entry& other) const {
        if (!overlaps(other)) return false;
        for (int i = 0; i < size; ++i)
            if ((mask_bytes[i] & ~other.mask_bytes[i]) != 0) return false;
        return true;
    }
};

std::string quotation(const std::string& text) {
    return "'" + one_line(text) + "'";
}

std::string word(const std::string& line, std::size_t& at) {
    const std::size_t start = std::min(line.find_first_not_of(" \t", at), line.size());
    at = std::min(line.find_first_of(" \t", start), line.size());
    return line.substr(start, at - start);
}

void read_network(Entry& entry) {
    entry.family = vk_inet_family(entry.address.c_str());
    const char* name = entry.family == AF_INET ? "IPv4" : "IPv6";
    if (entry.family < 0)
        entry.wrong = quotation(entry.address) +
                      " is no address: no client matches it, but legit_ip "
                      "takes it for 255.255.255.255";
    else if (entry.mask.empty())
        entry.wrong = "there is no mask";
    else if (::inet_pton(entry.family, entry.address.c_str(), entry.address_bytes) != 1)
        entry.wrong = quotation(entry.address) + " is no " + name + " address";
    else if (::inet_pton(entry.family, entry.mask.c_str(), entry.mask_bytes) != 1)
        entry.wrong = quotation(entry.mask) + " is no " + name + " mask, such as " +
                      (entry.family == AF_INET ? "255.255.255.0" : "ffff:ffff::");
    else
        entry.size = entry.family == AF_INET ? 4 : 16;
}

Entry entry_of(const std::string& line) {
    Entry entry;
    std::size_t at = 0;
    entry.line = line;
    entry.address = word(line, at);
    entry.mask = word(line, at);
    if (!entry.address.empty()) read_network(entry);
    return entry;
}

std::vector<Entry> entries_of(Pf* tree, const char* key) {
    std::vector<Entry> entries;
    Pf* list = nullptr;
    if (pfresolve(tree, key, 0, &list) != PFTBL) return entries;
    for (long i = 0; i < maxtbl(list->value.tbl); ++i) {
        Pf* node = static_cast<Pf*>(gettbl(list->value.tbl, i));
        entries.push_back(entry_of(is_block(node) ? "" : text_of(node, Values::expanded)));
    }
    return entries;
}

std::string path_of(const char* key, std::size_t index) {
    return std::string(key) + "[" + std::to_string(index) + "]";
}

// ---- test

struct Verdict {
    const char* how;
    const char* key;  // in JSON
    int result, accept, reject;
};

class Tester {
  public:
    Tester(const std::string& name, Pf* tree) : name_(name), tree_(tree), list_(newaccess(tree)) {}
    ~Tester() { freeaccess(list_); }
    Tester(const Tester&) = delete;
    Tester& operator=(const Tester&) = delete;

    // What is said of an address however it comes; the client's own socket first.
    std::vector<Verdict> verdicts(const std::string& address) const {
        sockaddr_storage storage{};
        auto* socket = reinterpret_cast<sockaddr*>(&storage);
        std::vector<Verdict> all;
        if (vk_inet_pton(address.c_str(), socket) != 1) return all;
        all.push_back(by_socket("as a client", "socket", socket));
        if (socket->sa_family != AF_INET) return all;
        const uint32_t ip = reinterpret_cast<sockaddr_in*>(socket)->sin_addr.s_addr;
        const int result = legit_ip_pf(tree_, ip, nullptr);
        all.push_back({"as a value", "value", result, Legit_accept, Legit_reject});
        vk_inet_pton(("::ffff:" + address).c_str(), socket);
        all.push_back(by_socket("to an IPv6 socket", "mapped", socket));
        return all;
    }

    void print_text(const Verdict& verdict) const {
        std::string how = verdict.how;
        how.resize(19, ' ');
        print(coloured(Colour::cyan, how) +
              (verdict.result == 1 ? coloured(Colour::green, "let in")
                                   : coloured(Colour::red, "turned away")) +
              reason(verdict) + "\n");
    }
    std::string json(const Verdict& verdict) const {
        return JsonObject()
            .text("as", verdict.key)
            .boolean("accepted", verdict.result == 1)
            .raw("accept", place_json(kAccept, verdict.accept))
            .raw("reject", place_json(kReject, verdict.reject))
            .str();
    }

  private:
    Verdict by_socket(const char* how, const char* key, const sockaddr* address) const {
        const int result = legit_access(list_, address, nullptr);
        return {how, key, result, Legit_accept, Legit_reject};
    }
    std::string place(const char* key, int index) const {
        const std::string path = path_of(key, static_cast<std::size_t>(index));
        const Records places(pfwhere(name_.c_str(), path.c_str()), freepfplace);
        if (!places || places.size() == 0) return path;
        const Pfplace& first = *places.at<Pfplace>(0);
        return one_line(first.file) + ":" + std::to_string(first.line);
    }
    std::string line(const char* key, int index) const {
        return entries_of(tree_, key)[static_cast<std::size_t>(index)].line;
    }
    std::string reason(const Verdict& verdict) const {
        if (verdict.accept < 0 && verdict.reject < 0)
            return std::string(": no entry of ") + kAccept + " matches";
        const bool rejected = verdict.reject >= 0;
        const char* key = rejected ? kReject : kAccept;
        const int index = rejected ? verdict.reject : verdict.accept;
        return " by " + place(key, index) + ": " + one_line(line(key, index));
    }
    std::string place_json(const char* key, int index) const {
        if (index < 0) return "null";
        return JsonObject()
            .number("index", index)
            .text("place", place(key, index))
            .text("entry", line(key, index))
            .str();
    }

    std::string name_;
    Pf* tree_;
    Access_list* list_;
};

int test_address(const Arguments& arguments) {
    const std::string name = arguments.text("FILE"), address = arguments.text("ADDRESS");
    const Tree tree = read_tree(name);
    if (tree == nullptr) return kUnusable;
    const Tester tester(name, tree.get());
    const std::vector<Verdict> verdicts = tester.verdicts(address);
    if (verdicts.empty()) {
        elog_complain(0, "'%s' is no address", one_line(address).c_str());
        return kUnusable;
    }
    for (const Verdict& verdict : verdicts)
        arguments.has("--json") ? print(tester.json(verdict) + "\n") : tester.print_text(verdict);
    return finish(verdicts.front().result == 1 ? kDone : kFindings);
}

// ---- lint

class Linter {
  public:
    Linter(const std::string& name, Pf* tree, bool json)
        : name_(name),
          json_(json),
          accept_(entries_of(tree, kAccept)),
          reject_(entries_of(tree, kReject)) {}

    // Prints what is to be said; tells how much that is.
    long lint() {
        for (std::size_t i = 0; i < accept_.size(); ++i) {
            lint_entry(kAccept, accept_, i);
            if (const long j = first_over(reject_, accept_[i]); j >= 0)
                tell(kAccept, i, "warning",
                     "lets nobody in: " + naming(kReject, reject_, j) + " turns all of it away");
        }
        for (std::size_t i = 0; i < reject_.size(); ++i) {
            lint_entry(kReject, reject_, i);
            lint_reject(i);
        }
        return told_;
    }

  private:
    using Entries = std::vector<Entry>;

    static long first_over(const Entries& entries, const Entry& entry) {
        for (std::size_t i = 0; i < entries.size() && entry.is_network(); ++i)
            if (&entries[i] != &entry && entries[i].covers(entry)) return static_cast<long>(i);
        return -1;
    }
    static bool any_overlap(const Entries& entries, const Entry& entry) {
        for (const Entry& other : entries)
            if (other.overlaps(entry)) return true;
        return false;
    }
    static std::string naming(const char* key, const Entries& entries, long index) {
        const auto i = static_cast<std::size_t>(index);
        return path_of(key, i) + " (" + entries[i].address + " " + entries[i].mask + ")";
    }

    void lint_entry(const char* key, const Entries& entries, std::size_t i) {
        const Entry& entry = entries[i];
        if (!entry.wrong.empty()) return tell(key, i, "error", entry.wrong);
        if (!entry.is_network()) return;
        if (const long j = first_over(entries, entry); j >= 0 && j < static_cast<long>(i))
            tell(key, i, "warning",
                 "never decides: " + naming(key, entries, j) +
                     " stands before it and matches the same");
        for (int k = 0; k < entry.size; ++k)
            if ((entry.address_bytes[k] & ~entry.mask_bytes[k]) != 0)
                return tell(key, i, "warning",
                            quotation(entry.address) + " has bits that the mask leaves out");
    }

    void lint_reject(std::size_t i) {
        const Entry& entry = reject_[i];
        if (!entry.is_network()) return;
        if (!any_overlap(accept_, entry))
            tell(kReject, i, "warning",
                 std::string("turns nobody away that ") + kAccept + " lets in");
        if (entry.family != AF_INET) return;
        Entry mapped = entry;
        mapped.family = AF_INET6;
        mapped.size = 16;
        std::memset(mapped.address_bytes, 0, sizeof mapped.address_bytes);
        std::memset(mapped.address_bytes + 10, 0xff, 2);
        std::memcpy(mapped.address_bytes + 12, entry.address_bytes, 4);
        std::memset(mapped.mask_bytes, 0xff, 12);
        std::memcpy(mapped.mask_bytes + 12, entry.mask_bytes, 4);
        if (any_overlap(accept_, mapped) && first_over(reject_, mapped) < 0)
            tell(kReject, i, "warning",
                 "clients pass it by that come to an IPv6 socket, as ::ffff:" + entry.address);
    }

    void tell(const char* key, std::size_t index, const char* severity, const std::string& text) {
        ++told_;
        const std::string path = path_of(key, index);
        const Records places(pfwhere(name_.c_str(), path.c_str()), freepfplace);
        const bool placed = places && places.size() > 0;
        const std::string file = placed ? places.at<Pfplace>(0)->file : name_;
        const long line = placed ? places.at<Pfplace>(0)->line : 0;
        const long column = placed ? places.at<Pfplace>(0)->column : 0;
        if (json_)
            return print(JsonObject()
                             .text("file", file)
                             .number("line", line)
                             .number("column", column)
                             .text("severity", severity)
                             .text("path", path)
                             .text("text", text)
                             .str() +
                         "\n");
        const bool error = *severity == 'e';
        print(coloured(Colour::bold, one_line(file) + ":" + std::to_string(line) + ":" +
                                         std::to_string(column) + ":") +
              " " + coloured(error ? Colour::red : Colour::yellow, std::string(severity) + ":") +
              " " + text + "\n");
    }

    std::string name_;
    bool json_;
    Entries accept_, reject_;
    long told_ = 0;
};

int lint_file(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& name : arguments.texts("FILE")) {
        const Tree tree = read_tree(name);
        Pf* list = nullptr;
        if (tree == nullptr) {
            status = kUnusable;
        } else if (pfresolve(tree.get(), kAccept, 0, &list) != PFTBL) {
            elog_complain(0, "no list %s in parameter file %s: it lets nobody in", kAccept,
                          name.c_str());
            status = std::max<int>(status, kFindings);
        } else if (Linter(name, tree.get(), arguments.has("--json")).lint() > 0) {
            status = std::max<int>(status, kFindings);
        }
    }
    return finish(status);
}

constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};
constexpr Parameter kTest[] = {{"FILE", Takes::name, "parameter file with the lists"},
                               {"ADDRESS", Takes::text, "an IPv4 or IPv6 address"},
                               kJson};
constexpr Parameter kLint[] = {{"FILE", Takes::name, "parameter files with lists", "", Given::many},
                               kJson};

constexpr Command kCommands[] = {
    {"test", "tell whether an address is let in, and which entry decides",
     "An IPv4 address is looked at as a client's (legit_fd), as a value (legit_ip), and as a "
     "client's\nthat comes to an IPv6 socket. Ends with 1 when the client is turned away.\n\n"
     "    morva acl test wfserver 10.1.2.3",
     kTest, test_address},
    {"lint", "find entries that cannot be read or never decide",
     "Entries behind others that match the same, and such as another list undoes; IPv4 entries "
     "that\nturn away who may come in through an IPv6 socket.\n\n"
     "    morva acl lint wfserver",
     kLint, lint_file}};

}  // namespace

const Group acl_group = {"acl", "access lists: who is let in, and what is wrong with them", "",
                         kCommands};

}  // namespace tool
