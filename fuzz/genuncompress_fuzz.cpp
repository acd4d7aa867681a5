// genuncompress on any bytes. All versions of the decoder give the same samples; what decodes,
// encoded and decoded again, gives them once more; and the samples that the bytes are when taken as
// such come back too, in blocks of the size that the first byte tells.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "base/simd.hpp"
#include "morva/elog.h"
#include "morva/gencompress.h"

namespace {

using Samples = std::vector<int32_t>;
using Bytes = std::vector<unsigned char>;

void demand(bool holds) {
    if (!holds) std::abort();
}

// The samples of bytes; no value when they are refused.
std::optional<Samples> unpacked(const Bytes& bytes, morva::Simd version) {
    morva::force_simd(version);
    int32_t* buffer = nullptr;
    int size = 0, nsamp = 0;
    if (genuncompress(&buffer, &nsamp, &size, bytes.data(), static_cast<int>(bytes.size())) != 0)
        return std::nullopt;
    demand(static_cast<std::size_t>(size) <= 1024 * bytes.size());
    const Samples samples(buffer, buffer + nsamp);
    std::free(buffer);
    return samples;
}

Bytes packed(const Samples& samples, int block, morva::Simd version) {
    morva::force_simd(version);
    unsigned char* buffer = nullptr;
    int size = 0, nbytes = 0;
    demand(gencompress(&buffer, &nbytes, &size, samples.data(), static_cast<int>(samples.size()),
                       block) == 0);
    demand(nbytes <= size);
    const Bytes bytes(buffer, buffer + nbytes);
    std::free(buffer);
    return bytes;
}

void there_and_back(const Samples& samples, int block) {
    const Bytes bytes = packed(samples, block, morva::best_simd());
    demand(bytes == packed(samples, block, morva::Simd::kPlain));
    demand(unpacked(bytes, morva::best_simd()) == samples);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int block = 1 + data[0];
    // An exact copy lets the address sanitizer see a read one byte too far.
    const Bytes bytes(data + 1, data + size);
    const std::optional<Samples> samples = unpacked(bytes, morva::best_simd());
    for (const auto version : {morva::Simd::kPlain, morva::Simd::kAvx2})
        if (version < morva::best_simd()) demand(samples == unpacked(bytes, version));
    if (samples) there_and_back(*samples, block);
    Samples own(bytes.size() / 4);
    if (!own.empty()) std::memcpy(own.data(), bytes.data(), 4 * own.size());
    there_and_back(own, block);
    elog_clear();
    return 0;
}
