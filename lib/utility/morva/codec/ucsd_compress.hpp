// Samples to UCSD bytes: the loops behind cucsd and cucsd_try.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/ucsd_code.hpp"

namespace morva::ucsd {

// What happens where the rules of the format leave a series without a result.
enum class Rule {
    kStrict,  // it stays without one: the look-ahead gives up, values lose their upper bits
    kLenient  // the series goes on with its last sample, and a run of samples is left at one that
              // does not fit while its difference does
};

struct Compressed {
    std::uint8_t* end;  // the place after the last byte written
    bool undecided;     // the look-ahead met the end of the series: what is written is worthless
    bool lossy;         // a value lost bits
    bool too_steep;     // a difference needs more than 24 bits
};

// The most bytes that a series can need.
constexpr std::int64_t capacity(std::int64_t nsamp, Rule rule) {
    // A run of one sample takes six bytes with header and alignment, any other run four bytes for
    // each value at most. Strictly, narrower runs of several values stand between such runs.
    return nsamp * (rule == Rule::kStrict ? 4 : 5) + 8;
}

// Writes `count` samples, at least one, into a buffer with room for capacity(count, rule) bytes.
Compressed compress(const std::int32_t* samples, std::size_t count, Rule rule, std::uint8_t* out);

// The versions behind it. All write the same bytes. The first is nothing but the rules.
Compressed compress_plain(const std::int32_t* samples, std::size_t count, Rule rule,
                          std::uint8_t* out);
Compressed compress_avx2(const std::int32_t* samples, std::size_t count, Rule rule,
                         std::uint8_t* out);
Compressed compress_avx512(const std::int32_t* samples, std::size_t count, Rule rule,
                           std::uint8_t* out);

// How many differences behind a narrower one are looked at before a run of the class `widest`,
// the widest among them, follows one of the class `current`: the fewer bits are won, the more.
constexpr int differences_to_see(int current, int widest) {
    return 16 / (bits_of(current) - bits_of(widest)) + 1;
}
static_assert(differences_to_see(1, 0) == 5 && differences_to_see(kBeforeFirst, 0) == 1);

// The class of the run that takes sample i, whose difference is narrower than the current class.
inline constexpr int kUndecided = -1;
int look_ahead(const std::int32_t* samples, std::size_t count, std::size_t i, int current,
               Rule rule);

// Writes the first sample, and returns the place behind it.
inline std::uint8_t* put_first(std::int32_t sample, std::uint8_t* out) {
    store_be32(out, sample);
    return out + kFirstSampleSize;
}

// Writes a run at `at`, in bytes that begin at `begin`, and returns the place behind it.
std::uint8_t* put_run(const std::int32_t* samples, std::size_t first, std::size_t count,
                      int class_index, const std::uint8_t* begin, std::uint8_t* at);

}  // namespace morva::ucsd
