// The CM6 alphabet and the shape of one value in it.
//
// A value is one to seven characters, most significant bits first; each stands for a six-bit code:
//
//     first character    c s v v v v     c: another character follows, s: negative
//     later characters   c v v v v v
#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace morva::cm6code {

inline constexpr char Encode[] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
inline constexpr std::uint8_t kNoCode = 255;
inline constexpr std::uint8_t kContinues = 32;
inline constexpr std::uint8_t kNegative = 16;
inline constexpr int kMaxCharacters = 7;

// The inverse of Encode over ASCII, made by the compiler: nothing is built at first use.
inline constexpr std::array<std::uint8_t, 128> Decode = [] {
    std::array<std::uint8_t, 128> codes{};
    codes.fill(kNoCode);
    for (int code = 0; code < 64; ++code)
        codes[static_cast<unsigned char>(Encode[code])] = static_cast<std::uint8_t>(code);
    return codes;
}();
static_assert(Decode['+'] == 0 && Decode['F'] == 17 && Decode['z'] == 63);

// The code of a character, kNoCode when it has none.
constexpr std::uint8_t code_of(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < Decode.size() ? Decode[byte] : kNoCode;
}

// What may stand between any two characters: line ends and tabs.
constexpr bool is_skipped(char c) {
    return c == '\n' || c == '\r' || c == '\t';
}

constexpr std::uint32_t magnitude(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    return value < 0 ? 0 - bits : bits;
}

// Four bits fit in the first character and five in each other one.
constexpr int characters_of(std::uint32_t magnitude) {
    return (std::bit_width(magnitude) + 5) / 5;
}
static_assert(characters_of(0) == 1 && characters_of(15) == 1 && characters_of(16) == 2);
static_assert(characters_of(536870911) == 6 && characters_of(536870912) == 7);
static_assert(characters_of(1u << 31) == kMaxCharacters);

// Writes the codes of a value and returns the place after them.
template <class Byte>
constexpr Byte* put_codes(std::int32_t value, Byte* out) {
    const std::uint32_t bits = magnitude(value);
    int shift = 5 * (characters_of(bits) - 1);
    std::uint32_t code = (bits >> shift) | (value < 0 ? kNegative : 0u);
    for (; shift > 0; shift -= 5, code = (bits >> shift) & 31)
        *out++ = static_cast<Byte>(code | kContinues);
    *out++ = static_cast<Byte>(code);
    return out;
}

// The value that the series holds at a place, as written: second differences, wrapping at 32 bits,
// with two zero samples assumed before the series.
inline std::int32_t second_difference(const std::int32_t* samples, std::size_t i) {
    const auto at = [&](std::size_t back) {
        return i >= back ? static_cast<std::uint32_t>(samples[i - back]) : 0u;
    };
    return static_cast<std::int32_t>(at(0) - 2 * at(1) + at(2));
}

}  // namespace morva::cm6code
