// Day arithmetic of the Gregorian calendar, extended over all years. Year 0 is the year before 1.
#pragma once

#include <array>
#include <cstdint>

namespace morva::time {

constexpr double kDay = 86400;
constexpr int kDaySeconds = 86400;

constexpr bool is_leap(std::int64_t year) {
    return (year & (year % 25 == 0 ? 15 : 3)) == 0;  // of centuries, every fourth
}

constexpr bool is_leap(int year) {
    return (year & (year % 25 == 0 ? 15 : 3)) == 0;
}

constexpr std::int64_t floor_div(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0);
}

// Days from 1970-01-01 to January 1 of a year (within 10^15).
constexpr std::int64_t days_to_year(std::int64_t year) {
    return 365 * (year - 1970) + floor_div(year - 1969, 4) - floor_div(year - 1901, 100) +
           floor_div(year - 1601, 400);
}

// The same of the first two million years.
constexpr std::uint32_t kEarlyYears = 1 << 21;
constexpr bool is_early(int year) {
    return static_cast<std::uint32_t>(year) - 1 < kEarlyYears;
}
constexpr int days_to_early_year(int year) {
    const std::uint32_t whole = static_cast<std::uint32_t>(year) - 1;
    return static_cast<int>(1461 * whole / 4 - whole / 100 + whole / 400) - 719162;
}

// An epoch time of a day of the year from 0 to 999 of an early year: all but the second stays
// whole.
constexpr double early_epoch(int year, int doy, int hour, int minute, double second) {
    const std::int64_t day = days_to_early_year(year) + doy - 1;
    const std::int64_t minutes = 60 * std::int64_t{hour} + minute;
    return static_cast<double>(kDaySeconds * day + 60 * minutes) + second;
}

// Days from 1970-01-01 to a day of the year, counted from 1; it need not lie within the year.
constexpr std::int64_t day_number(std::int64_t year, std::int64_t doy) {
    return days_to_year(year) + doy - 1;
}

struct YearDay {
    std::int64_t year;
    int doy;
};

// The days of some years in a row, the first of which follows a year whose number is a multiple of
// 400: leap days are then the last days of their four years. Year and day of the year count from 0.
// C. Neri and L. Schneider, "Euclidean affine functions and their application to calendar
// algorithms", Software: Practice and Experience 53 (2023). Days below 2^30.
constexpr YearDay split_days(std::uint32_t days) {
    const std::uint32_t quarters = 4 * days + 3;
    const std::uint32_t century = quarters / 146097;
    const std::uint32_t of_century = quarters % 146097 | 3;
    const std::uint32_t year = of_century / 1461;
    return {100 * century + year, static_cast<int>(of_century % 1461 / 4)};
}

// The inverse of day_number (day within 10^17).
constexpr YearDay year_and_day(std::int64_t day) {
    constexpr std::int64_t kEra = 146097;  // days of 400 years
    const std::int64_t since_year_1 = day - days_to_year(1);
    if (since_year_1 >= 0 && since_year_1 < 1 << 30) {
        const auto [year, doy] = split_days(static_cast<std::uint32_t>(since_year_1));
        return {year + 1, doy + 1};
    }
    const std::int64_t era = floor_div(since_year_1, kEra);
    const auto [year, doy] = split_days(static_cast<std::uint32_t>(since_year_1 - era * kEra));
    return {400 * era + year + 1, doy + 1};
}

constexpr int kMonthLengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

constexpr int month_length(int month, bool leap) {
    return kMonthLengths[month - 1] + (leap && month == 2);
}

// Days of the year before each month, plain years and leap years.
constexpr auto kDaysBefore = [] {
    std::array<std::array<int, 13>, 2> days{};
    for (int leap = 0; leap < 2; ++leap)
        for (int month = 1; month <= 12; ++month)
            days[leap][month] = days[leap][month - 1] + month_length(month, leap != 0);
    return days;
}();

// The month, from 1, of each day of the year, from 1.
constexpr auto kMonthOf = [] {
    std::array<std::array<std::uint8_t, 367>, 2> months{};
    for (int leap = 0; leap < 2; ++leap)
        for (int doy = 1, month = 1; doy <= 366; ++doy) {
            while (month < 12 && doy > kDaysBefore[leap][month]) ++month;
            months[leap][doy] = static_cast<std::uint8_t>(month);
        }
    return months;
}();

// 0 for Monday.
constexpr int weekday(std::int64_t day) {
    return static_cast<int>(day + 3 - 7 * floor_div(day + 3, 7));
}

static_assert(days_to_early_year(1) == days_to_year(1) &&
              days_to_early_year(kEarlyYears) == days_to_year(kEarlyYears) &&
              days_to_early_year(2000) == days_to_year(2000) && days_to_year(1970) == 0 &&
              day_number(2014, 1) * kDaySeconds == 1388534400);
static_assert(year_and_day(-1).year == 1969 && year_and_day(-1).doy == 365);
static_assert(kMonthOf[1][60] == 2 && kMonthOf[0][60] == 3 && weekday(0) == 3);

}  // namespace morva::time
