// Lengths of time as text, and the endings of ordinal numbers.
#include <cmath>
#include <cstring>

#include "time/fields.hpp"

namespace morva::time {
namespace {

constexpr double kYear = 31536000;
constexpr double kHour = 3600;
constexpr double kMinute = 60;
constexpr std::ptrdiff_t kLeastLength = 21;

char* put(char* at, std::string_view text) {
    std::memcpy(at, text.data(), text.size());
    return at + text.size();
}

char* put_years(char* at, double t) {
    const double years = std::floor(t / kYear);
    const double days = std::floor((t - years * kYear) / kDay);
    if (days != 0) {
        at = years > 1e6 ? put_general(at, years, 0, 6) : put_fixed(at, years, 0, 0);
        return put(put_fixed(put(at, " years "), days, 0, 0), " days");
    }
    return put(years < 1e6 ? put_fixed(at, years, 0, 0) : put_general(at, years, 0, 6), " years");
}

char* put_days(char* at, double t) {
    const double days = std::floor(t / kDay);
    const double hours = std::floor((t - days * kDay) * 10 / kHour) / 10;
    at = put(put_fixed(at, days, 0, 0), " days");
    return hours != 0 ? put(put_fixed(put(at, " "), hours, 0, 1), " hours") : at;
}

// "12:07 hours" of a count of the smaller unit, blanks before and zeros behind the colon.
char* put_clock(char* at, double count, std::string_view unit) {
    const double large = std::floor(count / 60);
    const double small = count - 60 * large;
    at = put(put_fixed(at, large, 2, 0), small < 10 ? ":0" : ":");
    return put(put_fixed(at, small, 0, 0), unit);
}

char* put_small(char* at, double t) {
    if (t >= 1) return put(put_fixed(at, t, 7, 3), " seconds");
    if (t >= 1e-3) return put(put_fixed(at, t * 1e3, 7, 3), " milliseconds");
    if (t >= 1e-6) return put(put_fixed(at, t * 1e6, 7, 3), " microseconds");
    if (t >= 1e-9) return put(put_fixed(at, t * 1e9, 7, 3), " nanoseconds");
    if (t == 0) return put(put_fixed(at, t, 3, 0), " seconds");
    return put(put_general(at, t * 1e12, 0, 5), " picoseconds");
}

char* put_length(char* at, double t) {
    if (t >= kYear) return put_years(at, t);
    if (t >= kDay) return put_days(at, t);
    if (t >= kHour) return put_clock(at, std::floor(t / kMinute + 0.5), " hours");
    if (t >= kMinute) return put_clock(at, std::floor(t + 0.5), " minutes");
    return put_small(at, t);
}

}  // namespace
}  // namespace morva::time

using namespace morva::time;

extern "C" {

const char* ordinal(int n) {
    if (n >= 4 && n % 100 <= 20) return "th";  // so 101, 102 and 103 are, too
    switch (n % 10) {
        case 1:
            return "st";
        case 2:
            return "nd";
        case 3:
            return "rd";
        default:
            return "th";
    }
}

char* strtdelta(double seconds) {
    Text text;
    char* const start = text.start();
    *start = seconds < 0 ? '-' : ' ';
    char* at = put_length(start + 1, seconds < 0 ? -seconds : seconds);
    while (at - start < kLeastLength) *at++ = ' ';
    if (*start == '-') {  // to the place before the first digit
        char* to = start;
        while (to[1] == ' ') ++to;
        std::swap(*start, *to);
    }
    text.finish(at);
    return text.copy();
}

}  // extern "C"
