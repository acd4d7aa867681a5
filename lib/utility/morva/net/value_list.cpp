#include "net/value_list.hpp"

#include <arpa/inet.h>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>

#include "base/memory.hpp"
#include "net/entries.hpp"
#include "net/list_image.hpp"

namespace morva::net {
namespace {

// ---- Numbers

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

struct Network4 {
    uint32_t address = 0, mask = 0;
    bool holds(uint32_t ip) const { return ((ip ^ address) & mask) == 0; }
};

// Reads both numbers of a line. Returns what is behind them; null when there are not two words.
const char* read_line(const char* line, Network4& network) {
    const char* at = line;
    while (is_blank(*at)) ++at;
    bool plain = take_quad(at, network.address);
    while (is_blank(*at)) ++at;
    plain = plain && take_quad(at, network.mask);
    if (plain) return at;
    const Entry entry = entry_of(line);
    if (entry.mask.empty()) return nullptr;
    network = {value_of(entry.address), value_of(entry.mask)};
    return entry.comment.data();
}

// ---- Lists

// Looks at the items from `from` on as they stand.
Found look_through(const Tbl* list, long from, uint32_t ip) {
    std::string_view comment;
    const auto matches = [&](int, const char* line) {
        Network4 network;
        const char* rest = read_line(line, network);
        if (rest == nullptr || !network.holds(ip)) return false;
        comment = trimmed(rest);
        return true;
    };
    const int index = each_line(list, matches, from);
    return index < 0 ? Found() : Found(static_cast<std::size_t>(index), comment);
}

constexpr std::size_t kAtOnce = 16;

// Which of so many networks hold an address: a bit for each, the lowest for the first.
unsigned matches(const uint32_t* addresses, const uint32_t* masks, uint32_t ip) {
#ifdef __SSE2__
    const auto four = [=](int i) {
        const __m128i address = _mm_loadu_si128(reinterpret_cast<const __m128i*>(addresses) + i);
        const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i*>(masks) + i);
        const __m128i differing = _mm_xor_si128(address, _mm_set1_epi32(static_cast<int>(ip)));
        return _mm_cmpeq_epi32(_mm_and_si128(differing, mask), _mm_setzero_si128());
    };
    const __m128i low = _mm_packs_epi32(four(0), four(1)), high = _mm_packs_epi32(four(2), four(3));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
#else
    unsigned bits = 0;
    for (std::size_t i = 0; i < kAtOnce; ++i)
        bits |= (((ip ^ addresses[i]) & masks[i]) == 0 ? 1U : 0U) << i;
    return bits;
#endif
}

// The first lines of a list, as far as a check had to look, up to one with references: what these
// stand for is not in the list.
class KnownList {
  public:
    const Tbl* list() const { return list_; }
    void begin(const Tbl* list) {
        forget(0);
        list_ = list;
    }
    Found find(uint32_t ip);

  private:
    struct Line {
        std::size_t index;
        uint32_t comment;  // where it begins among the texts
    };
    static constexpr std::size_t kMostBytes = std::size_t{1} << 22;  // of the texts of a list

    std::size_t known() const { return ends_.size() - 1; }
    std::size_t first_match(uint32_t ip) const;
    Found found(std::size_t value) const;
    std::size_t unchanged(std::size_t count);
    void forget(std::size_t from);
    bool learn(std::string_view text, uint32_t ip);
    [[gnu::noinline]] Found read_on(std::size_t from, uint32_t ip);

