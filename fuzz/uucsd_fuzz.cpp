// uucsd on any bytes, which begin with the number of samples to expand. What expands, compressed
// with cucsd_try and expanded again, gives the same samples when the format can hold them; both
// versions of each direction give the same answer.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/simd.hpp"
#include "morva/elog.h"
#include "morva/ucsd.h"

namespace {

using Bytes = std::vector<char>;

void demand(bool holds) {
    if (!holds) std::abort();
}

struct Answer {
    long used;
    std::vector<int32_t> samples;
    bool operator==(const Answer&) const = default;
};

Answer expand(Bytes bytes, int nsamp) {
    std::vector<int32_t> samples(static_cast<std::size_t>(nsamp));
    char* cursor = bytes.data();
    const int count = uucsd_anyway(samples.data(), &cursor, static_cast<int>(bytes.size()), nsamp);
    demand(count >= 0 && count <= nsamp);
    samples.resize(static_cast<std::size_t>(count));
    return {cursor - bytes.data(), samples};
}

void compress_and_back(const std::vector<int32_t>& samples) {
    const int nsamp = static_cast<int>(samples.size());
    char* buffer = nullptr;
    int nbytes = 0, size = 0;
    if (cucsd_try(samples.data(), nsamp, &buffer, &nbytes, &size) == 0) {
        const Bytes bytes(buffer, buffer + nbytes);
        demand(expand(bytes, nsamp) == Answer{nbytes, samples});
        morva::force_simd(morva::Simd::kPlain);
        demand(cucsd_try(samples.data(), nsamp, &buffer, &nbytes, &size) == 0);
        demand(bytes == Bytes(buffer, buffer + nbytes));
        morva::force_simd(morva::best_simd());
    }
    std::free(buffer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int nsamp = data[0] * 256 + data[1];
    const Bytes bytes(data + 2, data + size);
    morva::force_simd(morva::Simd::kPlain);
    const Answer answer = expand(bytes, nsamp);
    morva::force_simd(morva::best_simd());
    demand(expand(bytes, nsamp) == answer);
    compress_and_back(answer.samples);
    elog_clear();
    return 0;
}
