// What the fuzz targets of the codecs share. They decode every input with the version of this
// processor, and compare versions and encode what was decoded for one input of a few: most of the
// time would go there, and neighbours of an input in the corpus get their turn.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/simd.hpp"

// Buffers come and go with each input: little is kept of those that are gone, and of their stacks.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=3";
}

namespace fuzz {

inline void demand(bool holds) {
    if (!holds) std::abort();
}

// A buffer that a codec allocates, of the size that it needs: the address sanitizer sees any access
// behind it.
template <class Item>
struct Buffer {
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { std::free(items); }
    Item* items = nullptr;
    int size = 0;
};

template <class Item>
bool same(const Item* a, const Item* b, std::size_t count) {
    return count == 0 || std::memcmp(a, b, count * sizeof *a) == 0;
}

// A number by which inputs are told apart, the same whenever an input comes again.
inline unsigned lot(const std::uint8_t* data, std::size_t size) {
    std::uint64_t word = size;
    if (size >= sizeof word) std::memcpy(&word, data + (size - sizeof word) / 2, sizeof word);
    if (size > 0) word += std::uint64_t{1} << (data[size - 1] & 63);
    return static_cast<unsigned>(word * 0x9E3779B97F4A7C15U >> 40);
}

// The version to compare with the best one; for most lots that itself, and nothing to compare.
inline morva::Simd other_version(unsigned lot) {
    constexpr morva::Simd kOthers[8] = {morva::Simd::kPlain, morva::Simd::kAvx2};
    return lot % 8 < 2 && kOthers[lot % 8] < morva::best_simd() ? kOthers[lot % 8]
                                                                : morva::best_simd();
}

// Runs one version for a scope.
class Forced {
  public:
    explicit Forced(morva::Simd version) { morva::force_simd(version); }
    ~Forced() { morva::force_simd(morva::best_simd()); }
    Forced(const Forced&) = delete;
    Forced& operator=(const Forced&) = delete;
};

}  // namespace fuzz
