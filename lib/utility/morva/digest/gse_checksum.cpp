#include "digest/gse_checksum.hpp"

#include <algorithm>

#include "base/simd.hpp"
#include "morva/cm6.h"

namespace morva {
namespace {

constexpr std::int64_t kModulus = 100000000;
constexpr std::size_t kBlock = 32;

constexpr std::int64_t reduced(std::int64_t number) {
    return number >= kModulus || number <= -kModulus ? number % kModulus : number;
}
static_assert(reduced(99999999) == 99999999 && reduced(kModulus) == 0);
static_assert(reduced(INT32_MIN) == -47483648);

inline std::uint32_t magnitude(std::int32_t number) {
    const auto bits = static_cast<std::uint32_t>(number);
    return number < 0 ? 0 - bits : bits;
}

// A block of samples below the modulus, whose sum is reduced once in a while.
[[gnu::always_inline]] inline std::int32_t add_steps(std::int32_t sum, const std::int32_t* samples,
                                                     std::size_t count) {
    constexpr auto kLargest = static_cast<std::int32_t>(kModulus - 1);
    for (std::size_t i = 0; i < count; ++i) {
        sum += samples[i];
        // One comparison for both limits: what lies below the lower one wraps to a large number.
        if (static_cast<std::uint32_t>(sum + kLargest) > 2u * kLargest) [[unlikely]]
            sum += sum < 0 ? kLargest + 1 : -kLargest - 1;
    }
    return sum;
}

// A reduction depends on the order of the samples, but a block whose partial sums cannot reach the
// modulus needs none: its samples may be added in any order. Other blocks go step by step.
[[gnu::always_inline]] inline std::int32_t add_blocks(std::int32_t sum, const std::int32_t* samples,
                                                      std::size_t count) {
    for (; count >= kBlock; samples += kBlock, count -= kBlock) {
        std::uint32_t total = 0, largest = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            total += static_cast<std::uint32_t>(samples[i]);
            largest = std::max(largest, magnitude(samples[i]));
        }
        const std::uint64_t reach = std::uint64_t{largest} * kBlock + magnitude(sum);
        if (reach < kModulus)
            sum += static_cast<std::int32_t>(total);
        else if (largest < kModulus && magnitude(sum) < kModulus)
            sum = add_steps(sum, samples, kBlock);
        else
            sum = add_to_checksum_plain(sum, samples, kBlock);
    }
    return add_to_checksum_plain(sum, samples, count);
}

MORVA_AVX2 std::int32_t add_blocks_avx2(std::int32_t sum, const std::int32_t* samples,
                                        std::size_t count) {
    return add_blocks(sum, samples, count);
}

}  // namespace

std::int32_t add_to_checksum_plain(std::int32_t sum, const std::int32_t* samples,
                                   std::size_t count) {
    std::int64_t running = sum;
    for (std::size_t i = 0; i < count; ++i) running = reduced(running + reduced(samples[i]));
    return static_cast<std::int32_t>(running);
}

std::int32_t add_to_checksum(std::int32_t sum, const std::int32_t* samples, std::size_t count) {
    return may_use(Simd::kAvx2) ? add_blocks_avx2(sum, samples, count)
                                : add_blocks(sum, samples, count);
}

}  // namespace morva

extern "C" int gse_checksum(const int32_t* samples, int nsamp, int32_t* checksum) {
    const std::size_t count = nsamp > 0 ? static_cast<std::size_t>(nsamp) : 0;
    *checksum = morva::checksum_of(morva::add_to_checksum(*checksum, samples, count));
    return 0;
}
