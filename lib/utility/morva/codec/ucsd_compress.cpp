// cucsd and cucsd_try: runs of differences at five widths.
//
// This file settles the callers' buffers and reports; ucsd_compress_plain and ucsd_compress_avx2 do
// the work. No state but the choice of version.
#include <algorithm>
#include <climits>
#include <cstdlib>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/simd.hpp"
#include "codec/ucsd_compress.hpp"
#include "morva/ucsd.h"

using namespace morva;
using namespace morva::ucsd;

namespace {

bool is_good_count(const char* function, int nsamp, Rule rule) {
    if (nsamp >= 0 && capacity(nsamp, rule) <= INT_MAX) return true;
    elog_log(0, "%s: can't hold %d samples\n", function, nsamp);
    return false;
}

// A buffer whose size is given as 0 is not the caller's to lose: it is replaced, not freed.
void replace_buffer(char** buffer, int* size, char* larger, std::size_t larger_size) {
    if (*size != 0) std::free(*buffer);
    *buffer = larger;
    *size = static_cast<int>(larger_size);
}

Compressed compress_into(char* buffer, const std::int32_t* samples, int nsamp, Rule rule) {
    auto* const out = reinterpret_cast<std::uint8_t*>(buffer);
    if (nsamp == 0) return {out, false, false, false};
    return compress(samples, static_cast<std::size_t>(nsamp), rule, out);
}

int length_of(const Compressed& compressed, const char* buffer) {
    return static_cast<int>(reinterpret_cast<const char*>(compressed.end) - buffer);
}

}  // namespace

extern "C" {

int cucsd(const int32_t* samples, int nsamp, char** buffer, int* nbytes, int* buffer_size) {
    if (!is_good_count("cucsd", nsamp, Rule::kStrict)) return -1;
    const auto need = static_cast<std::size_t>(capacity(nsamp, Rule::kStrict));
    if (*buffer == nullptr || *buffer_size < static_cast<int>(need))
        replace_buffer(buffer, buffer_size, must_alloc<char>(need, "*buf", MORVA_HERE), need);
    const Compressed compressed = compress_into(*buffer, samples, nsamp, Rule::kStrict);
    if (compressed.undecided) elog_die(0, "shouldn't happen");
    *nbytes = length_of(compressed, *buffer);
    if (!compressed.lossy && !compressed.too_steep) return 0;
    elog_log(0, "cucsd: a %s needs more than 24 bits\n",
             compressed.lossy ? "sample" : "difference");
    return -1;
}

int cucsd_try(const int32_t* samples, int nsamp, char** buffer, int* nbytes, int* buffer_size) {
    if (!is_good_count("cucsd_try", nsamp, Rule::kLenient)) return -1;
    const auto need = static_cast<std::size_t>(capacity(nsamp, Rule::kLenient));
    if (*buffer == nullptr || *buffer_size < static_cast<int>(need)) {
        auto* const larger = static_cast<char*>(try_calloc(need, 1));
        if (larger == nullptr) {
            elog_log(1, "cucsd_try: can't allocate %lu bytes\n", static_cast<unsigned long>(need));
            return -1;
        }
        replace_buffer(buffer, buffer_size, larger, need);
    }
    const Compressed compressed = compress_into(*buffer, samples, nsamp, Rule::kLenient);
    if (compressed.lossy) {
        elog_log(0, "cucsd_try: a sample and its difference need more than 24 and 16 bits\n");
        return -1;
    }
    *nbytes = length_of(compressed, *buffer);
    return 0;
}

}  // extern "C"

Compressed morva::ucsd::compress(const std::int32_t* samples, std::size_t count, Rule rule,
                                 std::uint8_t* out) {
    const auto version = may_use(Simd::kAvx512) ? compress_avx512
                         : may_use(Simd::kAvx2) ? compress_avx2
                                                : compress_plain;
    return version(samples, count, rule, out);
}
