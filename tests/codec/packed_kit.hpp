// What the tests of the binary codecs share: bytes, and the series that must survive a round trip.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "codec/codec_kit.hpp"

namespace kit {

using Bytes = std::vector<unsigned char>;

// A copy of bytes that ends at an unmapped page, for decoders.
struct GuardedBytes : Guarded {
    explicit GuardedBytes(const Bytes& bytes)
        : Guarded({reinterpret_cast<const char*>(bytes.data()), bytes.size()}) {}
    const unsigned char* bytes() const { return reinterpret_cast<const unsigned char*>(data()); }
};

// What was registered, without the program's name before each message.
inline std::string reasons(const Logged& logged) {
    const std::string prefix = "Unknown_Program: ";
    std::string text = logged.text();
    for (size_t at; (at = text.find(prefix)) != std::string::npos;) text.erase(at, prefix.size());
    return text;
}

// A series of every kind, each with its name.
inline std::vector<std::pair<const char*, Samples>> all_series(size_t count) {
    Samples step(count, -3);
    for (size_t i = count / 2; i < count; ++i) step[i] = 1 << 20;
    Samples alternating(count);
    for (size_t i = 0; i < count; ++i) alternating[i] = i % 2 == 0 ? INT32_MAX : INT32_MIN;
    const auto seed = static_cast<unsigned>(count + 1);
    return {{"constant", series(Kind::kConstant, count)},
            {"ramp", series(Kind::kRamp, count)},
            {"step", step},
            {"white noise", series(Kind::kNoise, count, seed)},
            {"noise of all sizes", series(Kind::kSwell, count, seed)},
            {"full range", series(Kind::kFull, count, seed)},
            {"from end to end", alternating}};
}

}  // namespace kit
