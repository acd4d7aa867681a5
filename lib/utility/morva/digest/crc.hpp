// Cyclic redundancy checks as arithmetic on polynomials over GF(2).
//
// The bytes are a polynomial, their first bit its highest coefficient, and the CRC is what remains
// when that, times x^width, is divided by the CRC's own polynomial. Two orders of bits are in use:
// most significant first, and "reflected", where the lowest bit of a word is the highest
// coefficient. No start value and no result is inverted here.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace morva {

// A CRC by the word that holds it, its polynomial without the leading term, and its order of bits.
template <class W, W kBits, bool kLowestFirst>
struct Crc {
    using Word = W;
    static constexpr Word kPolynomial = kBits;
    static constexpr bool kReflected = kLowestFirst;
    static constexpr int kWidth = sizeof(Word) * CHAR_BIT;
    static constexpr Word kTop = static_cast<Word>(Word{1} << (kWidth - 1));

    // The polynomials 1 and x^(width-1).
    static constexpr Word kOne = kReflected ? kTop : Word{1};
    static constexpr Word kHighest = kReflected ? Word{1} : kTop;

    static constexpr Word times_x(Word a) {
        const auto shifted = static_cast<Word>(kReflected ? a >> 1 : a << 1);
        return static_cast<Word>(shifted ^ ((a & kHighest) != 0 ? kPolynomial : 0));
    }
    static constexpr Word times(Word a, Word b) {
        Word product = 0;
        for (Word bit = kHighest; bit != 0;
             bit = static_cast<Word>(kReflected ? bit << 1 : bit >> 1)) {
            product = times_x(product);
            if ((b & bit) != 0) product ^= a;
        }
        return product;
    }
    static constexpr Word power_of_x(std::uint64_t exponent) {
        Word power = kOne;
        for (Word square = times_x(kOne); exponent != 0; exponent >>= 1) {
            if ((exponent & 1) != 0) power = times(power, square);
            square = times(square, square);
        }
        return power;
    }
    static constexpr auto kTable = [] {
        std::array<Word, 256> table{};
        for (std::size_t byte = 0; byte < table.size(); ++byte) {
            auto word = static_cast<Word>(kReflected ? byte : byte << (kWidth - CHAR_BIT));
            for (int bit = 0; bit < CHAR_BIT; ++bit) word = times_x(word);
            table[byte] = word;
        }
        return table;
    }();

    // The CRC of the bytes, from `crc` on.
    static constexpr Word add_plain(Word crc, const unsigned char* bytes, std::size_t n) {
        for (const unsigned char* end = bytes + n; bytes < end; ++bytes) {
            if constexpr (kReflected)
                crc = static_cast<Word>((crc >> 8) ^ kTable[(crc ^ *bytes) & 0xff]);
            else
                crc = static_cast<Word>((crc << 8) ^ kTable[(crc >> (kWidth - 8)) ^ *bytes]);
        }
        return crc;
    }

    // The CRC of two pieces from that of the first, and that of the second begun with 0, which is
    // `n` bytes long.
    static constexpr Word combined(Word first, Word second, std::uint64_t n) {
        // x^(8n) is the n-th power of x^8; 8n itself may not fit.
        Word power = kOne;
        for (Word square = power_of_x(8); n != 0; n >>= 1) {
            if ((n & 1) != 0) power = times(power, square);
            square = times(square, square);
        }
        return static_cast<Word>(times(first, power) ^ second);
    }
};

using Crc16 = Crc<std::uint16_t, 0xA001, true>;
using Crc32 = Crc<std::uint32_t, 0x04C11DB7, false>;
using Crc64 = Crc<std::uint64_t, 0xD800000000000000, true>;
using QtCrc = Crc<std::uint32_t, 0x56070368, false>;

static_assert(Crc16::kTable[1] == 0xC0C1 && Crc32::kTable[1] == 0x04C11DB7);
static_assert(Crc64::kTable[1] == 0x01B0000000000000 && QtCrc::kTable[1] == 0x56070368);

}  // namespace morva
