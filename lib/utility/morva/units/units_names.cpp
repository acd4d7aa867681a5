// Names of units: as they stand, as plurals, behind a prefix.
#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "morva/strings.h"
#include "units/units.hpp"

namespace morva::units {
namespace {

// A name that the search cuts at its end and that stays terminated.
class Name {
  public:
    explicit Name(std::string_view name) : whole_(name), length_(name.size()) {
        if (name.size() >= sizeof room_) {
            long_.assign(name);
            text_ = long_.data();
        } else {
            std::copy(name.begin(), name.end(), room_);
        }
        text_[length_] = '\0';
    }
    const char* c_str() const { return text_; }
    bool is_cut() const { return length_ < whole_.size(); }
    bool ends_in(char c) const { return length_ > 0 && text_[length_ - 1] == c; }
    void cut() { text_[--length_] = '\0'; }
    void put_back() {
        text_[length_] = whole_[length_];
        text_[++length_] = '\0';
    }

  private:
    std::string_view whole_;
    std::size_t length_;
    String long_;
    char room_[64];
    char* text_ = room_;
};

const Unit* record(Arr* units, const char* name) {
    return static_cast<const Unit*>(getarr(units, name));
}

// Cuts off the "s" of a plural, and an "e" before it, until a name is found.
const Unit* find_singular(Arr* units, Name& name) {
    for (const char last : {'s', 'e'}) {
        if (!name.ends_in(last)) break;
        name.cut();
        if (const Unit* unit = record(units, name.c_str())) return unit;
    }
    return nullptr;
}

// What is left behind the prefix, first as it was cut, then with what was cut put back.
const Unit* find_behind(Arr* units, Name& name, std::size_t prefix_length) {
    const Unit* unit = record(units, name.c_str() + prefix_length);
    while (unit == nullptr && name.is_cut()) {
        name.put_back();
        unit = record(units, name.c_str() + prefix_length);
    }
    return unit;
}

const Unit_prefix* prefix_of(std::string_view name) {
    for (const Unit_prefix& prefix : prefixes)
        if (name.starts_with(prefix.name)) return &prefix;
    return nullptr;
}

}  // namespace

bool find_unit(Arr* units, std::string_view text, Found* found) {
    Name name(text);
    found->prefix = 1;
    found->unit = record(units, name.c_str());
    if (found->unit == nullptr) found->unit = find_singular(units, name);
    if (found->unit != nullptr) return true;
    const Unit_prefix* prefix = prefix_of(name.c_str());
    if (prefix == nullptr) return false;
    found->prefix = prefix->factor;
    found->unit = find_behind(units, name, std::strlen(prefix->name));
    return found->unit != nullptr;
}

const char* nearest_name(Arr* units, std::string_view name) {
    struct Nearest {
        String name;
        const char* best;
        int distance;
    };
    // Names with half of their letters wrong are no help, nor is a search for very long ones.
    if (name.size() > 64) return nullptr;
    Nearest nearest = {String(name), nullptr, static_cast<int>(name.size() + 1) / 2 + 1};
    applyarr(
        units,
        [](char* key, void*, void* private_data) {
            auto* seen = static_cast<Nearest*>(private_data);
            const int distance = levenshtein_distance(seen->name.c_str(), key);
            if (distance >= 0 && distance < seen->distance) {
                seen->best = key;
                seen->distance = distance;
            }
            return 0;
        },
        &nearest);
    return nearest.best;
}

}  // namespace morva::units

using namespace morva::units;

extern "C" {

constexpr Unit_prefix prefixes[UNITS_PREFIXES] = {
    {"atto", 1e-18}, {"femto", 1e-15}, {"pico", 1e-12}, {"nano", 1e-9}, {"micro", 1e-6},
    {"milli", 1e-3}, {"centi", 1e-2},  {"deci", 1e-1},  {"deka", 10},   {"hecta", 100},
    {"hecto", 100},  {"kilo", 1e3},    {"mega", 1e6},   {"giga", 1e9},  {"tera", 1e12}};
constexpr int nprefixes = UNITS_PREFIXES;

int unit_found(const char* name, Unit** unit, double* factor) {
    if (name == nullptr) elog_die(0, "unit_found: name = 0");
    Found found;
    {
        const std::lock_guard held(units_lock());
        if (!find_unit(Units_arr, name, &found)) return 0;
    }
    if (unit != nullptr) *unit = const_cast<Unit*>(found.unit);
    if (factor != nullptr) *factor = found.prefix;
    return 1;
}

int prefixed(const char* name, char** rest, double* factor) {
    const Unit_prefix* prefix = name != nullptr ? prefix_of(name) : nullptr;
    if (prefix == nullptr) return 0;
    if (rest != nullptr) *rest = const_cast<char*>(name + std::strlen(prefix->name));
    if (factor != nullptr) *factor = prefix->factor;
    return 1;
}

}  // extern "C"
