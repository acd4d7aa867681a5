// uucsd and uucsd_anyway on any bytes, -max_len=300, which begin with the number of samples to
// expand. The two agree; versions give the same answer in both directions; and what expands comes
// back when compressed, if the format can hold it.
#include "codec_fuzz.hpp"
#include "morva/elog.h"
#include "morva/ucsd.h"

namespace {

using namespace fuzz;

constexpr int kMost = 1023;  // samples

// What expands of bytes. Samples lie at the end of their room, so that one too many is seen.
struct Answer {
    Answer(const std::uint8_t* bytes, int nbytes, int nsamp) : first(room + kMost - nsamp) {
        char* const begin = const_cast<char*>(reinterpret_cast<const char*>(bytes));
        char* cursor = begin;
        count = uucsd_anyway(first, &cursor, nbytes, nsamp);
        used = static_cast<int>(cursor - begin);
        demand(count >= 0 && count <= nsamp && used >= 0 && used <= nbytes);
    }
    bool operator==(const Answer& other) const {
        return used == other.used && count == other.count &&
               same(first, other.first, static_cast<std::size_t>(count));
    }
    int32_t room[kMost];
    int32_t* first;
    int count, used;
};

void compare_with_strict(const Answer& answer, const std::uint8_t* bytes, int nbytes, int nsamp) {
    static int32_t samples[kMost];
    char* const begin = const_cast<char*>(reinterpret_cast<const char*>(bytes));
    char* cursor = begin;
    const int result = uucsd(samples, &cursor, nbytes, nsamp);
    demand((result == 0) == (answer.count == nsamp) && cursor - begin == answer.used);
    demand(same(samples, answer.first, static_cast<std::size_t>(answer.count)));
}

void compress_and_back(const int32_t* samples, int nsamp) {
    Buffer<char> bytes, plain;
    int nbytes = 0, plain_nbytes = 0;
    const int result = cucsd_try(samples, nsamp, &bytes.items, &nbytes, &bytes.size);
    const Forced forced(morva::Simd::kPlain);
    demand(cucsd_try(samples, nsamp, &plain.items, &plain_nbytes, &plain.size) == result);
    if (result != 0) return;
    demand(nbytes == plain_nbytes &&
           same(bytes.items, plain.items, static_cast<std::size_t>(nbytes)));
    const Answer back(reinterpret_cast<const std::uint8_t*>(bytes.items), nbytes, nsamp);
    demand(back.used == nbytes && back.count == nsamp);
    demand(same(back.first, samples, static_cast<std::size_t>(nsamp)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int nsamp = (data[0] * 256 + data[1]) & kMost, nbytes = static_cast<int>(size) - 2;
    const unsigned lot = fuzz::lot(data, size);
    const Answer best(data + 2, nbytes, nsamp);
    if (const auto other = other_version(lot); other != morva::best_simd()) {
        const Forced forced(other);
        demand(Answer(data + 2, nbytes, nsamp) == best);
    }
    if (lot % 8 == 2) compare_with_strict(best, data + 2, nbytes, nsamp);
    if (lot % 32 == 3) compress_and_back(best.first, best.count);
    elog_clear();
    return 0;
}
