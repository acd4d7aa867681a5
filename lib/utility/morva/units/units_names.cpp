// Names of units: as they stand, as plurals, behind a prefix.
#include <cstring>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "morva/strings.h"
#include "units/units.hpp"

namespace morva::units {
namespace {

const Unit_prefix* prefix_of(std::string_view name) {
    for (const Unit_prefix& prefix : prefixes)
        if (name.starts_with(prefix.name)) return &prefix;
    return nullptr;
}

}  // namespace

bool find_unit(Arr* units, std::string_view name, Found* found) {
    const auto record = [&](std::string_view text) {
        return static_cast<const Unit*>(find_key(units, text));
    };
    *found = {record(name), 1};
    std::string_view singular = name;
    for (const char last : {'s', 'e'}) {
        if (found->unit != nullptr || !singular.ends_with(last)) break;
        singular.remove_suffix(1);
        found->unit = record(singular);
    }
    if (found->unit != nullptr) return true;
    const Unit_prefix* prefix = prefix_of(singular);
    if (prefix == nullptr) return false;
    found->prefix = prefix->factor;
    // As it was cut, then with what was cut put back.
    const std::size_t begin = std::strlen(prefix->name);
    for (std::size_t end = singular.size(); end <= name.size() && found->unit == nullptr; ++end)
        found->unit = record(name.substr(begin, end - begin));
    return found->unit != nullptr;
}

const char* nearest_name(Arr* units, std::string_view name) {
    struct Nearest {
        String name;
        const char* best;
        int distance;
    };
    // Names with more than half of their letters wrong are no help, nor is a search for very long
    // ones.
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
