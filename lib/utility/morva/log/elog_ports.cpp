// How the register stands alone: stamps by the C library, no parameter file, no gravesite. The
// families that know better take over a port by defining it in their own source instead.
#include <cmath>
#include <ctime>

#include "base/ports.hpp"

namespace morva::port {

// The layout is a setting.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool format_time(double epoch, const char* format, bool local, char* text, std::size_t size) {
    const std::time_t seconds = static_cast<std::time_t>(std::floor(epoch));
    std::tm fields{};
    if ((local ? localtime_r(&seconds, &fields) : gmtime_r(&seconds, &fields)) == nullptr)
        return false;
    return std::strftime(text, size, format, &fields) > 0;
}
#pragma GCC diagnostic pop

bool read_register_settings(TakeSetting, void*) {
    return false;
}

int bury() {
    return 0;
}

}  // namespace morva::port
