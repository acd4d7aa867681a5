// Time strings beside what a C++ programmer would reach for:
//   str2epoch   random times of 1970 to 2037 in five shapes, each of which the peer is told
//   zstr2epoch  a date and a clock time with the name of a zone; strptime and mktime with TZ set
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

#include "bench.hpp"
#ifdef MORVA_PEER_ABSL
#include <absl/time/time.h>
#endif

namespace {

using benchmark::State;

struct Shape {
    const char* name;
    const char* written;   // the format for epoch2str
    const char* strptime;  // without the fraction
    const char* absl;
    bool fraction;
};
constexpr Shape kShapes[] = {
    {"2014-06-24 12:30:15.500", "%Y-%m-%d %H:%M:%S.%s", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M:%E*S",
     true},
    {"6/24/2014 12:30", "%L/%d/%Y %H:%M", "%m/%d/%Y %H:%M", "%m/%d/%Y %H:%M", false},
    {"2014:175:12:30:15", "%Y:%j:%H:%M:%S", "%Y:%j:%H:%M:%S", nullptr, false},
    {"June 24, 2014 12:30", "%B %d, %Y %H:%M", "%B %d, %Y %H:%M", "%B %d, %Y %H:%M", false},
    {"1403613015.500", "%E", "%s", "%E*s", true},
};
constexpr Shape kZoned = {"2014-06-24 12:30:15 America/New_York",
                          "%Y-%m-%d %H:%M:%S America/New_York", "%Y-%m-%d %H:%M:%S", nullptr,
                          false};

std::vector<std::string> texts_of(const Shape& shape) {
    bench::Random random(1);
    std::vector<std::string> texts;
    for (int i = 0; i < 1 << 14; ++i) {
        const double t = static_cast<double>(random() % 2145916800000) / 1000;
        char* text = epoch2str(shape.written, t);
        texts.emplace_back(text + std::strspn(text, " "));
        std::free(text);
    }
    return texts;
}

// Reads each text in turn. A failure ends the run.
template <class Read>
void over_texts(State& state, const Shape& shape, Read read) {
    const auto texts = texts_of(shape);
    std::size_t i = 0;
    for (auto _ : state) {
        double epoch = 0;
        if (!read(texts[i].c_str(), epoch)) return state.SkipWithError(texts[i].c_str());
        benchmark::DoNotOptimize(epoch);
        if (++i == texts.size()) i = 0;
    }
}

// The first text is read as morva reads it, or the comparison is void.
template <class Read>
void add(const std::string& work, const char* who, const Shape& shape, Read read) {
    const std::string text = texts_of(shape).front();
    double epoch = 0;
    if (!read(text.c_str(), epoch) || std::abs(epoch - str2epoch(text.c_str())) > 1e-6) {
        std::fprintf(stderr, "%s does not read '%s'\n", who, text.c_str());
        std::exit(1);
    }
    benchmark::RegisterBenchmark((work + " : " + who).c_str(),
                                 [=](State& state) { over_texts(state, shape, read); });
}

double fraction_at(const char* text, bool wanted) {
    return wanted && *text == '.' ? std::strtod(text, nullptr) : 0;
}

template <std::time_t (*convert)(std::tm*)>
bool read_tm(const char* text, const Shape& shape, double& epoch) {
    std::tm tm{};
    tm.tm_isdst = -1;
    const char* end = strptime(text, shape.strptime, &tm);
    if (end == nullptr) return false;
    if (std::strcmp(shape.strptime, "%Y:%j:%H:%M:%S") == 0) {  // timegm does not look at tm_yday
        tm.tm_mon = 0;
        tm.tm_mday = tm.tm_yday + 1;
    }
    epoch = static_cast<double>(convert(&tm)) + fraction_at(end, shape.fraction);
    return true;
}

void add_all() {
    is_month_first();
    Month_first = 1;
    for (const Shape& shape : kShapes) {
        const std::string work = std::string("str2epoch ") + shape.name;
        add(work, "morva", shape, [](const char* text, double& epoch) {
            epoch = str2epoch(text);
            return true;
        });
        if (std::strcmp(shape.strptime, "%s") != 0)
            add(work, "strptime+timegm", shape, [=](const char* text, double& epoch) {
                return read_tm<timegm>(text, shape, epoch);
            });
        else
            add(work, "strtod", shape, [](const char* text, double& epoch) {
                epoch = std::strtod(text, nullptr);
                return true;
            });
#ifdef MORVA_PEER_ABSL
        if (shape.absl != nullptr && std::strcmp(shape.strptime, "%s") != 0)
            add(work, "absl::ParseTime", shape, [=](const char* text, double& epoch) {
                absl::Time time;
                if (!absl::ParseTime(shape.absl, text, &time, nullptr)) return false;
                epoch = absl::ToDoubleSeconds(time - absl::UnixEpoch());
                return true;
            });
#endif
    }
    setenv("TZ", "America/New_York", 1);
    tzset();
    const std::string work = std::string("zstr2epoch ") + kZoned.name;
    add(work, "morva", kZoned,
        [](const char* text, double& epoch) { return zstr2epoch(text, &epoch) == 0; });
    add(work, "strptime+mktime", kZoned,
        [](const char* text, double& epoch) { return read_tm<mktime>(text, kZoned, epoch); });
}

const int added = (add_all(), 0);

}  // namespace
