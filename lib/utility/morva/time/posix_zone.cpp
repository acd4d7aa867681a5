// POSIX zone texts: "EST5EDT4,M3.2.0/2,M11.1.0/2".
#include <algorithm>
#include <cctype>
#include <cstring>

#include "time/calendar.hpp"
#include "time/zone.hpp"

namespace morva::time {
namespace {

using Kind = ClockChange::Kind;

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Takes a POSIX zone text apart from the front.
class Cursor {
  public:
    explicit Cursor(std::string_view text) : rest_(text) {}
    bool at_end() const { return rest_.empty(); }
    char next() const { return rest_.empty() ? '\0' : rest_.front(); }
    bool take(char c) {
        if (next() != c) return false;
        rest_.remove_prefix(1);
        return true;
    }

    // At least three letters, or letters, digits and signs between angle brackets.
    bool take_name(String& name) {
        std::size_t length = 0;
        while (length < rest_.size() && is_letter(rest_[length])) ++length;
        if (length >= 3) return take_name(name, 0, length, 0);
        if (next() != '<') return false;
        for (length = 0; 1 + length < rest_.size() && may_be_bracketed(rest_[1 + length]);)
            ++length;
        if (length < 3 || 1 + length == rest_.size() || rest_[1 + length] != '>') return false;
        return take_name(name, 1, length, 1);
    }

    // A number of up to five digits.
    bool take_number(int& number) {
        std::size_t length = 0;
        int value = 0;
        for (; length < rest_.size() && is_digit(rest_[length]); ++length) {
            if (length == 5) return false;
            value = 10 * value + (rest_[length] - '0');
        }
        if (length == 0) return false;
        rest_.remove_prefix(length);
        number = value;
        return true;
    }

    // hours[:minutes[:seconds]]
    bool take_clock(std::array<int, 3>& parts) {
        if (!take_number(parts[0])) return false;
        for (std::size_t i = 1; i < parts.size() && next() == ':'; ++i) {
            const std::string_view before = rest_;
            rest_.remove_prefix(1);
            if (take_number(parts[i])) continue;
            rest_ = before;
            break;
        }
        return true;
    }

  private:
    static bool may_be_bracketed(char c) {
        return is_letter(c) || is_digit(c) || c == '+' || c == '-';
    }
    bool take_name(String& name, std::size_t before, std::size_t length, std::size_t behind) {
        name = rest_.substr(before, std::min(length, kLongestAbbreviation));
        rest_.remove_prefix(before + length + behind);
        return length <= kLongestAbbreviation;
    }

    std::string_view rest_;
};

// Offsets are written west of Greenwich. False when there is no number; the sign is then taken.
bool take_offset(Cursor& text, std::int32_t& offset) {
    const bool east = text.next() == '-';
    if (!text.take('-')) text.take('+');
    std::array<int, 3> clock{};
    if (!text.take_clock(clock)) return false;
    const int west =
        3600 * std::min(clock[0], 24) + 60 * std::min(clock[1], 59) + std::min(clock[2], 59);
    offset = east ? west : -west;
    return true;
}

bool take_day(Cursor& text, ClockChange& change) {
    if (text.take('M')) {
        change.kind = Kind::kMonthWeekDay;
        return text.take_number(change.month) && text.take('.') && text.take_number(change.week) &&
               text.take('.') && text.take_number(change.day) && change.month >= 1 &&
               change.month <= 12 && change.week >= 1 && change.week <= 5 && change.day <= 6;
    }
    const bool without_leap = text.take('J');
    change.kind = without_leap ? Kind::kDayWithoutLeap : Kind::kDayWithLeap;
    return text.take_number(change.day) && change.day <= 365 &&
           change.day >= (without_leap ? 1 : 0);
}

// A day and, behind a slash, the time of day, 2:00 otherwise. Gives nothing when it is not sound.
bool take_change(Cursor& text, ClockChange& result) {
    ClockChange change;
    text.take(',');
    if (!take_day(text, change)) return false;
    change.seconds = 2 * 3600;
    if (!text.take('/')) {
        result = change;
        return text.at_end() || text.next() == ',';
    }
    const bool negative = text.take('-');
    std::array<int, 3> clock{};
    if (!text.take_clock(clock)) return false;
    const int seconds = 3600 * clock[0] + 60 * clock[1] + clock[2];
    change.seconds = negative ? -seconds : seconds;
    result = change;
    return true;
}

// 00:00 UTC of January 1. Years up to 1970 begin with the epoch: see zone.hpp.
std::int64_t start_of_year(std::int64_t year) {
    return year > 1970 ? kDaySeconds * days_to_year(year) : 0;
}

// The day of the year, from 0, of a change by month, week and day.
int day_of_week_rule(const ClockChange& change, std::int64_t year) {
    const bool leap = is_leap(year);
    const int first = kDaysBefore[leap][change.month - 1];
    const int first_weekday = (weekday(days_to_year(year) + first) + 1) % 7;
    int day = (change.day - first_weekday + 7) % 7;
    for (int week = 1; week < change.week && day + 7 < month_length(change.month, leap); ++week)
        day += 7;
    return first + day;
}

// The instant of a change that ends a time with the given offset.
std::int64_t instant_of_change(const ClockChange& change, std::int64_t year, std::int32_t offset) {
    int day = change.day;
    if (change.kind == Kind::kMonthWeekDay) day = day_of_week_rule(change, year);
    if (change.kind == Kind::kDayWithoutLeap) day = day - 1 + (day >= 60 && is_leap(year));
    return start_of_year(year) + std::int64_t{kDaySeconds} * day - offset + change.seconds;
}

// The second Sunday of March and the first of November, 2:00.
void set_default_days(ZoneRules& rules) {
    rules.sides[0].change = {Kind::kMonthWeekDay, 0, 3, 2, 2 * 3600};
    rules.sides[1].change = {Kind::kMonthWeekDay, 0, 11, 1, 2 * 3600};
}

}  // namespace

bool ZoneRules::daylight(std::int64_t instant) const {
    const std::int64_t year = year_and_day(floor_div(instant, kDaySeconds)).year;
    const std::int64_t start = instant_of_change(sides[0].change, year, sides[0].offset);
    const std::int64_t end = instant_of_change(sides[1].change, year, sides[1].offset);
    if (start > end) return instant < end || instant >= start;  // south of the equator
    return instant >= start && instant < end;
}

ZoneText read_zone_text(std::string_view text) {
    ZoneText result{};
    auto& [standard, daylight] = result.rules.sides;
    Cursor cursor(text);
    if (!cursor.take_name(standard.name) || !take_offset(cursor, standard.offset)) return result;
    if (cursor.at_end()) {
        daylight = standard;
        result.complete = true;
        return result;
    }
    if (!cursor.take_name(daylight.name)) return result;
    if (!take_offset(cursor, daylight.offset)) daylight.offset = standard.offset + 3600;
    if (cursor.at_end() || (cursor.take(',') && cursor.at_end())) {
        set_default_days(result.rules);
        result.complete = true;
        return result;
    }
    result.complete = take_change(cursor, standard.change) &&
                      take_change(cursor, daylight.change) && cursor.at_end();
    return result;
}

std::unique_ptr<Zone> make_zone(const ZoneRules& rules) {
    auto zone = std::make_unique<Zone>();
    zone->rules = rules;
    return zone;
}

std::unique_ptr<Zone> make_zone(std::string_view name, std::int32_t offset) {
    ZoneRules rules;
    for (ZoneRules::Side& side : rules.sides) {
        side.name = name;
        side.offset = offset;
    }
    return make_zone(rules);
}

}  // namespace morva::time
