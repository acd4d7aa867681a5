// A time zone as data: transitions from a zone file, rules from a POSIX text, or both.
//
// What an instant is called in a zone follows the C library step by step, also where another
// reading would do: before the first transition the first standard time of the file counts; from
// the last transition on the rules count, if the file has some; the rules' years before 1971 begin
// with the epoch.
#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "base/memory.hpp"
#include "time/fields.hpp"

namespace morva::time {

// The day and the local time at which a clock is set.
struct ClockChange {
    enum class Kind : std::uint8_t { kDayWithLeap, kDayWithoutLeap, kMonthWeekDay };
    Kind kind = Kind::kDayWithLeap;
    int day = 0;  // 0 .. 365, 1 .. 365, or of the week with 0 for Sunday
    int month = 0;
    int week = 0;  // 5 is the last
    int seconds = 0;
};

// What a POSIX zone text says: one of everything for standard time, one for daylight saving time.
struct ZoneRules {
    struct Side {
        String name;
        std::int32_t offset = 0;  // seconds east of Greenwich
        ClockChange change;       // by which the other side ends
    };
    std::array<Side, 2> sides;

    // Is daylight saving time in force?
    bool daylight(std::int64_t instant) const;
};

struct ZoneText {
    ZoneRules rules;  // as far as the text could be read
    bool complete;    // all of it could be read
};
// A text that names daylight saving time but no days gets those of the United States since 2007.
// (The C library shifts the transitions of New York instead, by amounts that depend on the zones it
// was asked for before.)
ZoneText read_zone_text(std::string_view text);

struct ZoneType {
    std::int32_t offset;
    bool daylight;
    std::uint16_t name;  // where its abbreviation starts
};

struct LeapSecond {
    std::int64_t instant;
    std::int32_t total;
};

struct Zone {
    static void* operator new(std::size_t size) { return must_malloc(size, "zone", MORVA_HERE); }
    static void operator delete(void* zone) { std::free(zone); }

    Vector<std::int64_t> transitions;  // ascending
    Vector<std::uint8_t> type_after;   // one for each transition
    Vector<std::uint16_t> slots;       // how many transitions are over when each half year starts
    Vector<ZoneType> types;            // empty: there are only the rules
    Vector<LeapSecond> leaps;          // ascending
    String names;                      // abbreviations, each with a zero byte behind it
    std::optional<ZoneRules> rules;
};

// Fills the slots of a zone, by which its transitions are found, unless these are too close.
void make_slots(Zone& zone);

// Reads the contents of a zone file. Null when they are not what they should be; whatever the bytes
// are, a zone that is returned is safe to use.
std::unique_ptr<Zone> read_zone(std::string_view bytes);

// The zone of rules alone.
std::unique_ptr<Zone> make_zone(const ZoneRules& rules);

// A zone without daylight saving time.
std::unique_ptr<Zone> make_zone(std::string_view name, std::int32_t offset);

}  // namespace morva::time
