// The tokens of time strings: one table of what they look like and what they do.
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/diagnostics.hpp"
#include "morva/epoch.h"
#include "morva/files.h"
#include "skerrows.h"
#include "time/reading.hpp"
#include "time/shapes.hpp"

namespace morva::time {
namespace {

constexpr double kHour = 3600;
constexpr double kMinute = 60;

// A number with its sign, point and exponent, as strtod reads it in the "C" locale.
double real(std::string_view text) {
    if (text.front() == '+') text.remove_prefix(1);
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc::result_out_of_range) return value;
    const String copy(text);
    return fix_strtod(copy.c_str(), nullptr);
}

// A number of so many digits, and no more than nine.
int digits_at(const char* at, int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) value = 10 * value + (at[i] - '0');
    return value;
}

// The numbers in a token, one after the other, with one character between two of them; 0 when there
// are no more.
class Numbers {
  public:
    // Starts behind so many characters of the token.
    explicit Numbers(std::string_view text, int skipped = 0)
        : at_(text.data() + skipped), end_(text.data() + text.size()) {}

    const char* rest() const { return at_; }
    void skip(int characters) { at_ += characters; }

    // An int is cut to INT_MAX.
    int integer() {
        const char* start = at_;
        const std::uint64_t value = take_digits(0);
        const char* end = at_;
        if (!at_end()) ++at_;
        return end - start <= kSureDigits ? static_cast<int>(value) : long_integer(start, end);
    }
    // The last number, with a fraction or not. Up to 15 digits with a point among them are the
    // quotient of two exact numbers.
    double number() {
        const char* start = at_;
        std::uint64_t digits = take_digits(0);
        const char* fraction = at_;
        if (!at_end() && *at_ == '.') {
            fraction = ++at_;
            digits = take_digits(digits);
        }
        if (at_ - start > kExactDigits) return real({start, static_cast<std::size_t>(at_ - start)});
        const auto whole = static_cast<double>(static_cast<std::int64_t>(digits));
        return fraction == at_ ? whole : whole / kPowers[at_ - fraction];
    }

    bool at_end() const { return at_ == end_; }

  private:
    static constexpr int kSureDigits = 9;
    static constexpr int kExactDigits = 15;
    static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6, 1e7,
                                         1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14};

    std::uint64_t take_digits(std::uint64_t value) {
        for (; !at_end(); ++at_) {
            const std::uint64_t digit = static_cast<unsigned char>(*at_) - std::uint64_t{'0'};
            if (digit > 9) break;
            value = 10 * value + digit;
        }
        return value;
    }
    // Of more digits than are sure to fit.
    static int long_integer(const char* digits, const char* end) {
        std::int64_t value = 0;
        for (; digits != end; ++digits)
            if ((value = 10 * value + (*digits - '0')) > INT_MAX) return INT_MAX;
        return static_cast<int>(value);
    }

    const char* at_;
    const char* end_;
};

// A message with the token in it, which may be of any length.
void bad(Reading& r, const char* what, std::string_view text) {
    String quoted(text);
    r.fault("str2epoch: %s'%s'", what, quoted.c_str());
}

void set_yearday(Parts& parts, int yearday) {
    parts.year = yearday / 1000;
    parts.doy = yearday % 1000;
}

void check_date(Reading& r, const Token& token) {
    if (r.parts.month > 12 || r.parts.day > 31) bad(r, "Bad date format:", token.text);
}

bool month_first(Reading& r) {
    return r.order == DateOrder::kHouse ? is_month_first() != 0 : r.order == DateOrder::kMonthFirst;
}

// Three numbers of which a large first one is the year. Where the second and the third are not
// given, they are what stood in their fields before.
void set_date(Reading& r, int a, const int* b, const int* c) {
    Parts& parts = r.parts;
    const bool american = month_first(r);
    int& first = american ? parts.month : parts.day;
    int& second = american ? parts.day : parts.month;
    const int middle = b != nullptr ? *b : second;
    const int last = c != nullptr ? *c : parts.year;
    if (a < 32) {
        first = a;
        second = middle;
        parts.year = last;
    } else {
        parts.year = a;
        parts.month = middle;
        parts.day = last;
    }
}

