// Adler-32 (RFC 1950): two sums modulo 65521, of the bytes and of the first sum after every byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace morva::adler {

constexpr std::uint32_t kModulus = 65521;  // the largest prime below 65536

// The most bytes after which both sums still fit in 32 bits without a reduction.
constexpr std::size_t kRun = 5552;
static_assert(255ull * kRun * (kRun + 1) / 2 + (kRun + 1) * (kModulus - 1) <= UINT32_MAX);
static_assert(255ull * (kRun + 1) * (kRun + 2) / 2 + (kRun + 2) * (kModulus - 1) > UINT32_MAX);

using Add = std::uint32_t (*)(std::uint32_t adler, const unsigned char* bytes, std::size_t n);

std::uint32_t add_plain(std::uint32_t adler, const unsigned char* bytes, std::size_t n);

// Versions for processors that can do more; better ones first.
struct Version {
    const char* name;
    bool (*runs)();
    Add add;
};
std::span<const Version> versions();

// The best of all, chosen when the library is loaded.
extern Add g_add;

}  // namespace morva::adler
