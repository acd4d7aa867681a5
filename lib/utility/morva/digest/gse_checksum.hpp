// The running sum behind the GSE2 "CHK2" checksum.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva {

// Adds samples to a running sum. The sum keeps its sign between calls, so that a series may be
// added in pieces; the checksum is the absolute value of the last sum.
std::int32_t add_to_checksum(std::int32_t sum, const std::int32_t* samples, std::size_t count);

// The same, step by step as the checksum is defined.
std::int32_t add_to_checksum_plain(std::int32_t sum, const std::int32_t* samples,
                                   std::size_t count);

// |sum|, wrapping for the most negative number.
constexpr std::int32_t checksum_of(std::int32_t sum) {
    const auto bits = static_cast<std::uint32_t>(sum);
    return static_cast<std::int32_t>(sum < 0 ? 0 - bits : bits);
}

}  // namespace morva
