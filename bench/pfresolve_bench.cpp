// Paths and references beside what a program would write instead.
//   pfresolve keys   stations{AAK}{rate}, at random among 2000 paths into 100 stations; the peer, a
//                    JSON tree, is given the keys one by one
//   pfresolve item   stations{AAK}{channels}[1]; the peer, the keys and the index
//   pfexpand short   "&root/&year/data" fetched again and again; the peer looks the names up in a
//                    map and puts the text together
//   pfexpand 4 kB    64 references among plain words
#include <cstring>
#include <unordered_map>

#include "bench.hpp"

#ifdef MORVA_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif

namespace {

constexpr std::size_t kPaths = 2000;

struct Place {
    std::string station, parameter;
};

const std::vector<Place>& places() {
    static const std::vector<Place> made = [] {
        const auto stations = bench::random_keys(100, 4),
                   parameters = bench::random_keys(20, 12, 2);
        bench::Random random(3);
        std::vector<Place> places;
        for (std::size_t i = 0; i < kPaths; ++i)
            places.push_back({stations[random() % 100], parameters[random() % 20]});
        return places;
    }();
    return made;
}

// Every station has its parameters and a list of channels.
std::vector<std::string> paths(bool items) {
    std::vector<std::string> made;
    for (const Place& place : places())
        made.push_back("stations{" + place.station + "}" +
                       (items ? "{channels}[1]" : "{" + place.parameter + "}"));
    return made;
}

void put(Pf* root, const std::string& path, const char* text) {
    Pf* node = nullptr;
    if (pfresolve(root, path.c_str(), 1, &node) != PFPLACEHOLDER) return;
    node->type = PFSTRING;
    node->value.string = strdup(text);
}

void resolve(benchmark::State& state, bool items) {
    Pf* root = pfnew(PFFILE);
    for (const bool list : {false, true})
        for (std::string path : paths(list)) {
            if (list) put(root, path.substr(0, path.size() - 2) + "0]", "BHZ");
            put(root, path, "BHN");
        }
    const std::vector<std::string> wanted = paths(items);
    std::size_t i = 0;
    for (auto _ : state) {
        Pf* node = nullptr;
        pfresolve(root, wanted[i++ % kPaths].c_str(), 0, &node);
        benchmark::DoNotOptimize(node);
    }
    pffree(root);
}

#ifdef MORVA_PEER_NLOHMANN
void json(benchmark::State& state, bool items) {
    nlohmann::json root;
    for (const Place& place : places()) {
        root["stations"][place.station][place.parameter] = "BHN";
        root["stations"][place.station]["channels"] = {"BHZ", "BHN"};
    }
    std::size_t i = 0;
    for (auto _ : state) {
        const Place& place = places()[i++ % kPaths];
        const auto& station = root.at("stations").at(place.station);
        const auto& node = items ? station.at("channels").at(1) : station.at(place.parameter);
        benchmark::DoNotOptimize(&node);
    }
}
#endif

std::string text_with_references(bool large) {
    std::string text = "&root/&year/data";
    for (int i = 0; large && i < 31; ++i)
        text +=
            " some words of plain text that stand in between, and then &root/&year once more"
            " and a word or two, quite plain ones, to make up a line of text";
    return text;
}

void expand(benchmark::State& state, bool large) {
    Pf* root = nullptr;
    const std::string text =
        "root /data/archive\nyear 2024\nvalue " + text_with_references(large) + "\n";
    pfcompile(text.c_str(), &root);
    Pf* node = nullptr;
    pfresolve(root, "value", 0, &node);
    for (auto _ : state) benchmark::DoNotOptimize(pfexpand(node));
    pffree(root);
}

void map_and_string(benchmark::State& state, bool large) {
    const std::unordered_map<std::string, std::string> values{{"root", "/data/archive"},
                                                              {"year", "2024"}};
    const std::string text = text_with_references(large);
    for (auto _ : state) {
        std::string made;
        std::size_t at = 0;
        for (std::size_t next; (next = text.find('&', at)) != text.npos;) {
            made.append(text, at, next - at);
            std::size_t end = next + 1;
            while (end < text.size() &&
                   (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
                ++end;
            const auto value = values.find(text.substr(next + 1, end - next - 1));
            if (value != values.end()) made += value->second;
            at = end;
        }
        made.append(text, at);
        benchmark::DoNotOptimize(made.data());
    }
}

const bool registered = [] {
    for (const bool second : {false, true}) {
        const std::string path = second ? "pfresolve item" : "pfresolve keys";
        const std::string text = second ? "pfexpand 4 kB" : "pfexpand short";
        benchmark::RegisterBenchmark((path + " : morva").c_str(), resolve, second);
#ifdef MORVA_PEER_NLOHMANN
        benchmark::RegisterBenchmark((path + " : nlohmann").c_str(), json, second);
#endif
        benchmark::RegisterBenchmark((text + " : morva").c_str(), expand, second);
        benchmark::RegisterBenchmark((text + " : map and string").c_str(), map_and_string, second);
    }
    return true;
}();

}  // namespace