void slash_date(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    const int a = numbers.integer(), b = numbers.integer(), c = numbers.integer();
    set_date(r, a, &b, &c);
    check_date(r, token);
    r.ambiguous |= a <= 12 && b <= 12 && a != b;
}

// Deliberately read as a date with slashes, which ends at the first dash.
void dash_numbers(Reading& r, const Token& token) {
    set_date(r, Numbers(token.text).integer(), nullptr, nullptr);
    check_date(r, token);
}

void iso_date(Reading& r, const Token& token) {
    const char* date = token.text.data();
    r.parts.year = digits_at(date, 4);
    r.parts.month = digits_at(date + 5, 2);
    r.parts.day = digits_at(date + 8, 2);
    check_date(r, token);
}

void year_and_doy(Reading& r, const Token& token) {
    r.parts.year = digits_at(token.text.data(), 4);
    r.parts.doy = digits_at(token.text.data() + 5, 3);
    if (r.parts.doy > 366) bad(r, "Bad date format:", token.text);
}

void month(Reading& r, const Token& token) {
    r.parts.month = token.value;
}

void weekday_name(Reading& r, const Token& token) {
    r.parts.weekday = token.value;
}

void now(Reading& r, const Token&) {
    r.parts.etime = std_now();
}

void day_with_comma(Reading& r, const Token& token) {
    r.parts.day = Numbers(token.text).integer();
}

void yearday_number(Reading& r, const Token& token) {
    set_yearday(r.parts, digits_at(token.text.data(), 7));
    if (r.parts.doy > 366) bad(r, "Bad jdate format:", token.text);
}

void doy_in_parentheses(Reading& r, const Token& token) {
    r.parts.doy = Numbers(token.text, 1).integer();
}

void minute_second(Reading& r, const Token& token) {
    Numbers numbers(token.text, 1);
    r.parts.minute = numbers.integer();
    r.parts.second = numbers.number();
}

// The rest of a token: hour, minute, second.
void set_clock(Parts& parts, Numbers& numbers) {
    parts.hour = numbers.integer();
    parts.minute = numbers.integer();
    parts.second = numbers.number();
}

void clock_or_yearday(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    const int a = numbers.integer(), b = numbers.integer();
    const double c = numbers.number();
    if (a <= 24 && b <= 59 && c < 60) {
        r.parts.hour = a;
        r.parts.minute = b;
        r.parts.second = c;
    } else if (a >= 1970001 && a <= 2099999 && b <= 24 && c < 60) {
        set_yearday(r.parts, a);
        r.parts.hour = b;
        r.parts.minute = static_cast<int>(c);
    } else {
        bad(r, "bad input ", token.text);
    }
}

void yearday_clock(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    set_yearday(r.parts, numbers.integer());
    set_clock(r.parts, numbers);
}

void year_doy_clock(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    r.parts.year = numbers.integer();
    r.parts.doy = numbers.integer();
    set_clock(r.parts, numbers);
}

void year_doy_clock_milliseconds(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    r.parts.year = numbers.integer();
    r.parts.doy = numbers.integer();
    set_clock(r.parts, numbers);
    numbers.skip(1);
    r.parts.second += numbers.number() / 1000;
}

int month_of(const char* letters) {
    int number = 1;
    for (const char* name : month_name) {
        if (strncasecmp(name, letters, 3) == 0) return number;
        ++number;
    }
    return 0;
}

void year_month_day_clock(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    r.parts.year = numbers.integer();
    r.parts.month = month_of(numbers.rest());
    numbers.skip(4);
    r.parts.day = numbers.integer();
    set_clock(r.parts, numbers);
}

