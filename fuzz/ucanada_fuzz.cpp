// ucanada and ucanada_anyway on any bytes, -max_len=400. The first two bytes are a number of
// samples in twenties, 0 for unknown. The two agree about what is whole; versions give the same
// samples; and what decodes, and the samples that the bytes are when taken as such, come back when
// encoded.
#include "codec_fuzz.hpp"
#include "morva/ccanada.h"
#include "morva/elog.h"

namespace {

using namespace fuzz;

struct Rescued : Buffer<int32_t> {
    Rescued(const std::uint8_t* bytes, int nbytes, int nsamp) : count(nsamp) {
        demand(ucanada_anyway(bytes, nbytes, &items, &count, &size, &fault) == count && count >= 0);
        if (items == nullptr) return;
        // Without a cut the sample behind the others is there too.
        known = static_cast<std::size_t>(count) + (fault == UCANADA_CUT ? 0 : 1);
    }
    int count, fault = -1;
    std::size_t known = 0;
};

void compare_with_strict(const Rescued& rescued, const std::uint8_t* bytes, int nbytes, int nsamp) {
    Buffer<int32_t> strict;
    int count = nsamp;
    const bool whole = ucanada(bytes, nbytes, &strict.items, &count, &strict.size) == 0;
    if (nsamp > 0) demand(whole == (rescued.fault == UCANADA_GOOD));
    if (whole && count > 0) {
        demand(rescued.fault == UCANADA_GOOD && count == rescued.count);
        demand(same(strict.items, rescued.items, rescued.known));
    }
}

void there_and_back(const int32_t* samples, int count) {
    Buffer<unsigned char> bytes, plain;
    int nbytes = 0, plain_nbytes = 0;
    demand(ccanada(samples, count, &bytes.items, &nbytes, &bytes.size) == 0);
    const Rescued back(bytes.items, nbytes, count - 1);
    demand(back.fault == UCANADA_GOOD && back.count == count - 1);
    demand(same(back.items, samples, back.known));
    const Forced forced(morva::Simd::kPlain);
    demand(ccanada(samples, count, &plain.items, &plain_nbytes, &plain.size) == 0);
    demand(nbytes == plain_nbytes && same(bytes.items, plain.items, bytes.size));
}

void take_as_samples(const std::uint8_t* bytes, std::size_t size) {
    int32_t own[20 * 5 + 1] = {};
    const std::size_t taken = std::min(size, sizeof own);
    if (taken < 4 * 21) return;
    std::memcpy(own, bytes, taken);
    there_and_back(own, static_cast<int>((taken / 4 - 1) / 20 * 20 + 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int nsamp = 20 * (data[0] << 8 | data[1]), nbytes = static_cast<int>(size) - 2;
    const unsigned lot = fuzz::lot(data, size);
    const Rescued best(data + 2, nbytes, nsamp);
    compare_with_strict(best, data + 2, nbytes, nsamp);
    if (const auto other = other_version(lot); other != morva::best_simd()) {
        const Forced forced(other);
        const Rescued again(data + 2, nbytes, nsamp);
        demand(again.fault == best.fault && again.known == best.known);
        demand(same(again.items, best.items, best.known));
    }
    if (lot % 32 == 2 && best.count >= 20)
        there_and_back(best.items, best.count / 20 * 20 - (best.fault == UCANADA_CUT ? 19 : -1));
    if (lot % 32 == 10) take_as_samples(data + 2, size - 2);
    elog_clear();
    return 0;
}
