// Conversions. Expressions that were parsed lately are kept, names looked up: what is left of a
// conversion is to evaluate two of them, from the records as they are at the moment.
#include <cmath>
#include <cstring>

#include "base/diagnostics.hpp"
#include "text/strings.hpp"
#include "units/units_yacc.hpp"

namespace morva::units {
namespace {

constexpr std::size_t kKeptText = 32;
constexpr std::size_t kKeptTerms = 4;
constexpr std::size_t kKept = 256;  // a power of two

// The text in whole words, zeros behind it.
struct Key {
    std::uint64_t words[kKeptText / 8] = {};

    bool operator==(const Key& other) const {
        std::uint64_t difference = 0;
        for (std::size_t i = 0; i < kKeptText / 8; ++i) difference |= words[i] ^ other.words[i];
        return difference == 0;
    }
    std::size_t slot() const {
        std::uint64_t hash = 0;
        for (const std::uint64_t word : words) hash = (hash ^ word) * 0x9e3779b97f4a7c15;
        return hash >> 32 & (kKept - 1);
    }
};

struct KeptExpression {
    Key key;
    std::size_t count = 0;  // 0: none is kept here; such expressions are parsed each time
    double number = 1;
    Term terms[kKeptTerms] = {};
};

// Guarded by the lock of the units. Empties itself when names may have got another meaning.
class Memory {
  public:
    KeptExpression& at(const Key& key) {
        const Names now = {table_generation(), Units_arr, cntarr(Units_arr)};
        if (!(now == names_)) {
            for (KeptExpression& expression : kept_) expression.count = 0;
            names_ = now;
        }
        return kept_[key.slot()];
    }

  private:
    struct Names {
        unsigned generation = 0;
        Arr* units = nullptr;
        long count = 0;
        bool operator==(const Names&) const = default;
    };
    Names names_ = {};
    KeptExpression kept_[kKept] = {};
};
constinit Memory g_memory;

bool parse(std::string_view text, Unit* value, Messages* messages, Expression* read) {
    Parser parser(units_of_process(), text, messages);
    return parser.read_expression(read) &&
           evaluate(read->number, read->terms.data(), read->terms.size(), value);
}

bool value_of_long(std::string_view text, Unit* value, Messages* messages) {
    Expression read;
    return parse(text, value, messages, &read);
}

bool value_of_new(std::string_view text, const Key& key, KeptExpression& place, Unit* value,
                  Messages* messages) {
    Expression read;
    if (!parse(text, value, messages, &read)) return false;
    if (read.terms.size() > kKeptTerms) return true;
    place.key = key;
    place.count = read.terms.size();
    place.number = read.number;
    std::copy(read.terms.begin(), read.terms.end(), place.terms);
    return true;
}

// The value of an expression. The caller holds the lock.
bool value_of(std::string_view text, Unit* value, Messages* messages) {
    if (text.size() > kKeptText) return value_of_long(text, value, messages);
    Key key;
    copy_text(reinterpret_cast<char*>(key.words), text.data(), text.size());
    KeptExpression& kept = g_memory.at(key);
    if (kept.count > 0 && kept.key == key && evaluate(kept.number, kept.terms, kept.count, value))
        return true;
    return value_of_new(text, key, kept, value, messages);
}

std::string_view text_of(const char* units) {
    return units != nullptr ? std::string_view(units) : std::string_view();
}

bool same_exponents(const Unit& a, const Unit& b, int count) {
    return std::memcmp(a.exponents, b.exponents,
                       static_cast<std::size_t>(count) * sizeof *a.exponents) == 0;
}

// The basic units that `from` has more than `to`, as a new string.
char* describe_difference(const Unit& from, const Unit& to) {
    String text;
    for (int i = 0; i < units_of_process().basis_count(); ++i) {
        const int power = from.exponents[i] - to.exponents[i];
        if (power == 0) continue;
        char end[16] = " ";
        if (power != 1) std::snprintf(end, sizeof end, "^%d ", power);
        text.append(static_cast<const Unit*>(gettbl(UnitsBasis_tbl, i))->name).append(end);
    }
    return must_strdup(text.c_str(), "units", MORVA_HERE);
}

enum { kCompatible = 0, kIncompatible = 1, kUnusable = -1 };

struct Pair {
    Unit from, to;
};

// Evaluates both sides; 0, 1 or -1 as units_convert.
int read_pair(const char* from, const char* to, Pair* pair, char** difference) {
    units_init();
    if (difference != nullptr) *difference = nullptr;
    Messages messages;
    std::string_view wrong;
    {
        const std::lock_guard held(units_lock());
        for (const auto& [text, value] :
             {std::pair(text_of(from), &pair->from), std::pair(text_of(to), &pair->to)}) {
            wrong = text;
            if (!value_of(text, value, &messages)) break;
        }
        if (messages.empty() && !same_exponents(pair->from, pair->to, UNITS_BASIS)) {
            if (difference != nullptr) *difference = describe_difference(pair->from, pair->to);
            return kIncompatible;
        }
    }
    tell(messages, wrong);
    if (!messages.empty()) return kUnusable;
    if (pair->to.factor != 0) return kCompatible;
    elog_log(0, "can't convert to the units '%s', which are zero\n", to);
    return kUnusable;
}

}  // namespace
}  // namespace morva::units

using namespace morva::units;

extern "C" {

int match_unit(const Unit* a, const Unit* b) {
    if (a == nullptr || b == nullptr) return 0;
    const std::lock_guard held(units_lock());
    return same_exponents(*a, *b, units_of_process().basis_count());
}

int units_convert(double value, const char* from, double* result, const char* to,
                  char** difference) {
    Pair pair;
    const int status = read_pair(from, to, &pair, difference);
    if (status == kCompatible) *result = value * pair.from.factor / pair.to.factor;
    return status;
}

int units_convert_affine(double value, const char* from, double* result, const char* to,
                         char** difference) {
    Pair pair;
    const int status = read_pair(from, to, &pair, difference);
    if (status == kCompatible)
        *result = (value + pair.from.offset) * pair.from.factor / pair.to.factor - pair.to.offset;
    return status;
}

int units_convert_array(const double* values, long count, const char* from, double* results,
                        const char* to, char** difference) {
    Pair pair;
    const int status = read_pair(from, to, &pair, difference);
    if (status != kCompatible) return status;
    const double multiply = pair.from.factor, divide = pair.to.factor;
    for (long i = 0; i < count; ++i) results[i] = values[i] * multiply / divide;
    return status;
}

int units_parse(const char* units, Unit* unit) {
    units_init();
    Unit value;
    Messages messages;
    {
        const std::lock_guard held(units_lock());
        value_of(text_of(units), &value, &messages);
    }
    tell(messages, text_of(units));
    if (!messages.empty()) return -1;
    copy_basis(unit, &value);
    return 0;
}

Tbl* units_match(const char* units) {
    Unit value;
    if (units_parse(units, &value) != 0) return nullptr;
    struct Search {
        const Unit& like;
        const char* text;
        Tbl* names;
        int basis;
    };
    const std::lock_guard held(units_lock());
    Search search = {value, units, newtbl(0), units_of_process().basis_count()};
    applyarr(
        Units_arr,
        [](char* name, void* unit, void* private_data) {
            const auto* s = static_cast<const Search*>(private_data);
            if (same_exponents(*static_cast<const Unit*>(unit), s->like, s->basis) &&
                std::strstr(s->text, name) == nullptr)
                pushtbl(s->names, must_strdup(name, "units", MORVA_HERE));
            return 0;
        },
        &search);
    return search.names;
}

}  // extern "C"
