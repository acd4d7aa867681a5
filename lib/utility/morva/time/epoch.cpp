// Calendar arithmetic between epoch times and fields.
//
// Breaking down a time is documented as numbered steps of floating-point arithmetic that find the
// year to within one. They are right as long as fewer than 366 leap days have gathered since 1970,
// or to it; within these years integer arithmetic gives the same result sooner.
#include "morva/epoch.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "skerrows.h"
#include "time/calendar.hpp"
#include "time/fields.hpp"

extern "C" {

const int days_in_month[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const char* const month_name[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const Month[12] = {"January",   "February", "March",    "April",
                               "May",       "June",     "July",     "August",
                               "September", "October",  "November", "December"};
const char* const Week[7] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                             "Friday", "Saturday", "Sunday"};
}

namespace morva::time {
namespace {

constexpr double kFirstExact = kDay * static_cast<double>(days_to_year(462));
constexpr double kEndExact = kDay * static_cast<double>(days_to_year(3476));
constexpr double kLargestYear = 922337203685477.6;  // so that year * 1000 + doy fits a long

struct Date {
    long date;  // yearday
    int year;
    int doy;
};

bool leap_of(double year) {
    return is_leap(to_integer<std::int64_t>(year));
}

// The documented steps, for any day.
Date date_by_steps(double day) {
    double year = std::floor(day / 365) + 1970;
    double rest = day - ::year2days(year);
    if (rest < -366) {
        rest = 0;
    } else if (rest < 0) {
        year -= 1;
        rest += leap_of(year) ? 366 : 365;
    } else if (rest >= 730) {
        rest = 0;
    } else if (const int length = leap_of(year) ? 366 : 365; rest >= length) {
        year += 1;
        rest -= length;
    }
    const double clamped = std::clamp(year, -kLargestYear, kLargestYear);
    const int doy = to_integer(rest + 1);
    return {to_integer<long>(clamped) * 1000 + doy, to_integer(clamped), doy};
}

struct Clock {
    int hour;
    int minute;
    double second;
};

Clock clock_of(double seconds) {
    const int whole = static_cast<int>(seconds);
    const int minutes = whole / 60;
    return {minutes / 60, minutes % 60, seconds - 60 * minutes};
}

struct MonthDay {
    int month;
    int day;
};

MonthDay month_and_day(int doy, bool leap) {
    const int length = kDaysBefore[leap][12];
    if (doy > length) return {12, doy - length};
    if (doy < 1) return {1, doy};
    const int month = kMonthOf[leap][doy];
    return {month, doy - kDaysBefore[leap][month - 1]};
}

struct Moment {
    Date date;
    Clock clock;
};

// Day and clock time by the documented steps.
[[gnu::noinline]] Moment break_down_by_steps(double epoch) {
    const double day = std::floor(epoch / kDay);
    double seconds = epoch - day * kDay;
    if (seconds > kDay) seconds = 0;
    const Date date = date_by_steps(day);
    if (seconds >= 0) return {date, clock_of(seconds)};
    const double hour = std::floor(seconds / 3600);  // the day is too large to be exact, or NaN
    const double minute = std::floor((seconds - 3600 * hour) / 60);
    return {date, {to_integer(hour), to_integer(minute), seconds - 3600 * hour - 60 * minute}};
}

inline Moment break_down(double epoch) {
    if (!(epoch >= kFirstExact && epoch < kEndExact)) return break_down_by_steps(epoch);
    // The quotient of the documented steps never rounds up to a whole number: integers do as well.
    const std::int64_t day = floor_div(floor_of(epoch), kDaySeconds);
    const double seconds = epoch - static_cast<double>(day * kDaySeconds);
    if (seconds >= kDay) return break_down_by_steps(epoch);  // a trifle before midnight
    const auto [year, doy] = year_and_day(day);
    return {{year * 1000 + doy, static_cast<int>(year), doy}, clock_of(seconds)};
}

[[gnu::noinline]] double epoch_of_day(std::int64_t yearday) {
    return kDay * static_cast<double>(day_number(yearday / 1000, yearday % 1000));
}

[[gnu::noinline]] double epoch_of_any(int year, int doy, int hour, int minute, double second) {
    return epoch_of_day(1000 * static_cast<std::int64_t>(year) + doy) + 3600.0 * hour +
           60.0 * minute + second;
}

// Takes digits off the front of a text.
double take_digits(std::string_view& text) {
    double value = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        value = 10 * value + (text.front() - '0');
        text.remove_prefix(1);
    }
    if (!text.empty()) text.remove_prefix(1);  // the separator
    return value;
}

double decimal(std::string_view text) {
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return value;
}

}  // namespace

Fields utc_fields(double epoch) {
    const auto [date, clock] = break_down(epoch);
    const auto [month, day] = month_and_day(date.doy, is_leap(date.year));
    return {.epoch = epoch,
            .second = clock.second,
            .zone = "UTC",
            .year = date.year,
            .month = month,
            .day = day,
            .doy = date.doy,
            .hour = clock.hour,
            .minute = clock.minute,
            .whole_second = to_integer(clock.second)};
}

}  // namespace morva::time

