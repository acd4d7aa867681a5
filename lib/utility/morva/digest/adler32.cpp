#include "digest/adler32.hpp"

#include <algorithm>

#include "morva/checksums.h"

namespace morva::adler {

std::uint32_t add_plain(std::uint32_t adler, const unsigned char* bytes, std::size_t n) {
    std::uint32_t sum = adler & 0xffff, sums = adler >> 16;
    while (n > 0) {
        const std::size_t run = std::min(n, kRun);
        for (const unsigned char* end = bytes + run; bytes < end; ++bytes) {
            sum += *bytes;
            sums += sum;
        }
        sum %= kModulus;
        sums %= kModulus;
        n -= run;
    }
    return sums << 16 | sum;
}

}  // namespace morva::adler

extern "C" {

uint32_t vk_adler32(uint32_t adler, const void* bytes, int n) {
    if (bytes == nullptr) return 1;
    if (n <= 0) return adler;
    return morva::adler::g_add(adler, static_cast<const unsigned char*>(bytes),
                               static_cast<std::size_t>(n));
}

// The second piece's first sum began with 1 instead of the first piece's sum, and every one of its
// n bytes added that difference to the second sum.
uint32_t vk_adler32_combine(uint32_t first, uint32_t second, long n) {
    using morva::adler::kModulus;
    if (n <= 0) return first;
    const std::uint64_t more = (first & 0xffff) + kModulus - 1;
    const std::uint64_t sum = more + (second & 0xffff);
    const std::uint64_t length = static_cast<std::uint64_t>(n) % kModulus;
    const std::uint64_t sums = (first >> 16) + (second >> 16) + more * length;
    return static_cast<uint32_t>(sums % kModulus << 16 | sum % kModulus);
}
}
