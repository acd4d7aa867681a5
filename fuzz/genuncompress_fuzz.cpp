// genuncompress and genuncompress_anyway on any bytes, -max_len=400. The two agree about what is
// whole; versions give the same samples; and what decodes, and the samples that the bytes are when
// taken as such, come back when encoded, in blocks of the size that the first byte tells.
#include "codec_fuzz.hpp"
#include "morva/elog.h"
#include "morva/gencompress.h"

namespace {

using namespace fuzz;

struct Rescued : Buffer<int32_t> {
    Rescued(const std::uint8_t* bytes, int nbytes) {
        demand(genuncompress_anyway(&items, &count, &size, bytes, nbytes, &fault) == count);
        demand(count >= 0 && size <= 1024 * nbytes && (count > 0) == (items != nullptr));
    }
    bool operator==(const Rescued& other) const {
        return fault == other.fault && count == other.count &&
               same(items, other.items, static_cast<std::size_t>(count));
    }
    int count = -1, fault = -1;
};

void compare_with_strict(const Rescued& rescued, const std::uint8_t* bytes, int nbytes) {
    Buffer<int32_t> strict;
    int count = 0;
    const bool whole = genuncompress(&strict.items, &count, &strict.size, bytes, nbytes) == 0;
    demand(whole == (rescued.fault == GENUNCOMPRESS_GOOD));
    if (!whole) return;
    demand(strict.size <= 1024 * nbytes && count == rescued.count);
    demand(same(strict.items, rescued.items, static_cast<std::size_t>(count)));
}

void there_and_back(const int32_t* samples, int count, int block) {
    Buffer<unsigned char> bytes, plain;
    int nbytes = 0, plain_nbytes = 0;
    demand(gencompress(&bytes.items, &nbytes, &bytes.size, samples, count, block) == 0);
    demand(nbytes <= bytes.size);
    const Rescued back(bytes.items, nbytes);
    demand(back.fault == GENUNCOMPRESS_GOOD && back.count == count);
    demand(same(back.items, samples, static_cast<std::size_t>(count)));
    const Forced forced(morva::Simd::kPlain);
    demand(gencompress(&plain.items, &plain_nbytes, &plain.size, samples, count, block) == 0);
    demand(nbytes == plain_nbytes &&
           same(bytes.items, plain.items, static_cast<std::size_t>(nbytes)));
}

void take_as_samples(const std::uint8_t* bytes, std::size_t size, int block) {
    int32_t own[100] = {};
    const std::size_t taken = std::min(size, sizeof own);
    if (taken > 0) std::memcpy(own, bytes, taken);
    there_and_back(own, static_cast<int>(taken / 4), block);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int block = 1 + data[0], nbytes = static_cast<int>(size) - 1;
    const unsigned lot = fuzz::lot(data, size);
    const Rescued best(data + 1, nbytes);
    compare_with_strict(best, data + 1, nbytes);
    if (const auto other = other_version(lot); other != morva::best_simd()) {
        const Forced forced(other);
        demand(Rescued(data + 1, nbytes) == best);
    }
    if (lot % 32 == 2) there_and_back(best.items, best.count, block);
    if (lot % 32 == 10) take_as_samples(data + 1, size - 1, block);
    elog_clear();
    return 0;
}
