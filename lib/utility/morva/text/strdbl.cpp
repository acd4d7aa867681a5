// Numbers in a compact engineering notation.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "morva/strings.h"

namespace {

constexpr double kLargest = 1e10;
constexpr double kSmallest = 0.001;
constexpr int kDigits = 15;

// The exponent group of a magnitude: the power of ten is three times it.
int exponent_group(double magnitude) {
    return static_cast<int>(std::log10(magnitude) + 99) / 3 - 33;
}

double group_factor(int group) {
    constexpr int kLowest = -107, kHighest = 102;  // of the smallest and the largest double
    static const auto factors = [] {
        std::array<double, kHighest - kLowest + 1> made;
        for (int i = kLowest; i <= kHighest; ++i) made[i - kLowest] = std::pow(10.0, 3 * i);
        return made;
    }();
    return factors[group - kLowest];
}

constexpr auto kPowers = [] {
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = 10 * powers[i - 1];
    return powers;
}();

constexpr int kLowestExponent = -4;
constexpr double kThresholds[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0,  1e1,  1e2,  1e3,  1e4, 1e5,
                                  1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14};

struct Decimal {
    std::uint64_t digits;  // 15 of them
    int exponent;          // of the first digit
};

// The 15 significant digits of a value in 1e-4 .. 1e15, rounded half to even as printf does. The
// value is an integer of 53 bits over a power of two, and times the power of ten that makes 15
// digits of it still an integer over the same power of two, of at most 113 bits: nothing is lost.
Decimal round_to_15(double value) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const int binary = static_cast<int>(bits >> 52) - 1023;
    const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | std::uint64_t{1} << 52;
    // The decimal exponent of the power of two, or one more than that.
    int exponent = std::max(kLowestExponent, binary * 1233 >> 12);
    if (exponent + 1 < kDigits && value >= kThresholds[exponent + 1 - kLowestExponent]) ++exponent;
    const int shift = 52 - binary;
    const unsigned __int128 scaled =
        static_cast<unsigned __int128>(mantissa) * kPowers[kDigits - 1 - exponent];
    const unsigned __int128 half = static_cast<unsigned __int128>(1) << (shift - 1);
    const unsigned __int128 rest = scaled & (2 * half - 1);
    std::uint64_t digits = static_cast<std::uint64_t>(scaled >> shift);
    digits += rest > half || (rest == half && (digits & 1));
    if (digits == kPowers[kDigits]) return {kPowers[kDigits - 1], exponent + 1};
    return {digits, exponent};
}

constexpr auto kPairs = [] {
    std::array<char, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

void write_eight(char* to, std::uint32_t value) {
    const std::uint32_t high = value / 10000, low = value % 10000;
    std::memcpy(to, &kPairs[2 * (high / 100)], 2);
    std::memcpy(to + 2, &kPairs[2 * (high % 100)], 2);
    std::memcpy(to + 4, &kPairs[2 * (low / 100)], 2);
    std::memcpy(to + 6, &kPairs[2 * (low % 100)], 2);
}

// Writes a value in 1e-4 .. 1e15 as "%.15g" does, with a point in every locale, and without a zero
// before it unless asked. Gives the end.
char* write_fixed(char* to, double value, bool leading_zero) {
    const Decimal decimal = round_to_15(value);
    char text[16];  // a zero and the 15 digits
    write_eight(text, static_cast<std::uint32_t>(decimal.digits / 100000000));
    write_eight(text + 8, static_cast<std::uint32_t>(decimal.digits % 100000000));
    const char* digits = text + 1;
    int count = kDigits;
    while (digits[count - 1] == '0') --count;
    const int whole = decimal.exponent + 1;
    if (whole <= 0) {
        if (leading_zero) *to++ = '0';
        *to++ = '.';
        for (int i = whole; i < 0; ++i) *to++ = '0';
        std::memcpy(to, digits, kDigits);
        return to + count;
    }
    std::memcpy(to, digits, kDigits);
    if (count <= whole) return to + whole;
    to[whole] = '.';
    std::memcpy(to + whole + 1, digits + whole, static_cast<std::size_t>(count - whole));
    return to + count + 1;
}

char* write_exponent(char* to, int exponent) {
    *to++ = 'e';
    if (exponent < 0) *to++ = '-';
    const int size = std::abs(exponent);
    if (size >= 100) *to++ = static_cast<char>('0' + size / 100);
    if (size >= 10) *to++ = kPairs[2 * (size % 100)];
    *to++ = kPairs[2 * (size % 100) + 1];
    return to;
}

char* write_word(char* buf, bool negative, const char* word) {
    std::strcpy(negative ? buf + 1 : buf, word);
    if (negative) *buf = '-';
    return buf;
}

}  // namespace

extern "C" {

char* strdbl(char* buf, double value) {
    if (std::isnan(value)) return write_word(buf, false, "nan");
    const bool negative = std::signbit(value);
    if (std::isinf(value)) return write_word(buf, negative, "Inf");
    double magnitude = std::fabs(value);
    if (magnitude == 0) return write_word(buf, negative, "0");
    int group = 0;
    if (magnitude > kLargest || magnitude < kSmallest) {
        group = exponent_group(magnitude);
        magnitude /= group_factor(group);
    }
    char* end = buf;
    if (negative) *end++ = '-';
    // A lone zero in front goes, but a negative value keeps its own.
    end = write_fixed(end, magnitude, negative);
    if (group != 0) end = write_exponent(end, 3 * group);
    *end = '\0';
    return buf;
}

}  // extern "C"
