// um6, um6_anyway and unstuff on any bytes, -max_len=500. The two agree about what is whole;
// versions give the same answer, also for a text that is longer than what they take at a time;
// what decodes comes back when encoded; and unstuff always moves on and stays inside.
#include "codec/um6_decode.hpp"
#include "codec_fuzz.hpp"
#include "morva/cm6.h"
#include "morva/elog.h"

namespace {

using namespace fuzz;

constexpr std::size_t kMost = 8192;  // characters, and samples

// What decodes of a text. Samples lie at the end of their room, so that one too many is seen.
struct Rescued {
    Rescued(const char* text, int nbytes) : samples(room + kMost - nbytes) {
        int size = nbytes;
        demand(um6_anyway(text, nbytes, &samples, &count, &size, &verdict) == count);
        demand(count >= 0 && count <= nbytes && size == nbytes);
        demand(verdict.position >= 0 && verdict.position <= nbytes);
    }
    static int32_t room[kMost];
    int32_t* samples;
    int count = -1;
    Um6_verdict verdict;
};
int32_t Rescued::room[kMost];

void compare_with_strict(const Rescued& rescued, const char* text, int nbytes) {
    Buffer<int32_t> strict;
    int count = -1;
    const int result = um6(text, nbytes, &strict.items, &count, &strict.size);
    demand(result == (rescued.verdict.status == UM6_GOOD ? rescued.count : -1));
    demand(result < 0 || same(strict.items, rescued.samples, static_cast<std::size_t>(count)));
}

void compare_versions(std::string_view text, morva::Simd other) {
    static int32_t room[kMost], other_room[kMost];
    int32_t *const best = room + kMost - text.size(), *const again =
                                                          other_room + kMost - text.size();
    const morva::Decoded a = morva::decode_samples(text, best);
    const Forced forced(other);
    const morva::Decoded b = morva::decode_samples(text, again);
    demand(a.count == b.count && a.stop == b.stop && a.position == b.position && a.sum == b.sum);
    demand(same(best, again, a.count));
}

// The text several times over, each a little further on in what a version takes at a time.
void compare_repeated(std::string_view text, morva::Simd other) {
    static char room[kMost];
    if (text.empty() || text.size() > kMost / 2) return;
    const std::size_t length = kMost / 2 / text.size() * text.size();
    for (std::size_t at = 0; at < length; at += text.size())
        std::memcpy(room + kMost - length + at, text.data(), text.size());
    compare_versions({room + kMost - length, length}, other);
}

void there_and_back(const int32_t* samples, int count) {
    Buffer<char> text;
    Buffer<int32_t> back;
    int nbytes = 0, nsamp = -1;
    demand(cm6(samples, count, &text.items, &nbytes, &text.size) == 0);
    demand(um6(text.items, nbytes, &back.items, &nsamp, &back.size) == count);
    demand(same(back.items, samples, static_cast<std::size_t>(count)));
}

void unstuff_all(const char* text, int nbytes) {
    char* cursor = const_cast<char*>(text);
    for (int remaining = nbytes; remaining > 0;) {
        const char* const before = cursor;
        int32_t value;
        unstuff(&value, &cursor, &remaining);
        demand(cursor > before && cursor + remaining == text + nbytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kMost) return 0;
    const char* const text = reinterpret_cast<const char*>(data);
    const int nbytes = static_cast<int>(size);
    const unsigned lot = fuzz::lot(data, size);
    const Rescued best(text, nbytes);
    if (const auto other = other_version(lot); other != morva::best_simd()) {
        compare_versions({text, size}, other);
        if (lot % 512 < 2) compare_repeated({text, size}, other);
    }
    if (lot % 8 == 2) compare_with_strict(best, text, nbytes);
    if (lot % 32 == 3) there_and_back(best.samples, best.count);
    if (lot % 16 == 4) unstuff_all(text, nbytes);
    elog_clear();
    return 0;
}