void minute(Reading& r, const Token& token) {
    r.parts.minute = Numbers(token.text, 1).integer();
}

void hour_minute(Reading& r, const Token& token) {
    Numbers numbers(token.text);
    r.parts.hour = numbers.integer();
    r.parts.minute = numbers.integer();
}

// Offsets from now: hours, of which there need not be any, minutes and perhaps seconds.
void offset_from_now(Reading& r, const Token& token) {
    Numbers numbers(token.text, 1);
    const double hours = numbers.integer();
    const double minutes = numbers.integer();
    const double seconds = numbers.integer();
    const double offset = hours * kHour + minutes * kMinute + seconds;
    r.parts.etime = token.text[0] == '-' ? std_now() - offset : std_now() + offset;
}

void set_day_of(Parts& parts, double epoch) {
    const Fields fields = utc_fields(epoch);
    parts.year = fields.year;
    parts.doy = fields.doy;
}

void days_ago(Reading& r, const Token& token) {
    set_day_of(r.parts, std_now() - Numbers(token.text, 1).integer() * kDay);
}

void days_since_origin(Reading& r, const Token& token) {
    set_day_of(r.parts, Numbers(token.text).integer() * kDay);
}

void epoch_number(Reading& r, const Token& token) {
    const bool negative = token.text[0] == '-';
    Numbers plain(token.text, negative || token.text[0] == '+' ? 1 : 0);
    const double value = plain.number();
    r.parts.etime = !plain.at_end() ? real(token.text) : negative ? -value : value;
}

void bare_number(Reading& r, const Token& token) {
    const double value = Numbers(token.text).number();
    if (r.parts.x1 == 0)
        r.parts.x1 = value;
    else if (r.parts.x2 == 0)
        r.parts.x2 = value;
    else
        bad(r, "extra number ", token.text);
}

void am(Reading& r, const Token&) {
    r.parts.am = 1;
}

void pm(Reading& r, const Token&) {
    r.parts.am = 0;
}

void ignore(Reading&, const Token&) {}

void zone_name(Reading& r, const Token& token) {
    const bool local = token.text.size() == 5 && strncasecmp(token.text.data(), "local", 5) == 0;
    ZoneRef zone = local ? local_zone() : find_named_zone(token.text);
    if (!zone) {
        const String name(token.text);
        return r.fault("str2epoch: no timezone '%s'\n", name.c_str());
    }
    r.zone = std::move(zone);
    r.parts.has_zone = true;
}

void foreign(Reading& r, const Token& token) {
    const auto c = static_cast<unsigned char>(token.text[0]);
    if (c >= ' ' && c <= '~')
        r.fault("str2epoch: can't interpret '%c'\n", c);
    else
        r.fault("str2epoch: can't interpret character 0x%x\n", c);
}

