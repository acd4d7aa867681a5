// Texts of times: a table of format letters and the loop around it.
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "time/fields.hpp"
#include "time/zones.hpp"

namespace morva::time {
namespace {

// Every writer gets Text::kRoom bytes and returns the end of what it wrote.
using Put = char* (*)(char* at, const Fields& fields);

constexpr auto kPairs = [] {
    std::array<char, 200> digits{};
    for (int i = 0; i < 100; ++i) {
        digits[2 * i] = static_cast<char>('0' + i / 10);
        digits[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return digits;
}();

char* put_pair(char* at, unsigned value) {
    std::memcpy(at, &kPairs[2 * value], 2);
    return at + 2;
}

char* put_digits(char* at, std::uint64_t value, int least) {
    char digits[20];
    int n = 0;
    for (; value > 0 || n < least; value /= 10) digits[n++] = static_cast<char>('0' + value % 10);
    while (n > 0) *at++ = digits[--n];
    return at;
}

// As "%0Nd": a sign counts towards the width.
char* put_zeros(char* at, int width, std::int64_t value) {
    if (value >= 0) return put_digits(at, static_cast<std::uint64_t>(value), width);
    *at++ = '-';
    return put_digits(at, 0 - static_cast<std::uint64_t>(value), width - 1);
}

// As "%02d".
char* put_two(char* at, int value) {
    if (value >= 0 && value < 100) return put_pair(at, static_cast<unsigned>(value));
    return put_zeros(at, 2, value);
}

char* pad_left(char* start, char* end, int width) {
    const auto length = end - start;
    if (length >= width) return end;
    std::memmove(start + width - length, start, static_cast<std::size_t>(length));
    std::memset(start, ' ', static_cast<std::size_t>(width - length));
    return start + width;
}

// As "%Nd".
char* put_blanks(char* at, int width, std::int64_t value) {
    return pad_left(at, put_zeros(at, 1, value), width);
}

char* put_text(char* at, std::string_view text) {
    std::memcpy(at, text.data(), text.size());
    return at + text.size();
}

char* put_year(char* at, int year) {
    if (year < 1000 || year > 9999) return put_blanks(at, 4, year);
    return put_pair(put_pair(at, static_cast<unsigned>(year) / 100),
                    static_cast<unsigned>(year) % 100);
}

char* put_thousandths(char* at, int value) {
    if (value < 0 || value > 999) return put_zeros(at, 3, value);
    *at++ = static_cast<char>('0' + value / 100);
    return put_pair(at, static_cast<unsigned>(value) % 100);
}

// The size of a value in thousandths, rounded as "%.3f" rounds: exactly, ties to even.
std::uint64_t thousandths(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int exponent = static_cast<int>(bits >> 52 & 0x7ff);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    const std::uint64_t mantissa = exponent > 0 ? fraction | std::uint64_t{1} << 52 : fraction;
    const int shift = 1075 - (exponent > 0 ? exponent : 1);
    const std::uint64_t exact = 1000 * mantissa;  // to be divided by 2^shift
    if (shift > 63) return 0;
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    const std::uint64_t rest = exact & (2 * half - 1);
    const std::uint64_t whole = exact >> (shift - 1) >> 1;
    return whole + (rest > half || (rest == half && (whole & 1) != 0));
}

constexpr double kLargestThousandths = 4503599627370496;  // 2^52

// As "%0Nd.%03d" of whole and thousandths.
char* put_seconds(char* at, double value, int zeros) {
    if (!(std::abs(value) < kLargestThousandths)) return put_fixed(at, value, zeros + 4, 3);
    const std::uint64_t all = thousandths(value);
    if (std::signbit(value)) {
        *at++ = '-';
        --zeros;
    }
    at = put_digits(at, all / 1000, std::max(zeros, 1));
    *at++ = '.';
    return put_thousandths(at, static_cast<int>(all % 1000));
}

int parts_of_second(const Fields& f, double parts) {
    return to_integer((f.second - f.whole_second) * parts + 0.5);
}

int hour_of_half_day(int hour) {
    return hour % 12 == 0 ? 12 : hour % 12;
}

// The day by way of the yearday, as the day of the week is documented.
std::string_view weekday_name(const Fields& f) {
    const std::int64_t date = 1000 * static_cast<std::int64_t>(f.year) + f.doy;
    return Week[weekday(day_number(date / 1000, date % 1000))];
}

char* put_ordinal(char* at, int n) {
    return put_text(put_zeros(at, 1, n), ordinal(n));
}

struct Code {
    char letter;
    Put put;
    std::size_t two_digits =
        0;  // instead, for what is put most often: where the int lies in Fields
};

constexpr Code kCodes[] = {
    {'A', [](char* at, const Fields& f) { return put_text(at, weekday_name(f)); }},
    {'a', [](char* at, const Fields& f) { return put_text(at, weekday_name(f).substr(0, 3)); }},
    {'B', [](char* at, const Fields& f) { return put_text(at, Month[f.month - 1]); }},
    {'b',
     [](char* at, const Fields& f) {
         return put_text(at, {Month[f.month - 1], 3});
     }},
    {'D',
     [](char* at, const Fields& f) {
         const bool month_first = (f.may_load_formats ? is_month_first() : Month_first) != 0;
         at = put_blanks(at, 2, month_first ? f.month : f.day);
         *at++ = '/';
         at = put_two(at, month_first ? f.day : f.month);
         *at++ = '/';
         return put_two(at, f.year % 100);
     }},
    {'d', nullptr, offsetof(Fields, day)},
    {'e', [](char* at, const Fields& f) { return put_blanks(at, 2, f.day); }},
    {'E', [](char* at, const Fields& f) { return pad_left(at, put_seconds(at, f.epoch, 1), 15); }},
    {'G',
     [](char* at, const Fields& f) {
         at = put_zeros(at, 4, f.year);
         *at++ = '-';
         at = put_two(at, f.month);
         *at++ = '-';
         return put_two(at, f.day);
     }},
    {'g',
     [](char* at, const Fields& f) {
         at = put_zeros(at, 4, f.year);
         *at++ = '-';
         return put_thousandths(at, f.doy);
     }},
    {'H', nullptr, offsetof(Fields, hour)},
    {'I', [](char* at, const Fields& f) { return put_two(at, hour_of_half_day(f.hour)); }},
    {'j', [](char* at, const Fields& f) { return put_thousandths(at, f.doy); }},
    {'k', [](char* at, const Fields& f) { return put_blanks(at, 2, f.hour); }},
    {'L', [](char* at, const Fields& f) { return put_blanks(at, 2, f.month); }},
    {'l', [](char* at, const Fields& f) { return put_blanks(at, 2, hour_of_half_day(f.hour)); }},
    {'M', nullptr, offsetof(Fields, minute)},
    {'m', nullptr, offsetof(Fields, month)},
    {'n', [](char* at, const Fields&) { return put_text(at, "\n"); }},
    {'O', [](char* at, const Fields& f) { return put_ordinal(at, f.doy); }},
    {'o', [](char* at, const Fields& f) { return put_ordinal(at, f.day); }},
    {'p', [](char* at, const Fields& f) { return put_text(at, f.hour < 12 ? "AM" : "PM"); }},
    {'S', nullptr, offsetof(Fields, whole_second)},
    // Not clamped: callers that do not round first see 1000.
    {'s', [](char* at, const Fields& f) { return put_thousandths(at, parts_of_second(f, 1000)); }},
    {'T',
     [](char* at, const Fields& f) {
         at = put_two(at, f.hour);
         *at++ = ':';
         at = put_two(at, f.minute);
         *at++ = ':';
         return put_seconds(at, f.second, 2);
     }},
    {'t', [](char* at, const Fields&) { return put_text(at, "\t"); }},
    {'u',
     [](char* at, const Fields& f) {
         return put_zeros(at, 5, std::min(parts_of_second(f, 100000), 99999));
     }},
    {'Y', [](char* at, const Fields& f) { return put_year(at, f.year); }},
    {'y', [](char* at, const Fields& f) { return put_two(at, f.year % 100); }},
    {'Z', [](char* at, const Fields& f) { return put_text(at, f.zone); }},
    {'z', [](char* at, const Fields& f) { return put_text(at, f.zone); }},
};

constexpr auto kCodeOf = [] {
    std::array<Code, 256> table{};
    for (const Code& code : kCodes) table[static_cast<unsigned char>(code.letter)] = code;
    return table;
}();

int int_at(const Fields& fields, std::size_t offset) {
    int value;
    std::memcpy(&value, reinterpret_cast<const char*>(&fields) + offset, sizeof value);
    return value;
}

// As "%15.3f %8ld %s %2d,%4d %2d:%02d:%02.3f\n", with a point in every locale.
char* put_line(char* at, const DateTime& t) {
    at = put_text(put_fixed(at, t.epoch, 15, 3), " ");
    at = put_text(put_blanks(at, 8, t.date), " ");
    at = put_text(at, {t.mname, ::strnlen(t.mname, sizeof t.mname)});
    at = put_blanks(put_text(at, " "), 2, t.day);
    at = put_blanks(put_text(at, ","), 4, t.year);
    at = put_blanks(put_text(at, " "), 2, t.hour);
    at = put_two(put_text(at, ":"), t.minute);
    return put_text(put_fixed(put_text(at, ":"), t.second, 2, 3), "\n");
}

char* put_padded(char* at, std::to_chars_result result, int width) {
    return pad_left(at, result.ptr, width);
}

}  // namespace

char* put_fixed(char* at, double value, int width, int precision) {
    return put_padded(
        at, std::to_chars(at, at + Text::kRoom, value, std::chars_format::fixed, precision), width);
}

char* put_general(char* at, double value, int width, int precision) {
    return put_padded(
        at, std::to_chars(at, at + Text::kRoom, value, std::chars_format::general, precision),
        width);
}

char* Text::copy() const {
    char* text = static_cast<char*>(must_malloc(size_ + 1, "new", MORVA_HERE));
    std::memcpy(text, start_, size_);
    text[size_] = '\0';
    return text;
}

char* Text::grow(char* at) {
    const auto used = static_cast<std::size_t>(at - start_);
    const std::size_t size = 2 * static_cast<std::size_t>(end_ - start_);
    malloced<char> block(static_cast<char*>(must_malloc(size, "new", MORVA_HERE)));
    std::memcpy(block.get(), start_, used);
    larger_ = std::move(block);
    start_ = larger_.get();
    end_ = start_ + size;
    return start_ + used;
}

void put_time(Text& text, const char* format, const Fields& fields) {
    char* at = text.start();
    const char* limit = text.limit();
    for (; *format != '\0'; ++format) {
        if (at > limit) {
            at = text.grow(at);
            limit = text.limit();
        }
        if (*format != '%') {
            *at++ = *format;
            continue;
        }
        if (*++format == '\0') break;
        const Code& code = kCodeOf[static_cast<unsigned char>(*format)];
        if (code.two_digits != 0)
            at = put_two(at, int_at(fields, code.two_digits));
        else if (code.put != nullptr)
            at = code.put(at, fields);
        else
            *at++ = *format;
    }
    text.finish(at);
}

void put_time_in(const char* zone, Text& text, const char* format, double epoch) {
    const ZoneRef found = zone_or_local(zone);
    put_time(text, format, fields_in(*found, epoch));
}

}  // namespace morva::time

using namespace morva::time;

extern "C" {

char* epoch2str(const char* format, double epoch) {
    Text text;
    put_time(text, format, utc_fields(epoch));
    return text.copy();
}

void timeprint(const DateTime* time) {
    Text text;
    text.finish(put_line(text.start(), *time));
    std::fwrite(text.view().data(), 1, text.view().size(), stdout);
}

char* zepoch2str(const char* format, const char* zone, double epoch) {
    Text text;
    put_time_in(zone, text, format, epoch);
    return text.copy();
}

}  // extern "C"
