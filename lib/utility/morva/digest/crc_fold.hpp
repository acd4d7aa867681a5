// CRCs by carry-less multiplication: what is left of a message when its front is folded onto its
// end.
//
// A piece V of 128 bits that stands D bits before another can be replaced by V x^D mod P, added to
// that one. With V = H x^64 + L that is H (x^(D+64) mod P) + L (x^D mod P): two products of 64 bits
// each. Many pieces are folded side by side, until 128 bits are left, which a Barrett reduction
// turns into the CRC.
//
// One kernel serves all widths: a CRC of w bits with polynomial P is that of 64 bits with P
// x^(64-w), its result at the top. A register holds a piece with the first bit of the message as
// its highest (straight: bytes are reversed when loaded) or as its lowest bit (reflected: loaded as
// they are). The product of two reflected words stands one bit too low, which is a factor of x:
// constants for these have one x less. A straight CRC may also be taken for its mirror image, by
// turning round the bits of every byte.
#pragma once

#include <span>
#include <type_traits>

#include "digest/crc.hpp"

namespace morva {

struct FoldConstants {
    struct Pair {
        std::uint64_t low, high;  // factors of the register's low and high half
    };
    alignas(64) Pair last[16];  // reduces so many pieces in a row to one product times x^64
    Pair fold[17];              // fold[k] moves a piece by k pieces, that is by 128 k bits
    std::uint64_t inverse;      // of Barrett's reduction: x^128 / P without its highest term
    std::uint64_t polynomial;   // without its highest term
    std::uint64_t lost_term;    // all ones when the term 1 of a reflected polynomial did not fit
};

namespace fold {

constexpr std::uint64_t reversed(std::uint64_t word) {
    std::uint64_t result = 0;
    for (int bit = 0; bit < 64; ++bit) result |= (word >> bit & 1) << (63 - bit);
    return result;
}

// floor(x^128 / (x^64 + p)) without its highest term.
constexpr std::uint64_t quotient(std::uint64_t p) {
    std::uint64_t digits = 0, rest = p;
    for (int bit = 0; bit < 64; ++bit) {
        const bool divides = rest >> 63 != 0;
        digits = digits << 1 | (divides ? 1 : 0);
        rest = rest << 1 ^ (divides ? p : 0);
    }
    return digits;
}
static_assert(quotient(0x1b) == 0x1b);  // x^128 = (x^64 + p)^2 + p^2

// The reflected one of a CRC and its mirror image.
template <class C>
using Reflected = std::conditional_t<
    C::kReflected, C,
    Crc<typename C::Word,
        static_cast<typename C::Word>(reversed(C::kPolynomial) >> (64 - C::kWidth)), true>>;

template <class C>
constexpr FoldConstants constants() {
    constexpr int kSpare = 64 - C::kWidth;
    // x^exponent mod P as a factor; mod P x^kSpare when it is `exact`, which the last step needs.
    const auto power = [](std::uint64_t exponent, bool exact) {
        const std::uint64_t less = (exact ? kSpare : 0) + (C::kReflected ? 1 : 0);
        const std::uint64_t terms = C::power_of_x(exponent - less);
        return exact == C::kReflected ? terms : terms << kSpare;
    };
    const auto pair = [&](std::uint64_t exponent, bool exact) {
        const std::uint64_t first = power(exponent + 64, exact), second = power(exponent, exact);
        return C::kReflected ? FoldConstants::Pair{first, second}
                             : FoldConstants::Pair{second, first};
    };
    FoldConstants result{};
    for (std::uint64_t k = 1; k < 17; ++k) result.fold[k] = pair(128 * k, false);
    for (std::uint64_t k = 0; k < 16; ++k) result.last[k] = pair(128 * (15 - k) + 64, true);
    if constexpr (C::kReflected) {
        // One bit higher than the terms they stand for, so that products are where they belong.
        result.inverse = reversed(quotient(reversed(C::kPolynomial))) << 1 | 1;
        result.polynomial = std::uint64_t{C::kPolynomial} << 1;
        result.lost_term = std::uint64_t{C::kPolynomial} >> 63 != 0 ? ~std::uint64_t{0} : 0;
    } else {
        result.polynomial = std::uint64_t{C::kPolynomial} << kSpare;
        result.inverse = quotient(result.polynomial);
    }
    return result;
}

// The start value as the first eight bytes of a message see it, and the CRC from that form.
template <class C>
constexpr std::uint64_t start_of(typename C::Word crc) {
    return C::kReflected ? crc : __builtin_bswap64(std::uint64_t{crc} << (64 - C::kWidth));
}
template <class C>
constexpr typename C::Word crc_of(std::uint64_t rest) {
    if constexpr (C::kReflected) return static_cast<typename C::Word>(rest);
    return static_cast<typename C::Word>(__builtin_bswap64(rest) >> (64 - C::kWidth));
}

}  // namespace fold

// The CRC of n > 0 bytes from `crc` on, which is also stored.
template <class C>
using AddCrc = typename C::Word (*)(typename C::Word crc, const unsigned char* bytes, std::size_t n,
                                    typename C::Word* result);

struct CrcVersion {
    const char* name;
    bool (*runs)();  // on this processor
    AddCrc<Crc16> crc16;
    AddCrc<Crc32> crc32;
    AddCrc<Crc64> crc64;
    AddCrc<QtCrc> qtcrc;
};
std::span<const CrcVersion> crc_versions();  // better ones first, without the plain one

// The best of them, chosen when the library is loaded.
extern CrcVersion g_crcs;

}  // namespace morva
