// The time of day, and sleeping.
#include "deadline.hpp"
#include "skerrows.h"

extern "C" {

double std_now(void) {
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

int std_sleep(double seconds) {
    using namespace skerrows;
    const Nanoseconds end = monotonic_now() + from_seconds(seconds);
    for (Nanoseconds left; (left = end - monotonic_now()) > 0;) {
        const timespec nap = to_timespec(left);
        ::nanosleep(&nap, nullptr);  // interrupted or not, the clock decides
    }
    return 0;
}

}  // extern "C"
