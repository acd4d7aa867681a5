// UCSD bytes to samples: the loops behind uucsd.
#pragma once

#include <cstddef>
#include <cstdint>

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

// Expands `count` samples from `size` bytes.
Expanded expand(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                std::size_t count);

// The run at an offset, where `left` samples are left to expand.
struct Run {
    Stop stop;  // kDone when it is a good one
    int class_index;
    std::size_t count;
    std::size_t values;  // offset of its values
    std::size_t end;     // offset behind them
};
Run read_run(const std::uint8_t* bytes, std::size_t size, std::size_t offset, std::size_t left);

// Writes the values of a run behind the sample before them.
void expand_values(const std::uint8_t* bytes, const Run& run, std::int32_t* samples);

}  // namespace morva::ucsd
