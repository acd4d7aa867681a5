// Time zones by name, and the two ways through them.
//
//     ZoneRef zone = find_zone("US/Mountain");
//     LocalTime local = local_time(*zone, instant);       // local.abbreviation lives with zone
//     std::optional<std::int64_t> back = instant_of(*zone, local);
//
// Zones are read once and kept for the process, for all threads, in a table that is searched
// without a lock; nothing touches TZ or the C library's zone. A file that changes is noticed within
// seconds. TZDIR counts when a file is opened.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "time/zone.hpp"

namespace morva::time {

// A zone to use: one of those that are kept, or one of its own when too many are kept already.
class ZoneRef {
  public:
    ZoneRef() = default;
    explicit ZoneRef(const Zone* kept) : zone_(kept) {}
    explicit ZoneRef(std::unique_ptr<const Zone> own) : zone_(own.get()), own_(std::move(own)) {}
    explicit operator bool() const { return zone_ != nullptr; }
    const Zone& operator*() const { return *zone_; }
    const Zone* operator->() const { return zone_; }

  private:
    const Zone* zone_ = nullptr;
    std::unique_ptr<const Zone> own_;
};

// The zone of a name of the database ("US/Mountain", also with a colon in front) or of a POSIX zone
// text ("EST5EDT4,M3.2.0,M11.1.0"); null when it is neither. Names are those that is_timezone
// takes: nothing that leads out of the database's folder is opened. Registers nothing.
ZoneRef find_zone(std::string_view name);

// As find_zone, for names of the database alone, and "UTC" and "GMT".
ZoneRef find_named_zone(std::string_view name);

// The zone of the process, as the C library would find it: by TZ as it is at the moment, or the
// system's. Takes the lock of switchTZ for a moment. Never null. Registers nothing.
ZoneRef local_zone();

struct LocalTime {
    std::string_view abbreviation;
    std::int32_t offset;  // seconds east of Greenwich
    bool daylight;
    int year;
    int month;
    int day;
    int doy;
    int hour;
    int minute;
    int second;  // 60 in a leap second, of zones that count them
};

// What the clocks of a zone show, as the C library's localtime has it. Instants beyond the years
// that an int holds are moved to the last that it does.
LocalTime local_time(const Zone& zone, std::int64_t instant);

// The instant of a local time, as the C library's mktime has it with tm_isdst at -1 (from a fresh
// start: its memory of earlier calls is left out). Only year, month, day, hour, minute and second
// are looked at; they may be out of range (second: 0 .. 60 is what is kept through a leap second).
// A time that a clock change skips gets one of the two instants beside the gap, one that occurs
// twice one of the two. Nothing when no instant is found.
std::optional<std::int64_t> instant_of(const Zone& zone, const LocalTime& local);

// As the other, of a local time given as the seconds that it would be away from the epoch in UTC.
std::optional<std::int64_t> instant_of(const Zone& zone, std::int64_t local);

// An epoch time in a zone, as zepoch2str breaks it down. The zone must outlive the fields.
Fields fields_in(const Zone& zone, double epoch);

// The zone that zepoch2str formats in: "" and "LOCAL" are the process's, as is, with a message in
// the register, any that is not known. The caller holds no lock.
ZoneRef zone_or_local(const char* name);

// Guards the environment's TZ and what switchTZ keeps. It may be taken again by the thread that
// holds it.
std::recursive_mutex& zone_lock();

}  // namespace morva::time