using namespace morva::time;

extern "C" {

int isleap(int year) {
    return is_leap(year);
}

double dtoepoch(int yearday) {
    return epoch_of_day(yearday);
}

double year2days(double year) {
    return (year - 1970) * 365 + std::floor((year - 1969) / 4) - std::floor((year - 1901) / 100) +
           std::floor((year - 1601) / 400);
}

double epoch(int yearday) {
    return h2e(yearday / 1000, yearday % 1000, 0, 0, 0.0);
}

int yearday(double epoch) {
    const long date = break_down(epoch).date.date;
    return to_integer(static_cast<double>(date));
}

double h2e(int year, int doy, int hour, int minute, double second) {
    if (is_early(year) && static_cast<unsigned>(doy) < 1000) [[likely]]
        return early_epoch(year, doy, hour, minute, second);
    return epoch_of_any(year, doy, hour, minute, second);
}

void e2h(double epoch, int* year, int* doy, int* hour, int* minute, double* second) {
    const auto [date, clock] = break_down(epoch);
    *year = date.year;
    *doy = date.doy;
    *hour = clock.hour;
    *minute = clock.minute;
    *second = clock.second;
}

void doy2mday(int doy, int year, int* month, int* day) {
    const MonthDay found = month_and_day(doy, is_leap(year));
    *month = found.month;
    *day = found.day;
}

int mday2doy(int year, int month, int day) {
    const int before = kDaysBefore[is_leap(year)][std::clamp(month, 1, 13) - 1];
    return day <= std::numeric_limits<int>::max() - before ? before + day
                                                           : std::numeric_limits<int>::max();
}

void etoh(DateTime* time) {
    const auto [date, clock] = break_down(time->epoch);
    time->date = date.date;
    time->year = date.year;
    time->doy = date.doy;
    time->hour = clock.hour;
    time->minute = clock.minute;
    time->second = clock.second;
    month_day(time);
}

void htoe(DateTime* time) {
    time->epoch =
        epoch_of_day(time->date) + time->hour * 3600.0 + time->minute * 60.0 + time->second;
}

void mdtodate(DateTime* time) {
    time->doy = mday2doy(time->year, time->month, time->day);
    time->date = 1000 * static_cast<long>(time->year) + time->doy;
}

void month_day(DateTime* time) {
    const MonthDay found = month_and_day(time->doy, is_leap(time->year));
    time->month = found.month;
    time->day = found.day;
    std::memcpy(time->mname, month_name[found.month - 1], sizeof time->mname);
}

int todaysdate(void) {
    return yearday(std_now());
}

void zh_today(DateTime* time) {
    time->epoch = dtoepoch(todaysdate());
    etoh(time);
}

double timecon(const char* text) {
    constexpr std::size_t kLongest = 19;
    if (text == nullptr) return 0;
    std::string_view rest(text, strnlen(text, kLongest));
    const double hours = take_digits(rest);
    const double minutes = take_digits(rest);
    return hours * 3600 + minutes * 60 +
           decimal(rest.substr(0, rest.find_first_not_of("0123456789.")));
}

}  // extern "C"
