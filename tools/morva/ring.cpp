// morva ring: short histories in files, made, filled and read.
#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>
#include <optional>

#include "output.hpp"
#include "records.hpp"
#include "ring_commands.hpp"
#include "skerrows.h"

namespace tool {

namespace {

constexpr double kEver = std::numeric_limits<double>::infinity();

// The option's number, or another one; false with a complaint when it is none.
bool option(const Arguments& arguments, const char* name, double& value) {
    return !arguments.has(name) || read_number(arguments.text(name), value);
}

// ---- push

enum class Pushed { stored, refused, unreadable };

class Pusher {
  public:
    Pusher(Ring* ring, bool collapse) : ring_(ring), collapse_(collapse) {}

    Pushed push(double time, const std::string& value_text) const {
        double value;
        if (!read_number(value_text, value)) return Pushed::unreadable;
        const int result =
            collapse_ ? cramring(ring_, "collapse", time, value) : pushring(ring_, time, value);
        if (result == 0) return Pushed::stored;
        elog_complain(0, "not behind the newest point: %s %s", iso_time(time).c_str(),
                      number_text(value).c_str());
        return Pushed::refused;
    }

    // "VALUE", which is of now, or "TIME VALUE".
    Pushed push_line(const std::string& line) const {
        const std::size_t end = line.find_last_not_of(" \t\r");
        const std::size_t value = line.find_last_of(" \t", end);
        if (value == std::string::npos) return push(std_now(), line.substr(0, end + 1));
        double time;
        if (!read_time(line.substr(0, value), time)) return Pushed::unreadable;
        return push(time, line.substr(value + 1, end - value));
    }

