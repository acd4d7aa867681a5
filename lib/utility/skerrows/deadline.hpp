// Waits measured on the clock that nobody sets.
#pragma once

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace skerrows {

using Nanoseconds = std::int64_t;
constexpr Nanoseconds kSecond = 1'000'000'000;
constexpr double kLongestWait = 1e9;  // seconds, some 31 years: no sum of two overflows

inline Nanoseconds monotonic_now() {
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

// Rounded up, so that no wait ends early. Negative numbers and NaN are no time at all.
inline Nanoseconds from_seconds(double seconds) {
    if (!(seconds > 0)) return 0;
    return static_cast<Nanoseconds>(std::ceil(std::min(seconds, kLongestWait) * 1e9));
}

inline timespec to_timespec(Nanoseconds time) {
    timespec result;
    result.tv_sec = static_cast<time_t>(time / kSecond);
    result.tv_nsec = static_cast<long>(time % kSecond);
    return result;
}

}  // namespace skerrows
