// What a count of a section stands for, in the unit that the settings ask for.
//
// The WID2 line gives the calibration: so many nm of ground displacement for a count, at the
// calibration period. Velocity and acceleration are those of a sine of that period.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "morva.h"

struct Scale {
    double factor = 1;  // for a count
    const char* unit = "counts";
};

inline bool is_counts(const std::string& unit) {
    return unit.empty() || unit == "count" || unit == "counts";
}

// Displacement, and what follows from it by a derivative each.
constexpr const char* kMotions[] = {"nm", "nm/s", "nm/s^2"};

// Ends the program when the unit is none of ground motion.
inline void require_motion(const std::string& unit) {
    if (is_counts(unit)) return;
    for (const char* motion : kMotions) {
        double ignored;
        if (units_convert(1, motion, &ignored, unit.c_str(), nullptr) == 0) return;
    }
    elog_die(0, "parameter file %s: '%s' is neither counts nor a unit of ground motion\n",
             Program_Name, unit.c_str());
}

// The scale of waveforms with this calibration and period. Counts where what is needed is not
// known.
inline Scale scale_of(double calibration, double period, const std::string& unit) {
    if (is_counts(unit) || calibration == 0) return {};
    double amplitude = calibration;
    for (const char* motion : kMotions) {
        double factor;
        if (units_convert(amplitude, motion, &factor, unit.c_str(), nullptr) == 0)
            return {factor, unit.c_str()};
        if (period <= 0) break;
        amplitude *= 2 * M_PI / period;
    }
    return {};
}

// The largest distance of a sample from their mean, in the unit of the scale's factor.
inline double amplitude_of(std::span<const int32_t> samples, double factor) {
    if (samples.empty()) return 0;
    int64_t sum = 0;
    int32_t least = INT32_MAX, most = INT32_MIN;
    // Not by std::min and std::max, whose references keep GCC from vectors here.
    for (const int32_t sample : samples) {
        sum += sample;
        least = sample < least ? sample : least;
        most = sample > most ? sample : most;
    }
    const double mean = static_cast<double>(sum) / static_cast<double>(samples.size());
    return std::max(most - mean, mean - least) * std::fabs(factor);
}
