// ISO 8601 times, read strictly.
#include "morva/iso.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/strings.h"
#include "time/calendar.hpp"

namespace morva::time {
namespace {

constexpr std::int64_t kSecond = 1000000000;  // in nanoseconds
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kHour = 60 * kMinute;

struct Instant {
    std::int64_t day = 0;
    std::int64_t nanoseconds = 0;  // of the day; below 0 and beyond by an offset
};

// Reads from the front of a text; what does not fit is remembered, so that a reading can go on to
// its end and ask once.
class Reader {
  public:
    explicit Reader(const char* text) : at_(text) {}

    bool good() const { return good_; }
    bool at_end() const { return *at_ == '\0'; }
    bool take(char c) {
        if (*at_ != c) return false;
        ++at_;
        return true;
    }
    void require(bool condition) { good_ &= condition; }
    bool digits_follow(int count) const {
        return std::strspn(at_, "0123456789") == static_cast<std::size_t>(count);
    }

    // Exactly so many digits.
    int number(int digits) {
        int value = 0;
        for (; digits > 0 && is_digit(); --digits) value = 10 * value + (*at_++ - '0');
        require(digits == 0);
        return value;
    }
    // The fraction of a unit, in nanoseconds; 0 when there is none.
    std::int64_t fraction(std::int64_t unit) {
        if (!take('.') && !take(',')) return 0;
        require(is_digit());
        std::int64_t value = 0, scale = 1;
        for (; is_digit(); ++at_) {
            if (scale == kSecond) continue;
            value = 10 * value + (*at_ - '0');
            scale *= 10;
        }
        ended_ = true;
        return value * (unit / kSecond) * (kSecond / scale);
    }
    bool fraction_taken() const { return ended_; }

  private:
    bool is_digit() const { return *at_ >= '0' && *at_ <= '9'; }

    const char* at_;
    bool good_ = true;
    bool ended_ = false;
};

std::int64_t day_of_month(Reader& text, int year, int month, int day) {
    const bool leap = is_leap(year);
    const bool exists = month >= 1 && month <= 12 && day >= 1 && day <= month_length(month, leap);
    text.require(exists);
    return exists ? day_number(year, kDaysBefore[leap][month - 1] + day) : 0;
}

std::int64_t day_of_year(Reader& text, int year, int doy) {
    text.require(doy >= 1 && doy <= (is_leap(year) ? 366 : 365));
    return day_number(year, doy);
}

// The date; tells whether it was written with dashes.
std::int64_t read_date(Reader& text, bool* dashes) {
    const bool ordinal = text.digits_follow(7);
    const int year = text.number(4);
    *dashes = text.take('-');
    if (*dashes ? text.digits_follow(3) : ordinal) return day_of_year(text, year, text.number(3));
    const int month = text.number(2);
    if (*dashes) text.require(text.take('-'));
    return day_of_month(text, year, month, text.number(2));
}

// Another part of a clock time follows, behind a colon or, in the short form, at once.
bool goes_on(Reader& text, bool colons, int digits_left) {
    if (text.fraction_taken()) return false;
    return colons ? text.take(':') : digits_left > 0;
}

std::int64_t read_clock(Reader& text, bool colons) {
    int left = 0;
    while (left <= 6 && !text.digits_follow(left)) ++left;
    const int hour = text.number(2);
    std::int64_t time = hour * kHour + text.fraction(kHour);
    if (goes_on(text, colons, left - 2)) {
        const int minute = text.number(2);
        text.require(minute < 60);
        time += minute * kMinute + text.fraction(kMinute);
        if (goes_on(text, colons, left - 4)) {
            const int second = text.number(2);
            text.require(second <= 60);
            time += second * kSecond + text.fraction(kSecond);
        }
    }
    text.require(hour < 24 || time == 24 * kHour);
    return time;
}

std::int64_t read_offset(Reader& text) {
    if (text.at_end() || text.take('Z')) return 0;
    const bool west = text.take('-');
    text.require(west || text.take('+'));
    const int hour = text.number(2);
    const bool minutes = text.take(':') || text.digits_follow(2);
    const int minute = minutes ? text.number(2) : 0;
    text.require(hour < 24 && minute < 60);
    const std::int64_t offset = hour * kHour + minute * kMinute;
    return west ? -offset : offset;
}

bool read_instant(const char* words, Instant* instant) {
    Reader text(words);
    bool dashes = false;
    instant->day = read_date(text, &dashes);
    if (text.good() && text.take('T')) {
        instant->nanoseconds = read_clock(text, dashes);
        if (text.good()) instant->nanoseconds -= read_offset(text);
    }
    return text.good() && text.at_end();
}

}  // namespace
}  // namespace morva::time

using namespace morva::time;

extern "C" {

int iso2epoch(const char* text, double* epoch, std::int64_t* nanoseconds) {
    Instant instant;
    if (text == nullptr || !read_instant(text, &instant)) {
        elog_log(0, "iso2epoch: '%s' is not a time of ISO 8601\n", okstr(text));
        return -1;
    }
    const __int128 total =
        static_cast<__int128>(instant.day) * (kDaySeconds * kSecond) + instant.nanoseconds;
    const bool fits = total == static_cast<std::int64_t>(total);
    if (nanoseconds != nullptr && !fits) {
        elog_log(0, "iso2epoch: '%s' is beyond what 64 bits of nanoseconds hold\n", text);
        return -1;
    }
    if (nanoseconds != nullptr) *nanoseconds = static_cast<std::int64_t>(total);
    if (epoch != nullptr)
        *epoch = static_cast<double>(static_cast<long double>(instant.day) * kDaySeconds +
                                     static_cast<long double>(instant.nanoseconds) / kSecond);
    return 0;
}

char* epoch2iso(std::int64_t nanoseconds, int digits) {
    const std::int64_t seconds = floor_div(nanoseconds, kSecond);
    const std::int64_t day = floor_div(seconds, kDaySeconds);
    const int of_day = static_cast<int>(seconds - day * kDaySeconds);
    const auto [year, doy] = year_and_day(day);
    const bool leap = is_leap(year);
    const int month = kMonthOf[leap][doy];
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%09d",
                  static_cast<int>((nanoseconds % kSecond + kSecond) % kSecond));
    fraction[digits <= 0 ? 0 : 1 + std::min(digits, 9)] = '\0';
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%sZ", static_cast<int>(year),
                  month, doy - kDaysBefore[leap][month - 1], of_day / 3600, of_day / 60 % 60,
                  of_day % 60, fraction);
    return must_strdup(text, "iso", MORVA_HERE);
}

}  // extern "C"
