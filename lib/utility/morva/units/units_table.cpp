// The table of units: its records, and the file that it is read from, once.
#include <skerrows.h>

#include <atomic>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "units/units_yacc.hpp"

namespace morva::units {
namespace {

constinit std::mutex g_lock;  // guards everything here and all records
constinit Tbl* g_replaced = nullptr;
constinit std::atomic<unsigned> g_generation{0};
constinit std::atomic<bool> g_loaded{false};
constinit std::atomic<bool> g_failed{false};

char g_no_such_unit[] = "*NO*SUCH*UNIT*";

Unit* make_unit(const char* name) {
    Unit* unit = must_alloc<Unit>(1, "unit", MORVA_HERE);
    unit->name = must_strdup(name, "unit", MORVA_HERE);
    unit->factor = 1;
    return unit;
}

// Reads lines until one is wrong.
bool parse_table(std::string_view text, Messages* messages) {
    Parser parser(units_of_process(), text, messages);
    for (;;) {
        const Parser::Line line = parser.read_line();
        if (line == Parser::Line::end || line == Parser::Line::wrong)
            return line == Parser::Line::end;
        if (line == Parser::Line::expression) parser.skip_line();
    }
}

void load_table() {
    const malloced<char> path(datafile("UNITS", "units"));
    if (path == nullptr) elog_die(0, "Can't find units table");
    String text;
    const bool readable = read_table_file(path.get(), &text);
    Messages messages;
    {
        const std::lock_guard held(g_lock);
        if (g_loaded) return;
        g_failed = !parse_table(text, &messages) || !readable;
        g_loaded = true;
    }
    tell_of_table(messages, path.get());
}

}  // namespace

std::mutex& units_lock() {
    return g_lock;
}

Dictionary units_of_process() {
    return {Units_arr, UnitsBasis_tbl, g_replaced};
}

unsigned table_generation() {
    return g_generation;
}

Unit* Dictionary::add(const char* name, bool* replacing) const {
    if (units == nullptr) units = newarr(nullptr);
    Unit* unit = make_unit(name);
    void* old = setarr(units, name, unit);
    *replacing = old != nullptr;
    if (old != nullptr) {
        if (replaced == nullptr) replaced = newtbl(0);
        pushtbl(replaced, old);
    }
    g_generation.fetch_add(1);
    return unit;
}

bool read_table_file(const char* path, String* text) {
    const Descriptor fd(retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    char piece[16384];
    ssize_t n = fd ? 1 : -1;
    while (n > 0) {
        n = retry([&] { return ::read(fd.get(), piece, sizeof piece); });
        if (n > 0) text->append(piece, static_cast<std::size_t>(n));
    }
    if (n < 0) elog_log(1, "read failed in compile_schema\n");
    return n == 0;
}

}  // namespace morva::units

using namespace morva::units;

extern "C" {

constinit Arr* Units_arr = nullptr;
constinit Tbl* UnitsBasis_tbl = nullptr;
constinit Unit nobasis = {g_no_such_unit, 1, 0, {}};

int units_init(void) {
    if (!g_loaded.load(std::memory_order_acquire)) load_table();
    return g_failed ? -1 : 0;
}

Unit* new_basis(const char* name) {
    return make_unit(name != nullptr ? name : "");
}

void free_unit(void* unit) {
    if (unit == nullptr) return;
    std::free(static_cast<Unit*>(unit)->name);
    std::free(unit);
}

void copy_basis(Unit* to, const Unit* from) {
    to->factor = from->factor;
    to->offset = from->offset;
    std::memcpy(to->exponents, from->exponents, sizeof to->exponents);
}

Unit* add_unit(const char* name) {
    bool replacing;
    Unit* unit;
    {
        const std::lock_guard held(g_lock);
        unit = units_of_process().add(name, &replacing);
    }
    if (replacing) elog_complain(0, "replacing definition for %s", name);
    return unit;
}

}  // extern "C"