// Longest match first; of equally long ones, the first row.
constexpr Rule kRules[] = {
    {1, "#/#/#", slash_date, "date"},
    {2, "9999-99-99", iso_date, "date"},
    {3, "9999-999", year_and_doy, "year and day of the year"},
    {4, "#-#-#", dash_numbers, "numbers with dashes, of which the first counts"},
    {5, "jan[uary]", month, "month", 1},
    {6, "feb[ruary]", month, "month", 2},
    {7, "mar[ch]", month, "month", 3},
    {8, "apr[il]", month, "month", 4},
    {9, "may", month, "month", 5},
    {10, "jun[e]", month, "month", 6},
    {11, "jul[y]", month, "month", 7},
    {12, "aug[ust]", month, "month", 8},
    {13, "sep[tember]", month, "month", 9},
    {14, "oct[ober]", month, "month", 10},
    {15, "nov[ember]", month, "month", 11},
    {16, "dec[ember]", month, "month", 12},
    {17, "now", now, "the present"},
    {18, "mon[day]", weekday_name, "day of the week, which does not count", 1},
    {19, "tue[sday]", weekday_name, "day of the week, which does not count", 2},
    {20, "wed[nesday]", weekday_name, "day of the week, which does not count", 3},
    {21, "thu[rsday]", weekday_name, "day of the week, which does not count", 4},
    {22, "fri[day]", weekday_name, "day of the week, which does not count", 5},
    {23, "sat[urday]", weekday_name, "day of the week, which does not count", 6},
    {24, "sun[day]", weekday_name, "day of the week, which does not count", 0},
    {25, "#,", day_with_comma, "day of the month"},
    {26, "9999999", yearday_number, "yearday"},
    {27, "(#)", doy_in_parentheses, "day of the year"},
    {28, ":#:~", minute_second, "minute and second"},
    {29, "#:#:~", clock_or_yearday, "clock time"},
    {30, "9999999:#:#:~", yearday_clock, "yearday and clock time"},
    {31, "#:#:#:#:~", year_doy_clock, "year, day of the year and clock time"},
    {32, "#:#:#:#:#:#", year_doy_clock_milliseconds,
     "year, day of the year, clock time and milliseconds"},
    {33, "#:$:#:#:#:~", year_month_day_clock, "date and clock time"},
    {45, ":#", minute, "minute"},
    {46, "#:#", hour_minute, "clock time"},
    {47, "-:#", offset_from_now, "minutes before now"},
    {48, "-#:#", offset_from_now, "hours and minutes before now"},
    {49, "-#:#:#", offset_from_now, "hours, minutes and seconds before now"},
    {50, "-#day[s]", days_ago, "the day so many days before today"},
    {51, "#day[s]", days_since_origin, "the day so many days after 1970-01-01"},
    {52, "+:#", offset_from_now, "minutes from now"},
    {53, "+#:#", offset_from_now, "hours and minutes from now"},
    {54, "+#:#:#", offset_from_now, "hours, minutes and seconds from now"},
    {55, "!#.[#]|!.#", epoch_number, "epoch time"},
    {56, "-#", epoch_number, "epoch time before 1970"},
    {57, "!~e!#|!.#e!#", epoch_number, "epoch time"},
    {58, "#", bare_number, "number"},
    {59, "am", am, "before noon"},
    {60, "pm", pm, "after noon"},
    {61, " ", ignore, nullptr},
    {62, "\n", ignore, nullptr},
    {63, "\t", ignore, nullptr},
    {64, "@%", zone_name, "time zone"},
    {65, "*", foreign, "nothing known"},
};

const Shapes& shapes() {
    static const Shapes* const made = [] {
        const char* all[std::size(kRules)];
        for (std::size_t i = 0; i < std::size(kRules); ++i) all[i] = kRules[i].shape;
        return new Shapes(all);
    }();
    return *made;
}

[[gnu::noinline]] void take_and_tell(Reading& reading, const Rule& rule, const Token& token) {
    const Parts before = reading.parts;
    rule.take(reading, token);
    reading.listener->token(rule, token.text, before, reading.parts);
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

}  // namespace

void Reading::fault(const char* format, ...) {
    const bool first = errors++ == 0;
    if (!(first && log) && listener == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    String reason(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(reason.data(), reason.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    if (first && log) elog_log(0, "%s", reason.c_str());
    if (listener != nullptr) listener->fault(reason.c_str());
}

void scan(const char* text, Reading& reading) {
    const Shapes& known = shapes();
    for (;;) {
        while (is_blank(*text)) ++text;  // as their rules have it, but at once
        if (*text == '\0') return;
        const auto [shape, end] = known.longest(text);
        const Rule& rule = kRules[shape];
        const Token token{{text, static_cast<std::size_t>(end - text)}, rule.value};
        if (reading.listener == nullptr)
            rule.take(reading, token);
        else
            take_and_tell(reading, rule, token);
        text = end;
    }
}

}  // namespace morva::time
