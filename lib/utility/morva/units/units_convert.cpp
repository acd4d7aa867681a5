// Conversions, and the units that measure the same.
#include <cstdio>
#include <cstring>

#include "base/diagnostics.hpp"
#include "units/units.hpp"

namespace morva::units {
namespace {

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

// What a conversion needs of both sides.
struct Pair {
    struct Scale {
        double factor, offset;
    };
    Scale from, to;
};

// The caller holds the lock. What is wrong is said in the messages, and with which text.
int read_both(std::string_view from, std::string_view to, Pair* pair, char** difference,
              Messages* messages, std::string_view* wrong) {
    Unit rooms[2];
    *wrong = from;
    const Unit* a = value_of(from, &rooms[0], messages);
    if (a == nullptr) return kUnusable;
    *wrong = to;
    // The first may be kept where the second is going to be.
    pair->from = {a->factor, a->offset};
    rooms[0] = *a;
    const Unit* b = value_of(to, &rooms[1], messages);
    if (b == nullptr) return kUnusable;
    pair->to = {b->factor, b->offset};
    if (same_exponents(rooms[0], *b, UNITS_BASIS)) return kCompatible;
    if (difference != nullptr) *difference = describe_difference(rooms[0], *b);
    return kIncompatible;
}

// Evaluates both sides; 0, 1 or -1 as units_convert.
int read_pair(const char* from, const char* to, Pair* pair, char** difference) {
    units_init();
    if (difference != nullptr) *difference = nullptr;
    Messages messages;
    std::string_view wrong;
    int status;
    {
        const std::lock_guard held(units_lock());
        status = read_both(text_of(from), text_of(to), pair, difference, &messages, &wrong);
    }
    if (!messages.empty()) tell(messages, wrong);
    if (status != kCompatible || pair->to.factor != 0) return status;
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
    if (status != kCompatible) return status;
    const auto [factor, offset] = pair.from;
    // The zeros' distance apart: nothing is lost between scales with the same zero.
    *result = value * factor / pair.to.factor + (offset * factor / pair.to.factor - pair.to.offset);
    return status;
}

int units_convert_array(const double* values, long count, const char* from, double* results,
                        const char* to, char** difference) {
    Pair pair;
    const int status = read_pair(from, to, &pair, difference);
    if (status != kCompatible) return status;
    const double multiply = pair.from.factor, divide = pair.to.factor;
    if (divide == 1)
        for (long i = 0; i < count; ++i) results[i] = values[i] * multiply;
    else
        for (long i = 0; i < count; ++i) results[i] = values[i] * multiply / divide;
    return status;
}

int units_parse(const char* units, Unit* unit) {
    units_init();
    Messages messages;
    Unit room;
    {
        const std::lock_guard held(units_lock());
        const Unit* value = value_of(text_of(units), &room, &messages);
        if (value != nullptr) copy_basis(unit, value);
    }
    tell(messages, text_of(units));
    return messages.empty() ? 0 : -1;
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
