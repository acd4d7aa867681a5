// Parameter trees beside the JSON tree that a program would keep its settings in instead.
//   pfget_string, pfget_int  a value three levels deep, by its path, at random among 2000 in a tree
//   of
//                            100 stations; the peer is given the three keys one by one
//   pfdup flat N             a copy of an array of N strings of some 24 bytes
//   pfdup nested N           a copy of N nodes: arrays of ten strings, ten to the level
#include <chrono>

#include "bench.hpp"

#ifdef MORVA_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif

namespace {

constexpr long kPaths = 2000;

struct Place {
    std::string station, parameter;
    std::string path() const { return "stations{" + station + "}{" + parameter + "}"; }
};

// Where the values are that the getters fetch.
const std::vector<Place>& places() {
    static const std::vector<Place> made = [] {
        const std::vector<std::string> stations = bench::random_keys(100, 4);
        const std::vector<std::string> parameters = bench::random_keys(20, 12, 2);
        bench::Random random(3);
        std::vector<Place> places;
        for (long i = 0; i < kPaths; ++i)
            places.push_back({stations[random() % 100], parameters[random() % 20]});
        return places;
    }();
    return made;
}

Pf* station_tree(const char* value) {
    Pf* root = pfnew(PFFILE);
    for (const Place& place : places()) pfset(root, place.path().c_str(), value);
    return root;
}

void get_string(benchmark::State& state) {
    Pf* root = station_tree("broadband");
    std::vector<std::string> paths;
    for (const Place& place : places()) paths.push_back(place.path());
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(pfget_string(root, paths[i++ % kPaths].c_str()));
    pffree(root);
}
BENCHMARK(get_string)->Name("pfget_string : morva");

void get_int(benchmark::State& state) {
    Pf* root = station_tree("12345");
    std::vector<std::string> paths;
    for (const Place& place : places()) paths.push_back(place.path());
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(pfget_int(root, paths[i++ % kPaths].c_str()));
    pffree(root);
}
BENCHMARK(get_int)->Name("pfget_int : morva");

// Times the copy alone; the copy is freed outside.
template <class Copy, class Free>
void time_copies(benchmark::State& state, Copy copy, Free free) {
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        const auto start = Clock::now();
        auto made = copy();
        benchmark::DoNotOptimize(made);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        free(made);
    }
}

std::string text_of(const std::string& key) {
    return "a value that goes with " + key.substr(0, 2);
}

// Calls put(path of one or more keys, text) for every string of the tree.
template <class Put>
void fill(bool nested, long count, Put put) {
    const std::vector<std::string> keys = bench::random_keys(static_cast<std::size_t>(count), 12);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        std::vector<std::string> path;
        if (nested)
            for (std::size_t group = keys.size() / 10; group > 1; group /= 10)
                path.push_back("group" + std::to_string(i % keys.size() / (keys.size() / group)));
        path.push_back(keys[i]);
        put(path, text_of(keys[i]));
    }
}

void dup(benchmark::State& state, bool nested, long count) {
    Pf* root = pfnew(PFFILE);
    fill(nested, count, [&](const std::vector<std::string>& keys, const std::string& text) {
        std::string path = keys[0];
        for (std::size_t i = 1; i < keys.size(); ++i) path += "{" + keys[i] + "}";
        pfset(root, path.c_str(), text.c_str());
    });
    time_copies(
        state, [&] { return pfdup(root); }, pffree);
    pffree(root);
}

#ifdef MORVA_PEER_NLOHMANN
nlohmann::json station_json(const nlohmann::json& value) {
    nlohmann::json root;
    for (const Place& place : places()) root["stations"][place.station][place.parameter] = value;
    return root;
}

const nlohmann::json& value_at(const nlohmann::json& root, const Place& place) {
    return root["stations"][place.station.c_str()][place.parameter.c_str()];
}

void json_get_string(benchmark::State& state) {
    const nlohmann::json root = station_json("broadband");
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            value_at(root, places()[i++ % kPaths]).get_ref<const std::string&>().c_str());
}
BENCHMARK(json_get_string)->Name("pfget_string : nlohmann");

void json_get_int(benchmark::State& state) {
    const nlohmann::json root = station_json(12345);
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(value_at(root, places()[i++ % kPaths]).get<long>());
}
BENCHMARK(json_get_int)->Name("pfget_int : nlohmann");

void json_copy(benchmark::State& state, bool nested, long count) {
    nlohmann::json root;
    fill(nested, count, [&](const std::vector<std::string>& keys, const std::string& text) {
        nlohmann::json* at = &root;
        for (const std::string& key : keys) at = &(*at)[key];
        *at = text;
    });
    time_copies(
        state, [&] { return new nlohmann::json(root); }, [](nlohmann::json* made) { delete made; });
}
#endif

const bool registered = [] {
    for (const bool nested : {false, true})
        for (const long count : {1000, 100'000}) {
            const std::string work =
                std::string("pfdup ") + (nested ? "nested " : "flat ") + std::to_string(count);
            benchmark::RegisterBenchmark((work + " : morva").c_str(), dup, nested, count)
                ->UseManualTime();
#ifdef MORVA_PEER_NLOHMANN
            benchmark::RegisterBenchmark((work + " : nlohmann").c_str(), json_copy, nested, count)
                ->UseManualTime();
#endif
        }
    return true;
}();

}  // namespace
