// Round steps for the axis of a plot.
#include <cmath>

#include "morva/epoch.h"
#include "time/calendar.hpp"

namespace {

using morva::time::kDay;

constexpr double kSteps[] = {2,   5,    10,   15,   20,   30,    60,    120,   300,   600,
                             900, 1200, 1800, 3600, 7200, 14400, 21600, 28800, 43200, 86400};

struct Axis {
    double step;
    double offset;  // of the start within the larger unit that the steps divide
};

double round_fraction(double raw) {
    for (double scale = 1;; scale *= 0.1, raw *= 10) {
        if (raw > 0.5) return scale;
        if (raw > 0.2) return 0.5 * scale;
        if (raw > 0.1) return 0.2 * scale;
    }
}

double round_seconds(double raw) {
    for (const double step : kSteps)
        if (step >= raw) return step;
    return kDay;
}

double round_days(double raw) {
    for (double scale = 1;; scale *= 10, raw *= 0.1) {
        if (raw <= 2) return 2 * scale;
        if (raw <= 5) return 5 * scale;
        if (raw <= 10) return 10 * scale;
    }
}

Axis choose(double raw, const DateTime& start) {
    const double minutes = start.minute * 60 + start.second;
    const double hours = (start.hour * 60.0 + start.minute) * 60 + start.second;
    if (raw <= 1) return {round_fraction(raw), start.second};
    if (raw > kDay) return {kDay * round_days(raw / kDay), start.doy * kDay + hours};
    const double step = round_seconds(raw);
    return {step, step <= 60 ? start.second : step <= 3600 ? minutes : hours};
}

// The first tick behind the start. One that falls on a tick gets the next one, but for full
// minutes and hours, where it is the first tick itself.
double first_tick(double start, const Axis& axis) {
    if (axis.step == 60 || axis.step == 3600)
        return axis.offset == 0 ? start : start + axis.step - axis.offset;
    return start + (std::trunc(axis.offset / axis.step - 0.0001) + 1) * axis.step - axis.offset;
}

}  // namespace

extern "C" int get_nice_times(int count, double* first, double* step, double t0, double t1) {
    const double raw = std::fabs(t1 - t0) / count;
    if (count < 1 || !(raw > 0 && std::isfinite(raw))) {
        *first = 0;
        return 0;
    }
    DateTime start;
    start.epoch = t0;
    etoh(&start);
    const Axis axis = choose(raw, start);
    *step = axis.step;
    *first = first_tick(t0, axis);
    return 0;
}
