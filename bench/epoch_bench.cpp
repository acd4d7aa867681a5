// Times beside what a C++ programmer would reach for:
//   epoch2str    "2014-06-24 12:30:15.500" in UTC
//   zepoch2str   the same with the zone's name in New York
//   etoh         year, month, day, hour, minute, second of an epoch time
//   h2e          an epoch time of year, day of the year, hour, minute, second
// Times are a million random ones of the years 1970 to 2037; each call's text is freed.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "bench.hpp"
#ifdef MORVA_PEER_ABSL
#include <absl/time/time.h>
#endif
#ifdef MORVA_PEER_FMT
#include <fmt/chrono.h>
#endif
#ifdef MORVA_PEER_DATE
#include <date/date.h>
#endif

namespace {

using benchmark::State;

const std::vector<double>& times() {
    static const std::vector<double> made = [] {
        bench::Random random(1);
        std::vector<double> list(1 << 20);
        for (double& t : list) t = static_cast<double>(random() % 2145916800000) / 1000;
        return list;
    }();
    return made;
}

// Runs a body over the times.
template <class Body>
void over_times(State& state, Body body) {
    const auto& list = times();
    std::size_t i = 0;
    for (auto _ : state) {
        body(list[i]);
        if (++i == list.size()) i = 0;
    }
}

void epoch2str_morva(State& state) {
    over_times(state, [](double t) {
        char* text = epoch2str("%Y-%m-%d %H:%M:%S.%s", t);
        benchmark::DoNotOptimize(*text);
        std::free(text);
    });
}

int milliseconds(double t) {
    return static_cast<int>((t - std::floor(t)) * 1000 + 0.5);
}

void epoch2str_strftime(State& state) {
    over_times(state, [](double t) {
        const auto seconds = static_cast<std::time_t>(t);
        std::tm tm;
        gmtime_r(&seconds, &tm);
        char text[64];
        const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
        std::snprintf(text + length, sizeof text - length, ".%03d", milliseconds(t));
        char* copy = strdup(text);
        benchmark::DoNotOptimize(*copy);
        std::free(copy);
    });
}

void zepoch2str_morva(State& state) {
    over_times(state, [](double t) {
        char* text = zepoch2str("%Y-%m-%d %H:%M:%S.%s %z", "America/New_York", t);
        benchmark::DoNotOptimize(*text);
        std::free(text);
    });
}

void etoh_morva(State& state) {
    over_times(state, [](double t) {
        DateTime fields;
        fields.epoch = t;
        etoh(&fields);
        benchmark::DoNotOptimize(fields);
    });
}

struct CalendarTime {
    int year, doy, hour, minute;
    double second;
};

const std::vector<CalendarTime>& calendar_times() {
    static const std::vector<CalendarTime> made = [] {
        std::vector<CalendarTime> list(1 << 12);
        for (std::size_t i = 0; i < list.size(); ++i)
            e2h(times()[i], &list[i].year, &list[i].doy, &list[i].hour, &list[i].minute,
                &list[i].second);
        return list;
    }();
    return made;
}

template <class Body>
void over_calendar_times(State& state, Body body) {
    const auto& list = calendar_times();
    std::size_t i = 0;
    for (auto _ : state) {
        double epoch = body(list[i]);
        benchmark::DoNotOptimize(epoch);
        if (++i == list.size()) i = 0;
    }
}

void h2e_morva(State& state) {
    over_calendar_times(state, [](const CalendarTime& t) {
        return h2e(t.year, t.doy, t.hour, t.minute, t.second);
    });
}

#ifdef MORVA_PEER_FMT
void epoch2str_fmt(State& state) {
    over_times(state, [](double t) {
        const std::time_t seconds = static_cast<std::time_t>(t);
        const std::string text =
            fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::gmtime(seconds), milliseconds(t));
        benchmark::DoNotOptimize(text.data());
    });
}
#endif

#ifdef MORVA_PEER_ABSL
void epoch2str_absl(State& state) {
    over_times(state, [](double t) {
        const std::string text = absl::FormatTime(
            "%Y-%m-%d %H:%M:%E3S", absl::UnixEpoch() + absl::Seconds(t), absl::UTCTimeZone());
        benchmark::DoNotOptimize(text.data());
    });
}

void zepoch2str_absl(State& state) {
    absl::TimeZone zone;
    if (!absl::LoadTimeZone("America/New_York", &zone)) return state.SkipWithError("no zone");
    over_times(state, [&](double t) {
        const std::string text =
            absl::FormatTime("%Y-%m-%d %H:%M:%E3S %Z", absl::UnixEpoch() + absl::Seconds(t), zone);
        benchmark::DoNotOptimize(text.data());
    });
}
#endif

#ifdef MORVA_PEER_DATE
void etoh_date(State& state) {
    using namespace std::chrono;
    over_times(state, [](double t) {
        const date::sys_time<duration<double>> point{duration<double>(t)};
        const auto day = date::floor<date::days>(point);
        const date::year_month_day ymd(day);
        const auto doy = (day - date::sys_days(ymd.year() / 1 / 1)).count() + 1;
        const auto clock = point - day;
        const auto hour = floor<hours>(clock);
        const auto minute = floor<minutes>(clock - hour);
        DateTime fields;
        fields.year = static_cast<int>(ymd.year());
        fields.month = static_cast<int>(static_cast<unsigned>(ymd.month()));
        fields.day = static_cast<int>(static_cast<unsigned>(ymd.day()));
        fields.doy = static_cast<int>(doy);
        fields.hour = static_cast<int>(hour.count());
        fields.minute = static_cast<int>(minute.count());
        fields.second = (clock - hour - minute).count();
        benchmark::DoNotOptimize(fields);
    });
}

void h2e_date(State& state) {
    using namespace std::chrono;
    over_calendar_times(state, [](const CalendarTime& t) {
        const auto day = date::sys_days(date::year(t.year) / 1 / 1) + date::days(t.doy - 1);
        const auto clock = hours(t.hour) + minutes(t.minute) + duration<double>(t.second);
        return duration<double>(day.time_since_epoch() + clock).count();
    });
}
#endif

const bool registered = [] {
    const auto add = [](const char* name, void (*body)(State&)) {
        benchmark::RegisterBenchmark(name, body);
    };
    add("epoch2str : morva", epoch2str_morva);
    add("epoch2str : gmtime_r + strftime", epoch2str_strftime);
#ifdef MORVA_PEER_FMT
    add("epoch2str : fmt", epoch2str_fmt);
#endif
#ifdef MORVA_PEER_ABSL
    add("epoch2str : absl", epoch2str_absl);
#endif
    add("zepoch2str : morva", zepoch2str_morva);
#ifdef MORVA_PEER_ABSL
    add("zepoch2str : absl", zepoch2str_absl);
#endif
    add("etoh : morva", etoh_morva);
#ifdef MORVA_PEER_DATE
    add("etoh : date", etoh_date);
#endif
    add("h2e : morva", h2e_morva);
#ifdef MORVA_PEER_DATE
    add("h2e : date", h2e_date);
#endif
    return true;
}();

}  // namespace
