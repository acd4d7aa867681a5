// ucanada on any bytes. The first two bytes are a number of samples in twenties, 0 for unknown.
// All versions of the decoder give the same samples; what decodes, encoded and decoded again,
// gives them once more; and the samples that the bytes are when taken as such come back too.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/simd.hpp"
#include "morva/ccanada.h"
#include "morva/elog.h"

namespace {

using Samples = std::vector<int32_t>;
using Bytes = std::vector<unsigned char>;

void demand(bool holds) {
    if (!holds) std::abort();
}

// The samples of bytes, none when they are refused.
Samples unpacked(const Bytes& bytes, int nsamp, morva::Simd version) {
    morva::force_simd(version);
    int32_t* buffer = nullptr;
    int size = 0;
    const int result =
        ucanada(bytes.data(), static_cast<int>(bytes.size()), &buffer, &nsamp, &size);
    demand(result == 0 || buffer == nullptr);
    const Samples samples(buffer, buffer == nullptr ? buffer : buffer + nsamp + 1);
    std::free(buffer);
    return samples;
}

Bytes packed(const Samples& samples, morva::Simd version) {
    morva::force_simd(version);
    unsigned char* buffer = nullptr;
    int size = 0, nbytes = 0;
    demand(ccanada(samples.data(), static_cast<int>(samples.size()), &buffer, &nbytes, &size) == 0);
    const Bytes bytes(buffer, buffer + nbytes);
    std::free(buffer);
    return bytes;
}

void there_and_back(const Samples& samples) {
    const Bytes bytes = packed(samples, morva::best_simd());
    demand(bytes == packed(samples, morva::Simd::kPlain));
    const int nsamp = static_cast<int>(samples.size()) - 1;
    demand(unpacked(bytes, nsamp, morva::best_simd()) == samples);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    // An exact copy lets the address sanitizer see a read one byte too far.
    const Bytes bytes(data + 2, data + size);
    const int nsamp = 20 * (data[0] << 8 | data[1]);
    const Samples samples = unpacked(bytes, nsamp, morva::best_simd());
    for (const auto version : {morva::Simd::kPlain, morva::Simd::kAvx2})
        if (version < morva::best_simd()) demand(samples == unpacked(bytes, nsamp, version));
    if (!samples.empty()) there_and_back(samples);
    Samples own(bytes.size() / 4 / 20 * 20 + 1);
    if (!bytes.empty())
        std::memcpy(own.data(), bytes.data(), std::min(4 * own.size(), bytes.size()));
    if (own.size() > 1) there_and_back(own);
    elog_clear();
    return 0;
}
