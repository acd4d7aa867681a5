// um6 and unstuff on any bytes. What um6 decodes, encoded with cm6 and decoded again, gives the
// same samples; both versions of the decoder give the same answer; unstuff always moves on and
// stays inside.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/simd.hpp"
#include "codec/um6_decode.hpp"
#include "morva/cm6.h"
#include "morva/elog.h"

namespace {

void demand(bool holds) {
    if (!holds) std::abort();
}

void compare_versions(std::string_view data) {
    std::vector<int32_t> plain(data.size()), fast(data.size());
    const morva::Decoded a = morva::decode_plain(data, plain.data());
    const morva::Decoded b = morva::decode_samples(data, fast.data());
    demand(a.count == b.count && a.stop == b.stop && a.position == b.position && a.sum == b.sum);
    demand(std::equal(plain.begin(), plain.begin() + static_cast<long>(a.count), fast.begin()));
}

void decode_and_back(const char* text, int nbytes) {
    int32_t *samples = nullptr, *again = nullptr;
    char* encoded = nullptr;
    int nsamp = 0, room = 0, length = 0, size = 0, count = 0, again_room = 0;
    if (um6(text, nbytes, &samples, &nsamp, &room) >= 0) {
        demand(cm6(samples, nsamp, &encoded, &length, &size) == 0);
        demand(um6(encoded, length, &again, &count, &again_room) == nsamp);
        demand(std::memcmp(samples, again, static_cast<size_t>(nsamp) * sizeof *samples) == 0);
    }
    std::free(samples), std::free(again), std::free(encoded);
}

void unstuff_all(std::vector<char> text) {
    char* cursor = text.data();
    int remaining = static_cast<int>(text.size());
    while (remaining > 0) {
        const char* const before = cursor;
        int32_t value;
        unstuff(&value, &cursor, &remaining);
        demand(cursor > before && cursor + remaining == text.data() + text.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // An exact copy lets the address sanitizer see a read one byte too far.
    const std::vector<char> text(data, data + size);
    decode_and_back(text.data(), static_cast<int>(size));
    if (morva::best_simd() >= morva::Simd::kAvx2) compare_versions({text.data(), size});
    unstuff_all(text);
    elog_clear();
    return 0;
}
