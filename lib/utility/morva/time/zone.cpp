// From instants to local times of a zone and back.
#include "time/zone.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "time/calendar.hpp"
#include "time/zones.hpp"

namespace morva::time {
namespace {

constexpr std::int64_t kFarthest = 67'000'000'000'000'000;  // years stay within an int

struct Period {
    std::int32_t offset;
    bool daylight;
    const char* name;
    std::int64_t start = 1;  // of what is known to be the same: nothing, when it ends before
    std::int64_t end = 0;

    bool contains(std::int64_t instant) const { return start <= instant && instant < end; }
};

Period by_rules(const ZoneRules& rules, std::int64_t instant) {
    const bool daylight = rules.daylight(instant);
    const ZoneRules::Side& side = rules.sides[daylight];
    return {side.offset, daylight, side.name.c_str()};
}

const ZoneType& first_standard(const Zone& zone) {
    for (const ZoneType& type : zone.types)
        if (!type.daylight) return type;
    return zone.types.front();
}

// How many of the ascending instants are not later.
std::size_t count_until(const Vector<std::int64_t>& instants, std::int64_t instant) {
    const auto later = std::upper_bound(instants.begin(), instants.end(), instant);
    return static_cast<std::size_t>(later - instants.begin());
}

// Slots are half years, nearly, from 1833 to 2106.
constexpr std::size_t kSlots = 512;
constexpr std::int64_t kSlotSeconds = 1 << 24;
constexpr std::int64_t kFirstSlot = -kSlotSeconds * std::int64_t{kSlots} / 2;

// Beyond the slots, far too large.
std::size_t slot_of(std::int64_t instant) {
    return (static_cast<std::uint64_t>(instant) - static_cast<std::uint64_t>(kFirstSlot)) /
           kSlotSeconds;
}

std::int64_t start_of_slot(std::size_t slot) {
    return kFirstSlot + static_cast<std::int64_t>(slot) * kSlotSeconds;
}

// The same of a zone's transitions, by way of its slots where they help.
std::size_t transitions_until(const Zone& zone, std::int64_t instant) {
    const auto& changes = zone.transitions;
    const std::size_t slot = slot_of(instant);
    if (slot >= zone.slots.size()) return count_until(changes, instant);
    std::size_t passed = zone.slots[slot];
    while (passed < changes.size() && changes[passed] <= instant) ++passed;
    return passed;
}

Period period_at(const Zone& zone, std::int64_t instant) {
    const bool beyond = !zone.transitions.empty() && instant >= zone.transitions.back();
    if (zone.rules && (beyond || zone.types.empty())) return by_rules(*zone.rules, instant);
    const auto& changes = zone.transitions;
    const std::size_t passed = transitions_until(zone, instant);
    const ZoneType& type =
        passed == 0 ? first_standard(zone) : zone.types[zone.type_after[passed - 1]];
    return {type.offset, type.daylight, zone.names.c_str() + type.name,
            passed == 0 ? -kFarthest : changes[passed - 1],
            passed == changes.size() ? kFarthest : changes[passed]};
}

struct LeapState {
    std::int32_t total;  // leap seconds so far
    int now;             // this one is a leap second (1, or more when several come in a row)
};

LeapState leap_at(const Zone& zone, std::int64_t instant) {
    std::size_t i = zone.leaps.size();
    while (i > 0 && instant < zone.leaps[i - 1].instant) --i;
    if (i-- == 0) return {0, 0};
    const auto total_before = [&](std::size_t k) { return k == 0 ? 0 : zone.leaps[k - 1].total; };
    LeapState state{zone.leaps[i].total, 0};
    if (instant != zone.leaps[i].instant || state.total <= total_before(i)) return state;
    for (state.now = 1; i > 0 && zone.leaps[i].instant == zone.leaps[i - 1].instant + 1 &&
                        zone.leaps[i].total == zone.leaps[i - 1].total + 1;
         --i)
        ++state.now;
    return state;
}

// What the clocks show at an instant, as if it were UTC.
struct Shown {
    std::int64_t time;
    Period period;
    int leap;  // 1 in a leap second, more when several come in a row
};

Shown shown_at(const Zone& zone, std::int64_t instant) {
    const Period period = period_at(zone, instant);
    const LeapState leap = zone.leaps.empty() ? LeapState{0, 0} : leap_at(zone, instant);
    return {instant + period.offset - leap.total, period, leap.now};
}

// The fields as if they were UTC.
std::int64_t as_utc(const LocalTime& local, int second) {
    const std::int64_t months = std::int64_t{local.month} - 1;
    const std::int64_t year = local.year + floor_div(months, 12);
    const auto month = static_cast<std::size_t>(months - 12 * floor_div(months, 12));
    const std::int64_t day = days_to_year(year) + kDaysBefore[is_leap(year)][month] + local.day - 1;
    return ((day * 24 + local.hour) * 60 + local.minute) * 60 + second;
}

}  // namespace

void make_slots(Zone& zone) {
    constexpr std::size_t kMostInSlot = 8;
    const auto& changes = zone.transitions;
    if (changes.size() > UINT16_MAX) return;
    Vector<std::uint16_t> slots;
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        const std::size_t before = count_until(changes, start_of_slot(slot));
        if (count_until(changes, start_of_slot(slot + 1)) - before > kMostInSlot) return;
        slots.push_back(static_cast<std::uint16_t>(before));
    }
    zone.slots = std::move(slots);
}

