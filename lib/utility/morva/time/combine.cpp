// What the parts of a time string mean together.
#include <algorithm>
#include <cmath>

#include "morva/epoch.h"
#include "time/reading.hpp"

namespace morva::time {
namespace {

void both_numbers(Reading& r) {
    r.parts.year = to_integer(std::max(r.parts.x1, r.parts.x2));
    r.parts.day = to_integer(std::min(r.parts.x1, r.parts.x2));
    if (r.parts.day > 31) r.fault("str2epoch: number %d not understood", r.parts.day);
}

// A number as "%.Nf" shows it, with a point in every locale.
String shown(double value, int precision) {
    char text[Text::kRoom];
    return {text, put_fixed(text, value, 0, precision)};
}

void one_number(Reading& r) {
    const double x = r.parts.x1;
    if (x < 32) {
        r.parts.day = static_cast<int>(x);
    } else if (x > 1900000 && x < 2200001) {
        r.parts.year = static_cast<int>(x) / 1000;
        r.parts.doy = static_cast<int>(x) % 1000;
    } else if (x < 2200) {
        r.parts.year = static_cast<int>(x);
    } else {
        r.fault("str2epoch: number %s not understood", shown(x, 6).c_str());
    }
}

void default_fields(Parts& parts) {
    if (parts.year >= 0 && parts.year < 100) parts.year += parts.year >= 69 ? 1900 : 2000;
    parts.month = std::max(parts.month, 1);
    parts.day = std::max(parts.day, 1);
    if (parts.am == 1 && parts.hour == 12) parts.hour = 0;
    if (parts.am == 0 && parts.hour < 12) parts.hour += 12;
}

constexpr int kDayHours = 24;

// Without a date hours are a length of time, up to a week.
int most_hours(const Parts& parts) {
    const bool dated = parts.year != 1970 || parts.month != 1 || parts.day != 1 || parts.doy != 0;
    return dated ? kDayHours : 7 * kDayHours;
}

// Counts the first of the fields that is too large.
void check_fields(Reading& r) {
    const Parts& parts = r.parts;
    if (parts.day >= 32)
        r.fault("str2epoch: day = %d is too large", parts.day);
    else if (parts.month > 12)
        r.fault("str2epoch: Month = %d is too large", parts.month);
    else if (parts.minute >= 61)
        r.fault("str2epoch: Minute = %d is too large", parts.minute);
    else if (parts.second > 60)
        r.fault("str2epoch: Second = %s is too large", shown(parts.second, 5).c_str());
    else if (parts.hour > kDayHours && parts.hour > most_hours(parts))
        r.fault("str2epoch: Hour = %d is too large", parts.hour);
}

double calendar_time(Reading& r) {
    Parts& parts = r.parts;
    if (parts.x1 != 0 && parts.x2 != 0)
        both_numbers(r);
    else if (parts.x1 != 0)
        one_number(r);
    default_fields(parts);
    check_fields(r);
    if (parts.doy == 0) parts.doy = mday2doy(parts.year, parts.month, parts.day);
    if (parts.doy > 366)
        r.fault("str2epoch: Doy = %d is too large", parts.doy);
    else if (is_early(parts.year)) [[likely]]
        return early_epoch(parts.year, parts.doy, parts.hour, parts.minute, parts.second);
    return h2e(parts.year, parts.doy, parts.hour, parts.minute, parts.second);
}

// The instant at which the clocks of the zone show what those of UTC show at `utc`.
double in_zone(Reading& r, double utc) {
    // Farther away there is no zone's time; offsets can still be added to this.
    constexpr double kFarthest = 4e18;
    const std::int64_t whole = floor_of(std::clamp(utc, -kFarthest, kFarthest));
    const auto instant = instant_of(*r.zone, whole);
    if (!instant) {
        r.fault("str2epoch: Can't convert to local timezone before 1970\n");
        return utc;
    }
    const double converted = static_cast<double>(*instant);
    if (!(std::abs(converted - utc) <= kDay)) {
        const malloced<char> difference(strtdelta(converted - utc));
        r.fault("str2epoch: invalid timezone difference = %s", difference.get());
        return utc;
    }
    return converted + (utc - static_cast<double>(whole));
}

bool lone_number(const Parts& parts) {
    return parts.x1 != 0 && parts.x2 == 0 && parts.month == -1 && parts.hour == 0 &&
           parts.minute == 0 && parts.second == 0 && parts.doy == 0;
}

}  // namespace

double combine(Reading& r) {
    Parts& parts = r.parts;
    if (parts == Parts{}) {
        ++r.errors;
        r.conclude("nothing is set");
    }
    if (lone_number(parts)) {
        parts.etime = parts.x1;
        r.conclude("a number alone is the epoch time");
    }
    if (parts.etime == Parts::kNotSet) {
        parts.etime = calendar_time(r);
    } else if (parts.month != -1 || parts.hour != 0 || parts.minute != 0 || parts.doy != 0) {
        r.conclude("the time is set directly: calendar fields do not count");
    }
    if (!parts.has_zone) return parts.etime;
    r.conclude("the clock time is that of the zone");
    return in_zone(r, parts.etime);
}

double read_time(const char* text, Reading& reading) {
    if (text != nullptr) scan(text, reading);
    return combine(reading);
}

}  // namespace morva::time
