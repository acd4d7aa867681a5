// uucsd: runs of differences at five widths back to samples.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "base/simd.hpp"
#include "codec/ucsd_code.hpp"
#include "codec/ucsd_ucompress.hpp"
#include "morva/ucsd.h"

using namespace morva::ucsd;

namespace {

Expanded expand_at(char** cursor, int nbytes, std::int32_t* samples, int nsamp) {
    const auto size = static_cast<std::size_t>(std::max(nbytes, 0));
    const auto count = static_cast<std::size_t>(std::max(nsamp, 0));
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(*cursor);
    const Expanded expanded =
        count > 0 ? expand(bytes, size, samples, count) : Expanded{0, 0, Stop::kDone};
    *cursor += expanded.used;
    return expanded;
}

const char* reason(Stop stop) {
    switch (stop) {
        case Stop::kBadClass:
            return "unknown class of run";
        case Stop::kEmptyRun:
            return "run of no samples";
        case Stop::kBadGap:
            return "no run where one should begin";
        default:
            return "too few bytes";
    }
}

// Sign-extends the lowest bits of a value.
std::uint32_t extended(std::uint32_t value, int bits) {
    const int above = 32 - bits;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(value << above) >> above);
}

}  // namespace

extern "C" {

int uucsd(int32_t* samples, char** cursor, int nbytes, int nsamp) {
    const Expanded expanded = expand_at(cursor, nbytes, samples, nsamp);
    if (expanded.stop == Stop::kDone) return 0;
    if (expanded.stop == Stop::kTooMany)
        elog_complain(0, "uucsd bad input data: uncompresses to more than %d samples", nsamp);
    else
        elog_log(0, "uucsd: %s at byte %lu\n", reason(expanded.stop),
                 static_cast<unsigned long>(expanded.used));
    return -1;
}

int uucsd_anyway(int32_t* samples, char** cursor, int nbytes, int nsamp) {
    return static_cast<int>(expand_at(cursor, nbytes, samples, nsamp).count);
}

}  // extern "C"

namespace morva::ucsd {

void expand_run(const std::uint8_t* bytes, const Run& run, std::int32_t* samples) {
    const int bits = bits_of(run.class_index);
    auto sample = static_cast<std::uint32_t>(samples[-1]);
    std::uint32_t pending = 0;  // bits read and not used, and older ones above
    int pending_bits = 0;
    const std::uint8_t* at = bytes + run.values;
    for (std::size_t i = 0; i < run.count; ++i) {
        for (; pending_bits < bits; pending_bits += 8) pending = pending << 8 | *at++;
        pending_bits -= bits;
        const std::uint32_t value = extended(pending >> pending_bits, bits);
        sample = run.class_index == kSampleClass ? value : sample - value;
        samples[i] = static_cast<std::int32_t>(sample);
    }
}

Expanded expand_plain(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                      std::size_t count) {
    return expand_runs(bytes, size, samples, count, 0, 0, expand_run);
}

Expanded expand(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                std::size_t count) {
    const auto version = may_use(Simd::kAvx512) ? expand_avx512
                         : may_use(Simd::kAvx2) ? expand_avx2
                                                : expand_plain;
    return version(bytes, size, samples, count);
}

}  // namespace morva::ucsd
