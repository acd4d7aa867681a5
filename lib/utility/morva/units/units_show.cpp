// Listings of units on standard output. They are made under the lock and written without it.
#include <cstdio>

#include "morva/strings.h"
#include "units/units.hpp"

namespace morva::units {
namespace {

void append_unit(String& text, const Unit& unit) {
    char factor[32], field[64];
    text.append("  ").append(unit.name);
    for (std::size_t length = std::char_traits<char>::length(unit.name); length < 20; ++length)
        text.push_back(' ');
    std::snprintf(field, sizeof field, " %-20s", strdbl(factor, unit.factor));
    text.append(field);
    for (int i = 0; i < units_of_process().basis_count() && i < UNITS_BASIS; ++i) {
        std::snprintf(field, sizeof field, " %3d", unit.exponents[i]);
        text.append(field);
    }
    text.push_back('\n');
}

void append_count(String& text, long count, const char* what) {
    char line[64];
    std::snprintf(line, sizeof line, "\n%ld %s units\n", count, what);
    text.append(line);
}

String all_units() {
    const std::lock_guard held(units_lock());
    String text;
    append_count(text, maxtbl(UnitsBasis_tbl), "basis");
    for (long i = 0; i < maxtbl(UnitsBasis_tbl); ++i)
        append_unit(text, *static_cast<const Unit*>(gettbl(UnitsBasis_tbl, i)));
    append_count(text, cntarr(Units_arr), "total");
    applyarr(
        Units_arr,
        [](char*, void* unit, void* private_data) {
            append_unit(*static_cast<String*>(private_data), *static_cast<const Unit*>(unit));
            return 0;
        },
        &text);
    return text.append("\n");
}

}  // namespace
}  // namespace morva::units

using namespace morva::units;

extern "C" {

void show_unit(const Unit* unit) {
    if (unit == nullptr) {
        std::fputs("unit=0\n", stdout);
        return;
    }
    morva::String text;
    {
        const std::lock_guard held(units_lock());
        append_unit(text, *unit);
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void show_all_units(void) {
    const morva::String text = all_units();
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // extern "C"