  private:
    Ring* ring_;
    bool collapse_;
};

int status_of(Pushed pushed) {
    return pushed == Pushed::stored ? kDone : pushed == Pushed::refused ? kFindings : kUnusable;
}

int push_lines(const Pusher& pusher) {
    int status = kDone;
    for (std::string line; std::getline(std::cin, line);) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        status = std::max(status, status_of(pusher.push_line(line)));
    }
    return status;
}

// ---- tail

void print_point(const OpenRing& ring, const Ring_point& point, bool json) {
    const bool is_break = ring.is_break(point);
    if (json) {
        print(JsonObject()
                  .raw("time", number_json(point.time))
                  .text("iso", iso_time(point.time))
                  .raw("value", is_break ? "null" : number_json(point.value))
                  .boolean("break", is_break)
                  .str() +
              "\n");
    } else {
        print(coloured(Colour::cyan, iso_time(point.time)) + "  " +
              (is_break ? coloured(Colour::yellow, "break") : number_text(point.value)) + "\n");
    }
}

// ---- stats

struct Stats {
    std::string label;
    const char* key;
    double value;
    bool is_time = false;
    std::string remark{};
};

double time_at(const OpenRing& ring, long i) {
    double time = std::nan("");
    getring(ring.get(), static_cast<int>(i), &time, nullptr);
    return time;
}

std::vector<Stats> stats_of(const OpenRing& ring, double span) {
    Ring* r = ring.get();
    int n, high_at, low_at;
    double mean, deviation, slope, intercept, correlation, value = std::nan("");
    const double low = minring(r, &low_at, span), high = maxring(r, &high_at, span);
    meanring(r, &n, &mean, &deviation, span);
    linearfitring(r, nullptr, &slope, &intercept, &correlation, span);
    const double fractions[] = {0.05, 0.5, 0.95};
    double quantiles[3];
    quantilesring(r, fractions, quantiles, 3, span);
    getring(r, 0, nullptr, &value);
    const auto when = [&](int at) { return at < 0 ? "" : iso_time(time_at(ring, at)); };
    return {{"points", "points", static_cast<double>(countring(r))},
            {"newest", "newest", time_at(ring, 0), true, number_text(value)},
            {"oldest", "oldest", time_at(ring, countring(r) - 1), true},
            {"in the span", "n", static_cast<double>(n)},
            {"smallest", "min", low, false, when(low_at)},
            {"largest", "max", high, false, when(high_at)},
            {"mean", "mean", n > 0 ? mean : std::nan("")},
            {"deviation", "deviation", n > 0 ? deviation : std::nan("")},
            {"5 %", "p5", quantiles[0]},
            {"median", "median", quantiles[1]},
            {"95 %", "p95", quantiles[2]},
            {"slope an hour", "slope_per_hour", n > 1 ? slope * 3600 : std::nan("")},
            {"correlation", "correlation", n > 1 ? correlation : std::nan("")}};
}

std::string rounded(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

void print_stats(const OpenRing& ring, double span) {
    print(coloured(Colour::bold, one_line(ring.path())) + "  " + one_line(ring.id()) + "\n");
    for (const Stats& row : stats_of(ring, span)) {
        if (!std::isfinite(row.value)) continue;
        std::string label = row.label;
        label.resize(15, ' ');
        print("  " + coloured(Colour::cyan, label) +
              (row.is_time ? iso_time(row.value) : rounded(row.value)) +
              (row.remark.empty() ? "" : "  " + row.remark) + "\n");
    }
}

std::string stats_json(const OpenRing& ring, double span) {
    JsonObject object;
    object.text("file", ring.path()).text("id", ring.id()).number("size", ring.get()->size);
    for (const Stats& row : stats_of(ring, span)) {
        object.raw(row.key, number_json(row.value));
        if (row.is_time && std::isfinite(row.value))
            object.text(std::string(row.key) + "_iso", iso_time(row.value));
    }
    return object.str() + "\n";
}

// ---- watch

// What came since the last look.
class Watch {
  public:
    Watch(OpenRing& ring, bool json) : ring_(ring), json_(json) {
        Ring_point newest;
        if (snapring(ring.get(), &newest, 1) == 1) last_ = newest;
    }

    // Prints what is new, `most` at most, and tells how many.
    long look(long most) {
        std::vector<Ring_point> points = ring_.points(ring_.get()->size);
        std::size_t fresh = 0;
        while (fresh < points.size() && !is_last(points[fresh])) ++fresh;
        const auto count = std::min(fresh, static_cast<std::size_t>(most));
        for (std::size_t k = 1; k <= count; ++k) print_point(ring_, points[fresh - k], json_);
        std::fflush(stdout);
        if (!points.empty()) last_ = points[fresh - count];
        return static_cast<long>(count);
    }

  private:
    // A point older than the last one seen ends the search when that one has left the ring.
    bool is_last(const Ring_point& point) const {
        return last_ &&
               (std::memcmp(&point, &*last_, sizeof point) == 0 || point.time < last_->time);
    }

    OpenRing& ring_;
    bool json_;
    std::optional<Ring_point> last_;
};

}  // namespace

int ring_create(const Arguments& arguments) {
    const std::string path = arguments.text("FILE");
    double gap = 60, null = -99999999.0;
    if (!option(arguments, "--gap", gap) || !option(arguments, "--null", null)) return kUnusable;
    if (is_file(path.c_str()) && !arguments.has("--force")) {
        elog_complain(0, "%s is there already; --force replaces it", path.c_str());
        return kUnusable;
    }
    const long size = std::strtol(arguments.text("SIZE").c_str(), nullptr, 10);
    if (newring(path.c_str(), arguments.text("--id").c_str(), static_cast<int>(size), 0) != 0) {
        elog_complain(0, "can't make %s", path.c_str());
        return kUnusable;
    }
    const OpenRing ring(path, 0);
    return ring && setring(ring.get(), gap, null) == 0 ? kDone : kUnusable;
}

int ring_push(const Arguments& arguments) {
    const std::string path = arguments.text("FILE"), value = arguments.text("VALUE");
    double time = std_now();
    if (arguments.has("--time") && !read_time(arguments.text("--time"), time)) return kUnusable;
    if (!is_file(path.c_str())) {
        elog_complain(0, "there is no %s: see morva ring create", path.c_str());
        return kUnusable;
    }
    const OpenRing ring(path, 0);
    if (!ring) return kUnusable;
    const Pusher pusher(ring.get(), arguments.has("--collapse"));
    return value == "-" ? push_lines(pusher) : status_of(pusher.push(time, value));
}

int ring_tail(const Arguments& arguments) {
    double span = kEver;
    if (!option(arguments, "--span", span)) return kUnusable;
    const OpenRing ring(arguments.text("FILE"), RING_READONLY);
    if (!ring) return kUnusable;
    const char* usual = arguments.has("--span") ? "1000000000" : "10";
    const std::vector<Ring_point> points =
        ring.points(std::strtol(arguments.text("--lines", usual).c_str(), nullptr, 10));
    for (std::size_t i = points.size(); i-- > 0;)
        if (points[i].time > points[0].time - span)
            print_point(ring, points[i], arguments.has("--json"));
    return finish(kDone);
}

int ring_stats(const Arguments& arguments) {
    double span = kEver;
    if (!option(arguments, "--span", span)) return kUnusable;
    int status = kDone;
    for (const std::string& path : arguments.texts("FILE")) {
        const OpenRing ring(path, RING_READONLY);
        if (!ring)
            status = kUnusable;
        else if (arguments.has("--json"))
            print(stats_json(ring, span));
        else
            print_stats(ring, span);
    }
    return finish(status);
}

int ring_watch(const Arguments& arguments) {
    OpenRing ring(arguments.text("FILE"), RING_READONLY);
    if (!ring) return kUnusable;
    Watch watch(ring, arguments.has("--json"));
    double interval = 1;
    option(arguments, "--interval", interval);
    long left = std::strtol(arguments.text("--count", "1000000000").c_str(), nullptr, 10);
    while (left > 0 && std::ferror(stdout) == 0) {
        std_sleep(interval);
        left -= watch.look(left);
    }
    return finish(kDone);
}

namespace {

constexpr Parameter kFile = {"FILE", Takes::file, "the ring's file"};
constexpr Parameter kFiles = {"FILE", Takes::file, "files of rings", "", Given::many};
constexpr Parameter kSpan = {"-s,--span", Takes::seconds,
                             "only so many seconds back from the newest point", "SECONDS"};
constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};

constexpr Parameter kCreate[] = {
    kFile,
    {"SIZE", Takes::count, "how many points it holds"},
    {"--id", Takes::text, "what it is of, 64 bytes at most", "TEXT"},
    {"--gap", Takes::text, "longest step that is no break, 60 if not given; 0: no breaks",
     "SECONDS"},
    {"--null", Takes::text, "value that marks breaks, -99999999 if not given", "VALUE"},
    {"--force", Takes::nothing, "replace a file that is there"}};
constexpr Parameter kPush[] = {
    kFile,
    {"VALUE", Takes::text, "a number; - reads lines of VALUE or TIME VALUE from standard input"},
    {"-t,--time", Takes::text, "its time, now if not given", "TIME"},
    {"--collapse", Takes::nothing, "keep only first and last of a run of equal values"}};
constexpr Parameter kTail[] = {
    kFile, {"-n,--lines", Takes::count, "how many points, 10 if not given", "N"}, kSpan, kJson};
constexpr Parameter kStats[] = {kFiles, kSpan, kJson};
constexpr Parameter kWatch[] = {
    kFile,
    {"--interval", Takes::seconds, "time between two looks, 1 s if not given", "SECONDS"},
    {"--count", Takes::count, "end after so many points", "N"},
    kJson};
constexpr Parameter kPlot[] = {
    kFiles,
    {"-o,--output", Takes::file, "draw to this file: .png or .svg; on the terminal if not given",
     "FILE"},
    {"-s,--span", Takes::seconds, "only so many seconds back from the end", "SECONDS"},
    {"-e,--end", Takes::text, "the end of the time axis, the newest point if not given", "TIME"},
    {"--width", Takes::count, "of the picture in pixels, 1000 if not given", "N"},
    {"--height", Takes::count, "of each ring's panel in pixels, 180 if not given", "N"},
    kJson};

constexpr Command kCommands[] = {
    {"create", "make an empty ring",
     "    morva ring create latency.ring 3600 --id 'latency of AAK, s'", kCreate, ring_create},
    {"push", "store points",
     "A value below zero comes behind --. Ends with 1 when a point is not behind the newest "
     "one.\n\n"
     "    morva ring push latency.ring 0.31\n"
     "    morva ring push latency.ring --time '2014-06-24 12:30' -- -1\n"
     "    tail -f latencies | morva ring push latency.ring -",
     kPush, ring_push},
    {"tail", "print the newest points, the newest last", "    morva ring tail -n 3 latency.ring",
     kTail, ring_tail},
    {"stats", "tell range, mean, quantiles and trend", "    morva ring stats --span 600 *.ring",
     kStats, ring_stats},
    {"watch", "print points as they are stored", "    morva ring watch latency.ring", kWatch,
     ring_watch},
    {"plot", "draw rings below each other over one time axis",
     "--json prints what would be drawn.\n\n"
     "    morva ring plot latency.ring rate.ring\n"
     "    morva ring plot --span 3600 -o day.png *.ring",
     kPlot, ring_plot}};

}  // namespace

const Group ring_group = {"ring", "histories of measured quantities: make, fill, ask, draw", "",
                          kCommands};

}  // namespace tool
