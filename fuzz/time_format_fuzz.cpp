// Formats and epoch times: any format with any double gives a text, and formats that carry all of a
// time give one that the arithmetic takes back to the same millisecond.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva.h"

namespace {

std::string taken(char* text) {
    const std::string copy(text);
    std::free(text);
    return copy;
}

void check(bool holds) {
    if (!holds) std::abort();
}

// In the years where breaking down is exact.
void check_round_trip(double epoch) {
    if (!(std::fabs(epoch) < 4e10)) return;
    int year = 0, doy = 0, hour = 0, minute = 0, millisecond = 0, second = 0;
    const std::string text = taken(epoch2str("%Y %j %H %M %S %s", epoch));
    check(std::sscanf(text.c_str(), "%d %d %d %d %d %d", &year, &doy, &hour, &minute, &second,
                      &millisecond) == 6);
    check(std::fabs(h2e(year, doy, hour, minute, second + millisecond / 1e3) - epoch) < 0.00051);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    double epoch = 0;
    if (size < sizeof epoch) return 0;
    std::memcpy(&epoch, data, sizeof epoch);
    const std::string format(reinterpret_cast<const char*>(data) + sizeof epoch,
                             size - sizeof epoch);
    const std::string utc = taken(epoch2str(format.c_str(), epoch));
    const std::string there = taken(zepoch2str(format.c_str(), "XXX4YYY,M3.2.0,M11.1.0", epoch));
    if (format.find('%') == std::string::npos) check(utc == format.c_str() && there == utc);
    check(taken(strtdelta(epoch)).size() >= 21);
    check_round_trip(epoch);
    double first = 0, step = 0;
    get_nice_times(static_cast<int>(size), &first, &step, 0, epoch);
    return 0;
}
