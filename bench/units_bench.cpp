// Conversions of units beside udunits2, which is given the same expressions:
//   units_convert         both expressions as texts, each time; "kept": for the peer, as units that
//                         were parsed beforehand
//   units_convert_array   10,000 doubles at once; the peer's converter is made beforehand
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "bench.hpp"
#ifdef MORVA_PEER_UDUNITS2
#include <udunits2.h>
#endif

namespace {

using benchmark::State;

struct Work {
    const char *from, *to;
};
constexpr Work kWorks[] = {{"km/h", "m/s"}, {"nm/s", "um/s"}, {"counts/V", "count/mV"}};

void ours(State& state, const Work& work) {
    double result = 0;
    for (auto _ : state) {
        if (units_convert(3.5, work.from, &result, work.to, nullptr) != 0)
            return state.SkipWithError("not converted");
        benchmark::DoNotOptimize(result);
    }
}

std::vector<double> numbers() {
    std::vector<double> values(10000);
    bench::Random random(1);
    for (double& value : values) value = static_cast<double>(random() % 1000000) / 7;
    return values;
}

void our_array(State& state) {
    const std::vector<double> values = numbers();
    std::vector<double> results(values.size());
    for (auto _ : state) {
        units_convert_array(values.data(), static_cast<long>(values.size()), "km/h", results.data(),
                            "m/s", nullptr);
        benchmark::DoNotOptimize(results.data());
    }
}

#ifdef MORVA_PEER_UDUNITS2
ut_system* peer_system() {
    static ut_system* const system = [] {
        ut_set_error_message_handler(ut_ignore);
        ut_system* read = ut_read_xml(nullptr);
        ut_map_name_to_unit("counts", UT_ASCII, ut_new_base_unit(read));
        ut_map_name_to_unit("count", UT_ASCII, ut_get_unit_by_name(read, "counts"));
        return read;
    }();
    return system;
}

struct Parsed {
    explicit Parsed(const char* text) : unit(ut_parse(peer_system(), text, UT_ASCII)) {}
    ~Parsed() { ut_free(unit); }
    ut_unit* unit;
};

double convert_parsed(const Parsed& from, const Parsed& to) {
    cv_converter* converter = ut_get_converter(from.unit, to.unit);
    const double result = cv_convert_double(converter, 3.5);
    cv_free(converter);
    return result;
}

void peer(State& state, const Work& work) {
    peer_system();
    for (auto _ : state)
        benchmark::DoNotOptimize(convert_parsed(Parsed(work.from), Parsed(work.to)));
}

// Nothing is parsed.
void peer_kept(State& state, const Work& work) {
    const Parsed from(work.from), to(work.to);
    for (auto _ : state) benchmark::DoNotOptimize(convert_parsed(from, to));
}

void peer_array(State& state) {
    const std::vector<double> values = numbers();
    std::vector<double> results(values.size());
    const Parsed from("km/h"), to("m/s");
    cv_converter* converter = ut_get_converter(from.unit, to.unit);
    for (auto _ : state) {
        cv_convert_doubles(converter, values.data(), values.size(), results.data());
        benchmark::DoNotOptimize(results.data());
    }
    cv_free(converter);
}

void add_peer(const Work& work) {
    const std::string name = std::string("units_convert ") + work.from;
    double result = 0;
    units_convert(3.5, work.from, &result, work.to, nullptr);
    if (!(std::abs(convert_parsed(Parsed(work.from), Parsed(work.to)) / result - 1) < 1e-12)) {
        std::fprintf(stderr, "udunits2 does not convert %s\n", work.from);
        std::exit(1);
    }
    benchmark::RegisterBenchmark((name + " : udunits2").c_str(),
                                 [&work](State& state) { peer(state, work); });
    benchmark::RegisterBenchmark((name + " kept : udunits2").c_str(),
                                 [&work](State& state) { peer_kept(state, work); });
}
#endif

int add_all() {
    setenv("UNITS", MORVA_UNITS, 0);
    for (const Work& work : kWorks) {
        const std::string name = std::string("units_convert ") + work.from;
        for (const char* kind : {"", " kept"})
            benchmark::RegisterBenchmark((name + kind + " : morva").c_str(),
                                         [&work](State& state) { ours(state, work); });
#ifdef MORVA_PEER_UDUNITS2
        add_peer(work);
#endif
    }
    benchmark::RegisterBenchmark("units_convert_array 1e4 : morva", our_array);
#ifdef MORVA_PEER_UDUNITS2
    benchmark::RegisterBenchmark("units_convert_array 1e4 : udunits2", peer_array);
#endif
    return 0;
}

const int added = add_all();

}  // namespace
