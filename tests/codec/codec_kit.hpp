// What the tests of the codec share: owned buffers, and series to encode.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/simd.hpp"
#include "support/kit.hpp"

namespace kit {

using Samples = std::vector<int32_t>;

// A buffer that cm6 or um6 grows, freed at the end.
template <class Item>
struct Grown {
    Grown() = default;
    Grown(const Grown&) = delete;
    Grown& operator=(const Grown&) = delete;
    ~Grown() { std::free(items); }
    Item* items = nullptr;
    int size = 0;
};

// Runs one version of the hot loops for a scope.
class Forced {
  public:
    explicit Forced(morva::Simd version) { morva::force_simd(version); }
    ~Forced() { morva::force_simd(morva::best_simd()); }
    Forced(const Forced&) = delete;
    Forced& operator=(const Forced&) = delete;
};

// The versions that this processor can run.
inline std::vector<morva::Simd> versions() {
    std::vector<morva::Simd> all = {morva::Simd::kPlain, morva::Simd::kAvx2, morva::Simd::kAvx512};
    all.resize(static_cast<size_t>(morva::best_simd()) + 1);
    return all;
}

inline std::string encoded(const Samples& samples) {
    Grown<char> text;
    int nbytes = -1;
    EXPECT_EQ(
        cm6(samples.data(), static_cast<int>(samples.size()), &text.items, &nbytes, &text.size), 0);
    EXPECT_EQ(text.items[nbytes], '\0');
    return {text.items, static_cast<size_t>(nbytes)};
}

// The samples of a text that ends at an unmapped page; no value when um6 refuses it, which leaves
// the count alone and registers a reason.
inline std::optional<Samples> decoded(std::string_view text) {
    Logged logged;
    Guarded guarded(text);
    Grown<int32_t> buffer;
    int nsamp = -7;
    const int result =
        um6(guarded.data(), static_cast<int>(guarded.size()), &buffer.items, &nsamp, &buffer.size);
    EXPECT_EQ(nsamp, result < 0 ? -7 : result);
    EXPECT_EQ(logged.text().empty(), result >= 0);
    if (result < 0) return std::nullopt;
    return Samples(buffer.items, buffer.items + nsamp);
}

// Named kinds of series, from one character a value to seven.
enum class Kind { kConstant, kRamp, kNoise, kSwell, kFull };
inline constexpr Kind kKinds[] = {Kind::kConstant, Kind::kRamp, Kind::kNoise, Kind::kSwell,
                                  Kind::kFull};

// Noise whose size wanders over all magnitudes.
inline int32_t any_size(std::mt19937& random) {
    const auto bits = static_cast<int32_t>(random());
    return bits >> (random() % 32);
}

inline Samples series(Kind kind, size_t count, unsigned seed = 1) {
    std::mt19937 random(seed);
    Samples samples(count);
    for (size_t i = 0; i < count; ++i) {
        const auto at = static_cast<int32_t>(i);
        switch (kind) {
            case Kind::kConstant:
                samples[i] = -1234567;
                break;
            case Kind::kRamp:
                samples[i] = 17 * at - 5000;
                break;
            case Kind::kNoise:
                samples[i] = static_cast<int32_t>(random() % 201) - 100;
                break;
            case Kind::kSwell:
                samples[i] = any_size(random);
                break;
            case Kind::kFull:
                samples[i] = static_cast<int32_t>(random());
                break;
        }
    }
    return samples;
}

}  // namespace kit