    const Tbl* list_ = nullptr;
    Vector<char> texts_;
    Vector<uint32_t> ends_{0};
    Vector<uint32_t> addresses_, masks_;  // of the lines that have both; more may be read
    Vector<Line> lines_;                  // these lines
    ListImage image_;                     // of nodes that have the lines as they are here
};

Found KnownList::find(uint32_t ip) {
    const std::size_t at = first_match(ip);
    const bool decided = at < lines_.size();
    const std::size_t wanted = decided ? lines_[at].index + 1 : known();
    const std::size_t same = unchanged(wanted);
    if (decided && same == wanted) return found(at);
    return read_on(same, ip);
}

// The first of the values that matches; their number or more when none does.
std::size_t KnownList::first_match(uint32_t ip) const {
    for (std::size_t i = 0; i < lines_.size(); i += kAtOnce) {
        const unsigned bits = matches(&addresses_[i], &masks_[i], ip);
        if (bits != 0) return i + static_cast<std::size_t>(std::countr_zero(bits));
    }
    return lines_.size();
}

Found KnownList::found(std::size_t value) const {
    const Line& line = lines_[value];
    const char* end = texts_.data() + ends_[line.index + 1] - 1;
    return {line.index, trimmed({texts_.data() + line.comment, end})};
}

// How many of the first `count` lines are in the list as they were, up to the first that is not.
std::size_t KnownList::unchanged(std::size_t count) {
    auto nodes = ListImage::Nodes(tbl_pointers<Pf>(list_));
    nodes = nodes.first(std::min(count, nodes.size()));
    std::size_t singly = 0;
    for (std::size_t i = 0; i < nodes.size();) {
        const std::size_t same = image_.same_from(i, nodes);
        i += same;
        if (same > 0) continue;
        if (std::strcmp(line_of(nodes[i]), texts_.data() + ends_[i]) != 0) return i;
        ++i, ++singly;
    }
    if (singly > image_.apart()) image_.take(nodes);
    return nodes.size();
}

void KnownList::forget(std::size_t from) {
    if (from < known()) image_.take({});
    while (!lines_.empty() && lines_.back().index >= from) lines_.pop_back();
    ends_.resize(from + 1);
    texts_.resize(ends_.back());
}

// Keeps the next line, given with its terminator; whether it matches. The numbers are those of the
// copy.
bool KnownList::learn(std::string_view text, uint32_t ip) {
    texts_.insert(texts_.end(), text.begin(), text.end());
    Network4 network;
    const char* rest = read_line(texts_.data() + ends_.back(), network);
    if (rest != nullptr) {
        const std::size_t value = lines_.size(), room = value + kAtOnce;
        if (masks_.size() < room)
            for (Vector<uint32_t>* numbers : {&addresses_, &masks_}) numbers->resize(2 * room);
        addresses_[value] = network.address;
        masks_[value] = network.mask;
        lines_.push_back({known(), static_cast<uint32_t>(rest - texts_.data())});
    }
    ends_.push_back(static_cast<uint32_t>(texts_.size()));
    return rest != nullptr && network.holds(ip);
}

// What is known from line `from` on does not hold.
Found KnownList::read_on(std::size_t from, uint32_t ip) {
    forget(from);
    const auto nodes = tbl_pointers<Pf>(list_);
    while (known() < nodes.size()) {
        const char* line = line_of(nodes[known()]);
        const std::string_view text(line, std::strlen(line) + 1);
        if (text.find('&') != text.npos || texts_.size() + text.size() > kMostBytes)
            return look_through(list_, static_cast<long>(known()), ip);
        if (learn(text, ip)) return found(lines_.size() - 1);
    }
    return {};
}

// What a thread keeps. It is gone before the last destructors of the thread may ask once more.
class KnownLists {
  public:
    ~KnownLists() {
        t_lists = nullptr;
        t_gone = true;
    }
    // Null when it is gone.
    static KnownLists* mine() {
        if (t_lists == nullptr && !t_gone) {
            static thread_local KnownLists lists;
            t_lists = &lists;
        }
        return t_lists;
    }
    // Null at first sight: many a list is looked through only once.
    KnownList* of(const Tbl* list) {
        for (KnownList& known : lists_)
            if (known.list() == list) return &known;
        lists_[next_++ % kLists].begin(list);
        return nullptr;
    }

  private:
    static constexpr unsigned kLists = 8;
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local KnownLists* t_lists =
        nullptr;
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local bool t_gone = false;

    KnownList lists_[kLists];
    unsigned next_ = 0;
};

}  // namespace

Found find_value(const Tbl* list, uint32_t ip) {
    KnownLists* mine = KnownLists::mine();
    KnownList* known = mine != nullptr && !list->direct ? mine->of(list) : nullptr;
    return known != nullptr ? known->find(ip) : look_through(list, 0, ip);
}

}  // namespace morva::net
