// The register's time stamps, in the layouts of its settings.
#include <cstring>

#include "base/ports.hpp"
#include "time/zones.hpp"

namespace morva::port {

// The register's lock is held: nothing here may register anything, and so the house formats are not
// loaded.
bool format_time(double epoch, const char* format, bool local, char* text, std::size_t size) {
    const time::ZoneRef zone = local ? time::local_zone() : time::ZoneRef();
    time::Fields fields = local ? time::fields_in(*zone, epoch) : time::utc_fields(epoch);
    fields.may_load_formats = false;
    time::Text stamp;
    time::put_time(stamp, format, fields);
    if (stamp.view().size() >= size) return false;
    std::memcpy(text, stamp.view().data(), stamp.view().size());
    text[stamp.view().size()] = '\0';
    return true;
}

}  // namespace morva::port
