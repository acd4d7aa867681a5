// Zone files and POSIX zone texts of any bytes: what is accepted shows every instant with fields in
// their ranges, and, if its clock is an ordinary one, takes what it showed back to an instant that
// shows the same.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "time/zones.hpp"

namespace {

using morva::time::LocalTime;
using morva::time::Zone;

void check(bool holds) {
    if (!holds) std::abort();
}

bool same(const LocalTime& a, const LocalTime& b) {
    return a.year == b.year && a.doy == b.doy && a.hour == b.hour && a.minute == b.minute &&
           a.second == b.second;
}

// The clock is set by hours rather than days, and not for days on end: every time that it shows can
// then be taken back.
bool is_ordinary(const Zone& zone) {
    constexpr std::int64_t kDay = 86400;
    if (zone.rules || !zone.leaps.empty()) return false;
    for (const auto& type : zone.types)
        if (type.offset > kDay || type.offset < -kDay) return false;
    for (std::size_t i = 1; i < zone.transitions.size(); ++i)
        if (zone.transitions[i] / 2 - zone.transitions[i - 1] / 2 < 3 * kDay) return false;
    return true;
}

void look_at(const Zone& zone, std::int64_t instant, bool ordinary) {
    const LocalTime local = local_time(zone, instant);
    check(local.month >= 1 && local.month <= 12 && local.day >= 1 && local.day <= 31);
    check(local.doy >= 1 && local.doy <= 366 && local.hour >= 0 && local.hour < 24);
    check(local.minute >= 0 && local.minute < 60 && local.second >= 0);
    check(local.abbreviation.size() <= morva::time::kLongestAbbreviation);
    const auto back = instant_of(zone, local);
    if (ordinary && instant / 2 == static_cast<std::int32_t>(instant / 2))
        check(back && same(local_time(zone, *back), local));
}

void look_around(const Zone& zone) {
    const bool ordinary = is_ordinary(zone);
    for (const std::int64_t instant :
         {INT64_MIN, INT64_MAX, std::int64_t{0}, std::int64_t{1} << 36})
        look_at(zone, instant, ordinary);
    for (std::size_t i = 0; i < zone.transitions.size() && i < 64; ++i)
        for (const int near : {-1, 0, 1}) {
            std::int64_t instant = 0;
            if (!__builtin_add_overflow(zone.transitions[i], near, &instant))
                look_at(zone, instant, ordinary);
        }
    for (std::size_t i = 0; i < zone.leaps.size() && i < 16; ++i)
        look_at(zone, zone.leaps[i].instant, ordinary);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto zone = morva::time::read_zone(bytes)) look_around(*zone);
    const auto text = morva::time::read_zone_text(bytes);
    look_around(*make_zone(text.rules));
    return 0;
}
