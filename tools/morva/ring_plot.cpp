// morva ring plot: what is to be drawn, and the axes.
#include "ring_plot.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "output.hpp"
#include "records.hpp"
#include "ring_commands.hpp"

namespace tool {

namespace {

constexpr int kValueTicks = 6;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string time_text(const char* format, double epoch) {
    return owned(epoch2str(format, epoch));
}

// ---- what is drawn

// What has a place on paper.
bool drawable(const Ring_point& point) {
    return std::fabs(point.time) < 1e13 && std::fabs(point.value) < 1e300;
}

// The pieces between breaks of what lies at from .. to.
std::vector<Piece> pieces_of(const OpenRing& ring, const std::vector<Ring_point>& points,
                             double from, double to) {
    std::vector<Piece> pieces;
    bool broken = true;
    for (std::size_t i = points.size(); i-- > 0;) {
        const Ring_point& point = points[i];
        if (!(point.time >= from && point.time <= to)) continue;
        if (ring.is_break(point) || !drawable(point)) {
            broken = true;
            continue;
        }
        if (broken) pieces.emplace_back();
        broken = false;
        pieces.back().push_back(point);
    }
    return pieces;
}

// The value axis: the range of the values and some air.
void scale(Panel& panel) {
    double low = kInfinity, high = -kInfinity;
    for (const Piece& piece : panel.pieces)
        for (const Ring_point& point : piece) {
            low = std::min(low, point.value);
            high = std::max(high, point.value);
        }
    if (!(low <= high)) return;
    const double air = high > low ? 0.06 * (high - low) : std::max(std::fabs(high) * 0.1, 1e-9);
    panel.low = low - air;
    panel.high = high + air;
    panel.ticks = value_ticks(panel.low, panel.high, kValueTicks);
}

using Snapshot = std::pair<OpenRing, std::vector<Ring_point>>;

bool open_all(const Arguments& arguments, std::vector<Snapshot>& rings) {
    for (const std::string& path : arguments.texts("FILE")) {
        OpenRing ring(path, RING_READONLY);
        if (!ring) return false;
        std::vector<Ring_point> points = ring.points(ring.get()->size);
        rings.emplace_back(std::move(ring), std::move(points));
    }
    return true;
}

// The time axis: up to the newest point of all, back to the oldest, unless something else is asked
// for. False, with a complaint, for what is no time.
bool set_axis(const Arguments& arguments, const std::vector<Snapshot>& rings, Plot& plot) {
    double oldest = kInfinity, newest = -kInfinity, span = 0;
    for (const auto& [ring, points] : rings)
        for (const Ring_point& point : points) {
            if (!drawable(point)) continue;
            oldest = std::min(oldest, point.time);
            newest = std::max(newest, point.time);
        }
    plot.to = std::isfinite(newest) ? newest : 1;
    if (arguments.has("--end") && !read_time(arguments.text("--end"), plot.to)) return false;
    if (arguments.has("--span") && !read_number(arguments.text("--span"), span)) return false;
    plot.from = span > 0 ? plot.to - span : std::min(std::isfinite(oldest) ? oldest : 0, plot.to);
    if (plot.from == plot.to) plot.from -= 1;
    return true;
}

bool gather(const Arguments& arguments, Plot& plot) {
    std::vector<Snapshot> rings;
    if (!open_all(arguments, rings) || !set_axis(arguments, rings, plot)) return false;
    for (const auto& [ring, points] : rings) {
        Panel panel;
        panel.file = ring.path();
        panel.title = ring.title();
        panel.pieces = pieces_of(ring, points, plot.from, plot.to);
        scale(panel);
        plot.panels.push_back(std::move(panel));
    }
    return true;
}

std::string plot_json(const Plot& plot) {
    std::string text;
    for (const Panel& panel : plot.panels) {
        JsonList pieces;
        for (const Piece& piece : panel.pieces) {
            JsonList points;
            for (const Ring_point& point : piece)
                points.add("[" + number_json(point.time) + "," + number_json(point.value) + "]");
            pieces.add(points.str());
        }
        text += JsonObject()
                    .text("file", panel.file)
                    .text("title", panel.title)
                    .raw("from", number_json(plot.from))
                    .text("from_iso", iso_time(plot.from))
                    .raw("to", number_json(plot.to))
                    .text("to_iso", iso_time(plot.to))
                    .raw("pieces", pieces.str())
                    .str() +
                "\n";
    }
    return text;
}

int terminal_columns() {
    constexpr int kFewest = 40, kMost = 250, kUsual = 80;
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
    return std::clamp<int>(size.ws_col, kFewest, kMost);
}

int count_option(const Arguments& arguments, const char* name, int usual, int least, int most) {
    if (!arguments.has(name)) return usual;
    return static_cast<int>(
        std::clamp<long>(std::strtol(arguments.text(name).c_str(), nullptr, 10), least, most));
}

}  // namespace

std::vector<Tick> time_ticks(double from, double to, int count) {
    double first = 0, step = 0;
    get_nice_times(count, &first, &step, from, to);
    std::vector<Tick> ticks;
    if (!(step > 0)) return ticks;
    const char* format = step >= 86400 ? "%d %b"
                         : step >= 60  ? "%H:%M"
                         : step >= 1   ? "%H:%M:%S"
                                       : "%H:%M:%S.%s";
    std::string day;
    for (int k = 0; k < 10 * count && first + k * step <= to; ++k) {
        const double at = first + k * step;
        // A hair later, so that no tick is named after the second before.
        Tick tick{at, time_text(format, at + 1e-4 * std::min(step, 1.0))};
        const std::string today = time_text(step >= 86400 ? "%Y" : "%Y-%m-%d", at + 1e-4);
        if (today != day) tick.day = day = today;
        ticks.push_back(tick);
    }
    return ticks;
}

std::vector<Tick> value_ticks(double low, double high, int count) {
    const double raw = (high - low) / count;
    std::vector<Tick> ticks;
    if (!(raw > 0) || !std::isfinite(raw)) return ticks;
    const double power = std::pow(10, std::floor(std::log10(raw)));
    double step = 10 * power;
    for (const double factor : {5.0, 2.0, 1.0})
        if (factor * power >= raw * 0.999) step = factor * power;
    for (double k = std::ceil(low / step); k * step <= high && ticks.size() < 100; ++k) {
        char text[32];
        std::snprintf(text, sizeof text, "%.6g", k == 0 ? 0.0 : k * step);
        ticks.push_back({k * step, text});
    }
    return ticks;
}

Piece thinned(const Piece& piece, double from, double to, int columns) {
    if (piece.size() <= static_cast<std::size_t>(4 * columns)) return piece;
    const auto column_of = [&](const Ring_point& point) {
        return std::floor((point.time - from) / (to - from) * columns);
    };
    Piece thin;
    for (auto begin = piece.begin(); begin != piece.end();) {
        const double column = column_of(*begin);
        const auto end = std::find_if(begin, piece.end(), [&](const Ring_point& point) {
            return column_of(point) != column;
        });
        auto [low, high] = std::minmax_element(
            begin, end, [](const auto& a, const auto& b) { return a.value < b.value; });
        if (high < low) std::swap(low, high);
        for (const auto& point : {*begin, *low, *high, *(end - 1)}) thin.push_back(point);
        begin = end;
    }
    return thin;
}

int ring_plot(const Arguments& arguments) {
    Plot plot;
    if (!gather(arguments, plot)) return kUnusable;
    if (arguments.has("--output")) {
        const int width = count_option(arguments, "--width", 1000, 300, 20000);
        const int height = count_option(arguments, "--height", 180, 60, 5000);
        if (!draw_picture(plot, arguments.text("--output"), width, height)) return kUnusable;
    }
    if (arguments.has("--json"))
        print(plot_json(plot));
    else if (!arguments.has("--output"))
        draw_on_terminal(plot, terminal_columns());
    return finish(kDone);
}

}  // namespace tool
