// Numbers read the same in every locale.
//
// The digits are left to std::from_chars, which rounds exactly and knows no locale. Finding where a
// number ends, what strtod takes besides, and the verdict on numbers out of range is done here.
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "morva/files.h"

namespace {

constexpr bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool is_hex_digit(char c) {
    return is_digit(c) || (lower(c) >= 'a' && lower(c) <= 'f');
}

// A number's spelling: which digits it has, what introduces its exponent, and how many powers of
// the exponent's base a digit stands for.
struct Notation {
    bool (*is_digit)(char);
    char exponent;
    int per_digit;
    std::chars_format format;
};
constexpr Notation kDecimal{is_digit, 'e', 1, std::chars_format::general};
constexpr Notation kHexadecimal{is_hex_digit, 'p', 4, std::chars_format::hex};

// Steps over digits with at most one point among them. Without a digit, stays where it is.
template <const Notation& kNotation>
const char* skip_digits(const char* text) {
    const char* p = text;
    while (kNotation.is_digit(*p)) ++p;
    const long before = p - text;
    if (*p != '.') return p;
    const char* fraction = ++p;
    while (kNotation.is_digit(*p)) ++p;
    return before + (p - fraction) > 0 ? p : text;
}

// Steps over an exponent, if there is a whole one.
template <const Notation& kNotation>
const char* skip_exponent(const char* text) {
    if (lower(*text) != kNotation.exponent) return text;
    const char* p = text + 1;
    if (*p == '+' || *p == '-') ++p;
    if (!is_digit(*p)) return text;
    while (is_digit(*p)) ++p;
    return p;
}

// Whether a number that does not fit is too large rather than too small: where its first digit
// other than zero stands, counted from the point, moved by the exponent.
template <const Notation& kNotation>
bool is_large(const char* text, const char* digits_end, const char* end) {
    const char *first = text, *point = text;
    while (*first == '0' || *first == '.') ++first;
    while (point != digits_end && *point != '.') ++point;
    long exponent = 0;
    constexpr long kEnough = std::numeric_limits<long>::max() / 16;
    const bool down = digits_end != end && digits_end[1] == '-';
    for (const char* p = digits_end; p != end; ++p)
        if (is_digit(*p) && exponent < kEnough) exponent = exponent * 10 + (*p - '0');
    return (point - first) * kNotation.per_digit > (down ? exponent : -exponent);
}

double out_of_range(bool large) {
    errno = ERANGE;
    return large ? HUGE_VAL : 0.0;
}

// As parse, for most decimal numbers in most texts: without finding the end first, within a window
// that the number must end in so that nothing behind it could belong to it. Else `end` stays.
double parse_short(const char* text, const char** end) {
    constexpr std::size_t kWindow = 64, kLongestSign = 3;  // "e+1"
    if (!is_digit(*text)) return 0;
    const std::size_t length = ::strnlen(text, kWindow);
    double value = 0;
    const auto [stop, error] = std::from_chars(text, text + length, value);
    const bool whole = length < kWindow || stop + kLongestSign <= text + kWindow;
    if (error != std::errc() || !whole || value < std::numeric_limits<double>::min()) return 0;
    *end = stop;
    return value;
}

// The number that the digits at `text` begin, without a sign. `end` stays when there is none.
template <const Notation& kNotation>
double parse(const char* text, const char** end) {
    const char* digits_end = skip_digits<kNotation>(text);
    if (digits_end == text) return 0;
    *end = skip_exponent<kNotation>(digits_end);
    double value = 0;
    const auto result = std::from_chars(text, *end, value, kNotation.format);
    if (result.ec == std::errc::result_out_of_range)
        return out_of_range(is_large<kNotation>(text, digits_end, *end));
    if (value != 0 && value < std::numeric_limits<double>::min()) errno = ERANGE;
    return value;
}

bool begins_with(const char* text, std::string_view word) {
    for (std::size_t i = 0; i < word.size(); ++i)
        if (lower(text[i]) != word[i]) return false;
    return true;
}

double parse_nan(const char* text, const char** end) {
    const char* p = text + 3;
    *end = p;
    if (*p == '(') {
        do ++p;
        while (is_digit(*p) || (lower(*p) >= 'a' && lower(*p) <= 'z') || *p == '_');
        if (*p == ')') *end = p + 1;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

double parse_unsigned(const char* text, const char** end) {
    const char* const none = *end;
    if (const double value = parse_short(text, end); *end != none) return value;
    if (begins_with(text, "0x")) {
        const double value = parse<kHexadecimal>(text + 2, end);
        if (*end > text + 2) return value;
    }
    if (begins_with(text, "nan")) return parse_nan(text, end);
    if (begins_with(text, "inf")) {
        *end = text + (begins_with(text, "infinity") ? 8 : 3);
        return HUGE_VAL;
    }
    return parse<kDecimal>(text, end);
}

}  // namespace

extern "C" double fix_strtod(const char* text, char** end) {
    double value = 0;
    const char* stop = text;
    if (text != nullptr) {
        const char* p = text;
        while (is_space(*p)) ++p;
        const bool negative = *p == '-';
        if (negative || *p == '+') ++p;
        value = parse_unsigned(p, &stop);
        if (negative && stop != text) value = -value;
    }
    if (end != nullptr) *end = const_cast<char*>(stop);
    return value;
}
