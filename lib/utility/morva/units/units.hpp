// What the sources of the units share: where names are looked up, and what is told of a text.
#pragma once

#include <mutex>
#include <string_view>

#include "base/memory.hpp"
#include "morva/units.h"

namespace morva::units {

// Exponents of results are below 1024, so that those of so many terms add up within an int.
constexpr int kMostPower = 1000;
constexpr std::size_t kMostTerms = 1000;

// The units that names stand for: Units_arr and UnitsBasis_tbl, or those of a table that is
// checked.
struct Dictionary {
    Arr*& units;
    Tbl*& basis;
    Tbl*& replaced;  // records that an add made unreachable, but that somebody may hold

    int basis_count() const { return static_cast<int>(maxtbl(basis)); }
    // A new record under this name; whether it replaced another.
    Unit* add(const char* name, bool* replacing) const;
};

// The process's own units, to be used while the lock is held, and never while something is logged.
std::mutex& units_lock();
Dictionary units_of_process();

// Changes with every add_unit: what was looked up before may be another record now.
unsigned table_generation();

// The factor of a prefix and the record of the rest.
struct Found {
    const Unit* unit;
    double prefix;
};
bool find_unit(Arr* units, std::string_view name, Found* found);

// The known name that takes the fewest changes, null when all are too far away.
const char* nearest_name(Arr* units, std::string_view name);

// What is to be said about a place in a text, once no lock is held.
struct Message {
    bool warning;
    int line, column;
    String text;
    String hint;
};
using Messages = Vector<Message>;

// The value of an expression: `room`, or one that is kept and may go with the next call. Null when
// it is wrong. The caller holds the lock.
const Unit* value_of(std::string_view text, Unit* room, Messages* messages);

// Registers what was found wrong in an expression or in a table of this name, and shows warnings.
void tell(const Messages& messages, std::string_view expression);
void tell_of_table(const Messages& messages, const char* path);

// Reads a whole file. False with the reason registered.
bool read_table_file(const char* path, String* text);

}  // namespace morva::units
