// Access lists among the sources that read them.
#pragma once

#include <array>
#include <string_view>

#include "base/memory.hpp"
#include "containers/tbl.hpp"
#include "net/words.hpp"
#include "pf/pf.hpp"

namespace morva::net {

inline constexpr char kAccept[] = "valid_ip_addresses";
inline constexpr char kReject[] = "reject_ip_addresses";

// The line of an entry in parts; the comment has the blanks around it.
struct Entry {
    std::string_view address, mask, comment;
};

inline bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

inline std::string_view take_word(std::string_view& line) {
    std::size_t start = 0;
    while (start < line.size() && is_blank(line[start])) ++start;
    std::size_t end = start;
    while (end < line.size() && !is_blank(line[end])) ++end;
    const std::string_view word = line.substr(start, end - start);
    line.remove_prefix(end);
    return word;
}

inline Entry entry_of(std::string_view line) {
    Entry entry;
    entry.address = take_word(line);
    entry.mask = take_word(line);
    entry.comment = line;
    return entry;
}

using AddressBytes = std::array<unsigned char, 16>;

struct Network {
    int family = 0;
    AddressBytes address{}, mask{};
};

// Reads an entry for sockets. False, with a complaint, when a text is none of the family.
bool read_network(int family, const char* address, const char* mask, Network& network);

// The list of a parameter file, or null.
inline Tbl* list_of(Pf* pf, std::string_view key) {
    if (pf == nullptr || !pf::is_array(pf)) return nullptr;
    const Pf* node = pf::found_in(pf, find_key(pf->value.arr, key));
    return node != nullptr && node->type == PFTBL ? node->value.tbl : nullptr;
}

// The line of a node as it stands in the file; empty for a node that is none.
inline const char* line_of(const Pf* node) {
    const bool is_line = node != nullptr && node->type == PFSTRING && node->value.string != nullptr;
    return is_line ? node->value.string : "";
}

// Calls `visit(index, line)` for the lines of a list that are not empty, beginning with the item
// `from`, until it returns true: then the index; -1 when it never does.
template <class Visit>
int each_line(const Tbl* list, Visit visit, long from = 0) {
    if (list == nullptr) return -1;
    for (long i = from; i < tbl_count(list); ++i) {
        Pf* node = static_cast<Pf*>(tbl_item(list, i));
        const char* line = line_of(node);
        if (std::strchr(line, '&') != nullptr) line = pfexpand(node);
        if (line != nullptr && *line != '\0' && visit(static_cast<int>(i), line))
            return static_cast<int>(i);
    }
    return -1;
}

// Stores a new copy of a comment without blanks around it, or null for an empty one.
inline void store_trimmed(std::string_view text, char** comment) {
    if (comment == nullptr) return;
    *comment = nullptr;
    if (text.empty()) return;
    static constexpr Site kHere = MORVA_HERE;
    *comment = static_cast<char*>(must_malloc(text.size() + 1, "comment", kHere));
    std::memcpy(*comment, text.data(), text.size());
    (*comment)[text.size()] = '\0';
}

inline void store_comment(std::string_view text, char** comment) {
    store_trimmed(trimmed(text), comment);
}

}  // namespace morva::net
