// Values of expressions. What was evaluated lately is kept together with the records as they were
// seen: while those have not changed, a value is found by its text.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "units/units_yacc.hpp"

namespace morva::units {
namespace {

constexpr std::size_t kKeptText = 32;
constexpr std::size_t kKeptTerms = 4;
constexpr std::size_t kSets = 64;  // a power of two

template <class Word>
std::uint64_t load(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// At most eight bytes as a word, zeros behind them. Taken in one or two loads that may overlap:
// bytes stored one by one would have to wait for each other.
std::uint64_t load_word(const char* text, std::size_t length) {
    const auto both_ends = [=]<class Half>(Half) {
        return load<Half>(text) | load<Half>(text + length - sizeof(Half))
                                      << 8 * (length - sizeof(Half));
    };
    if (length >= 8) return load<std::uint64_t>(text);
    if constexpr (std::endian::native != std::endian::little) {
        std::uint64_t word = 0;
        std::memcpy(&word, text, length);
        return word;
    }
    if (length >= 4) return both_ends(std::uint32_t{});
    if (length >= 2) return both_ends(std::uint16_t{});
    return length == 1 ? load<std::uint8_t>(text) : 0;
}

// The text in whole words, zeros behind it. Texts hold no zero byte.
struct Key {
    std::uint64_t words[kKeptText / 8] = {};

    constexpr Key() = default;
    explicit Key(std::string_view text) {
        for (std::size_t i = 0; 8 * i < text.size(); ++i)
            words[i] = load_word(text.data() + 8 * i, text.size() - 8 * i);
    }
    bool operator==(const Key& other) const {
        std::uint64_t difference = 0;
        for (std::size_t i = 0; i < kKeptText / 8; ++i) difference |= words[i] ^ other.words[i];
        return difference == 0;
    }
    std::size_t set() const {
        constexpr std::uint64_t kOdd[] = {0x9e3779b97f4a7c15, 0xbf58476d1ce4e5b9,
                                          0x94d049bb133111eb, 0xd6e8feb86659fd93};
        std::uint64_t hash = 0;
        for (std::size_t i = 0; i < kKeptText / 8; ++i)
            hash ^= (words[i] ^ words[i] >> 32) * kOdd[i];
        return hash >> 40 & (kSets - 1);
    }
};

// A record, and its numbers when it was used.
struct Seen {
    const Unit* unit = nullptr;
    Unit numbers = {};

    bool is_unchanged() const {
        constexpr std::size_t kFirst = offsetof(Unit, factor);
        return std::memcmp(reinterpret_cast<const char*>(unit) + kFirst,
                           reinterpret_cast<const char*>(&numbers) + kFirst,
                           offsetof(Unit, exponents) + sizeof numbers.exponents - kFirst) == 0;
    }
};

struct KeptValue {
    Key key;
    std::size_t count = 0;  // of records; 0: no value is kept here
    Unit value = {};
    Seen seen[kKeptTerms];

    bool is_unchanged() const {
        for (std::size_t i = 0; i < count; ++i)
            if (!seen[i].is_unchanged()) return false;
        return count > 0;
    }
};

// Guarded by the lock of the units. Empties itself when names may have got another meaning. An
// expression has two places to be.
class Memory {
  public:
    // Where it is kept, or else the place to keep it in, which holds another or none.
    KeptValue& at(const Key& key) {
        const Names now = {table_generation(), Units_arr, cntarr(Units_arr)};
        if (!(now == names_)) forget(now);
        KeptValue* set = kept_[key.set()];
        if (set[0].key == key) return set[0];
        if (set[1].key == key) return set[1];
        return set[++turn_ & 1];
    }

  private:
    struct Names {
        unsigned generation = 0;
        Arr* units = nullptr;
        long count = 0;
        bool operator==(const Names&) const = default;
    };
    void forget(const Names& now) {
        for (auto& set : kept_)
            for (KeptValue& value : set) value.count = 0;
        names_ = now;
    }

    Names names_ = {};
    unsigned turn_ = 0;
    KeptValue kept_[kSets][2];
};
constinit Memory g_memory;

bool parse(std::string_view text, Unit* value, Messages* messages, Expression* read) {
    Parser parser(units_of_process(), text, messages);
    return parser.read_expression(read) &&
           evaluate(read->number, read->terms.data(), read->terms.size(), value);
}

void keep(const Key& key, const Expression& read, const Unit& value, KeptValue& place) {
    if (read.terms.size() > kKeptTerms) return;
    place.key = key;
    place.count = read.terms.size();
    place.value = value;
    for (std::size_t i = 0; i < place.count; ++i)
        place.seen[i] = {read.terms[i].unit, *read.terms[i].unit};
}

}  // namespace

const Unit* value_of(std::string_view text, Unit* room, Messages* messages) {
    Expression read;
    if (text.size() > kKeptText) return parse(text, room, messages, &read) ? room : nullptr;
    const Key key(text);
    KeptValue& kept = g_memory.at(key);
    if (kept.key == key && kept.is_unchanged()) return &kept.value;
    if (!parse(text, room, messages, &read)) return nullptr;
    keep(key, read, *room, kept);
    return room;
}

}  // namespace morva::units
