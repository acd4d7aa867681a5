// UCSD bytes to samples: the loops behind uucsd.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/ucsd_code.hpp"

namespace morva::ucsd {

enum class Stop {
    kDone,      // all samples are there
    kCut,       // too few bytes
    kBadClass,  // a class code that does not exist
    kEmptyRun,  // a run of no values
    kBadGap,    // a byte other than 0 before a header
    kTooMany    // a run of more samples than are left
};

struct Expanded {
    std::size_t count;  // samples written
    std::size_t used;   // bytes used, up to the run that stopped it
    Stop stop;
};

// Expands `count` samples, at least one, from `size` bytes.
Expanded expand(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                std::size_t count);

// The versions behind it. All give the same result for any bytes.
Expanded expand_plain(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                      std::size_t count);
Expanded expand_avx2(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                     std::size_t count);
Expanded expand_avx512(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                       std::size_t count);

// A run, or why there is none.
struct Run {
    Stop stop;  // kDone when there is one
    int class_index = 0;
    std::size_t count = 0;
    std::size_t values = 0;  // offset of its values
    std::size_t end = 0;     // offset behind them
};

// Reads the run at an offset, where `left` samples are left to expand.
inline Run read_run(const std::uint8_t* bytes, std::size_t size, std::size_t offset,
                    std::size_t left) {
    const std::size_t header = offset + offset % 2;
    if (header + kHeaderSize > size) return {Stop::kCut};
    if (header != offset && bytes[offset] != 0) return {Stop::kBadGap};
    const int class_index = (bytes[header] >> 4) - 1;
    if (class_index < 0 || class_index > kSampleClass) return {Stop::kBadClass};
    const std::size_t count = bytes[header + 1], values = header + kHeaderSize;
    if (count == 0) return {Stop::kEmptyRun};
    if (count > left) return {Stop::kTooMany};
    const std::size_t end = values + run_size(class_index, count);
    if (end > size) return {Stop::kCut};
    return {Stop::kDone, class_index, count, values, end};
}

// Writes the values of a run behind the sample before them.
void expand_run(const std::uint8_t* bytes, const Run& run, std::int32_t* samples);

// The runs, one after the other, for versions whose `blocks` expand `together` values at a time and
// read up to `slack` bytes behind a run.
template <class Blocks>
[[gnu::always_inline]] inline Expanded expand_runs(const std::uint8_t* bytes, std::size_t size,
                                                   std::int32_t* samples, std::size_t count,
                                                   std::size_t together, std::size_t slack,
                                                   Blocks&& blocks) {
    if (size < kFirstSampleSize) return {0, 0, Stop::kCut};
    samples[0] = load_be32(bytes);
    std::size_t done = 1, used = kFirstSampleSize;
    while (done < count) {
        const Run run = read_run(bytes, size, used, count - done);
        if (run.stop != Stop::kDone) return {done, used, run.stop};
        if (count - done >= run.count + together && size - run.end >= slack)
            blocks(bytes, run, samples + done);
        else
            expand_run(bytes, run, samples + done);
        done += run.count;
        used = run.end;
    }
    return {done, used, Stop::kDone};
}

}  // namespace morva::ucsd