LocalTime local_time(const Zone& zone, std::int64_t instant) {
    instant = std::clamp(instant, -kFarthest, kFarthest);
    const auto [shown, period, leap] = shown_at(zone, instant);
    const std::int64_t day = floor_div(shown, kDaySeconds);
    const auto [year, doy] = year_and_day(day);
    const auto second = static_cast<int>(shown - kDaySeconds * day);
    const int month = kMonthOf[is_leap(year)][doy];
    return {.abbreviation = period.name,
            .offset = period.offset,
            .daylight = period.daylight,
            .year = static_cast<int>(year),
            .month = month,
            .day = doy - kDaysBefore[is_leap(year)][month - 1],
            .doy = doy,
            .hour = second / 3600,
            .minute = second / 60 % 60,
            .second = second % 60 + leap};
}

namespace {

// Corrects a guess by its error until the error is zero. Two guesses that take turns lie on both
// sides of a gap; of these, one in daylight saving time is preferred. `second` is that of the
// target's minute, `wanted` what was asked for, which may be 60.
std::optional<std::int64_t> search(const Zone& zone, std::int64_t target, int second, int wanted) {
    std::int64_t guess = target, last = target, last_but_one = target;
    Shown found{};
    bool last_daylight = false;
    for (int probes = 6;; last_daylight = found.period.daylight) {
        if (guess > kFarthest || guess < -kFarthest || probes-- == 0) return std::nullopt;
        found = found.period.contains(guess) && zone.leaps.empty()
                    ? Shown{guess + found.period.offset, found.period, 0}
                    : shown_at(zone, guess);
        const std::int64_t error = target - (found.time + found.leap);
        if (error == 0) break;
        if (guess == last_but_one && guess != last && last_daylight <= found.period.daylight) break;
        last_but_one = std::exchange(last, guess);
        guess += error;
    }
    const auto found_second =
        static_cast<int>(found.time - 60 * floor_div(found.time, 60)) + found.leap;
    if (found_second == wanted) return guess;
    // The second was beyond the minute, or the guess hit a leap second for the second behind it.
    return guess + (second == 0 && found_second == 60) - second + wanted;
}

}  // namespace

std::optional<std::int64_t> instant_of(const Zone& zone, const LocalTime& local) {
    const int second = std::clamp(local.second, 0, 59);
    return search(zone, as_utc(local, second), second, local.second);
}

std::optional<std::int64_t> instant_of(const Zone& zone, std::int64_t local) {
    // Most times are of the period that the same time in UTC is of.
    const Period period = period_at(zone, local);
    const std::int64_t guess = local - period.offset;
    if (zone.leaps.empty() && period.contains(local) && period.contains(guess)) return guess;
    const auto second = static_cast<int>(local - 60 * floor_div(local, 60));
    return search(zone, local, second, second);
}

Fields fields_in(const Zone& zone, double epoch) {
    const double whole = std::trunc(epoch);
    const LocalTime local = local_time(zone, to_integer<std::int64_t>(whole));
    const double second = local.second + (epoch - whole);
    return {.epoch = epoch,
            .second = second,
            .zone = local.abbreviation,
            .year = local.year,
            .month = local.month,
            .day = local.day,
            .doy = local.doy,
            .hour = local.hour,
            .minute = local.minute,
            .whole_second = to_integer(second)};
}

}  // namespace morva::time
