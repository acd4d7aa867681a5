// Matching beside PCRE2 compiled to machine code:
//   strmatches      one pattern, kept in a hook, against channel names
//   match_stachans  a selection list against 5,000 station and channel pairs; PCRE2 tries the same
//                   entries with the same patterns, anchored
#include <cstring>

#include "bench.hpp"
#ifdef MORVA_PEER_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif

namespace {

using benchmark::State;

constexpr char kPattern[] = "[A-Z]{2}[ZNE12](_[0-9]+)?";
constexpr char kLoosePattern[] = "BH[ZNE]";

const std::vector<std::string>& channels() {
    static const std::vector<std::string> names = [] {
        const char* const all[] = {"BHZ",    "BHN",   "BHE_00", "LHZ_10", "HHZ", "LOG",
                                   "BHZ_01", "VMU",   "EHZ_2",  "ACE",    "BDF", "LCQ_00",
                                   "bhz",    "HNZ_a", "BH1_99", "BH2"};
        bench::Random random(1);
        std::vector<std::string> made(1024);
        for (auto& name : made) name = all[random() % std::size(all)];
        return made;
    }();
    return names;
}

const std::vector<std::string>& lines() {
    static const std::vector<std::string> made = [] {
        std::vector<std::string> texts = bench::random_keys(1024, 40);
        for (std::size_t i = 0; i < texts.size(); i += 2) texts[i].replace(25, 3, "BHZ");
        return texts;
    }();
    return made;
}

struct Pair {
    std::string station, channel;
};
const std::vector<Pair>& pairs() {
    static const std::vector<Pair> made = [] {
        const auto stations = bench::random_keys(500, 4, 7);
        const char* const codes[] = {"BHZ", "BHN", "BHE", "LHZ", "HHZ",
                                     "HHN", "HHE", "LCQ", "VMZ", "EHZ"};
        std::vector<Pair> list;
        for (const auto& station : stations)
            for (const char* code : codes) list.push_back({station, code});
        return list;
    }();
    return made;
}
constexpr char kList[] =
    "AAK:BH[ZNE], [A-M].*:HH., KONO, XY..:LH., .*Z:(BH|HH)Z, Q.*, .*[0-9]:[BH]HE";

void matches_morva(State& state) {
    Hook* hook = nullptr;
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(strmatches(channels()[i++ % 1024].c_str(), kPattern, &hook));
    free_hook(&hook);
}

void contains_morva(State& state) {
    Hook* hook = nullptr;
    std::size_t i = 0;
    int start, length;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            strcontains(lines()[i++ % 1024].c_str(), kLoosePattern, &hook, &start, &length));
    free_hook(&hook);
}

void once_morva(State& state) {
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(strmatches(channels()[i++ % 1024].c_str(), kPattern, nullptr));
}

void stachans_morva(State& state) {
    for (auto _ : state)
        for (const Pair& pair : pairs())
            benchmark::DoNotOptimize(
                match_stachans(kList, pair.station.c_str(), pair.channel.c_str()));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pairs().size()));
}

#ifdef MORVA_PEER_PCRE2
class Jit {
  public:
    explicit Jit(const std::string& pattern, uint32_t options) {
        int code;
        size_t offset;
        compiled_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.c_str()),
                                  PCRE2_ZERO_TERMINATED, options, &code, &offset, nullptr);
        pcre2_jit_compile(compiled_, PCRE2_JIT_COMPLETE);
        match_ = pcre2_match_data_create_from_pattern(compiled_, nullptr);
    }
    Jit(Jit&& other) noexcept : compiled_(other.compiled_), match_(other.match_) {
        other.compiled_ = nullptr, other.match_ = nullptr;
    }
    ~Jit() {
        pcre2_match_data_free(match_);
        pcre2_code_free(compiled_);
    }
    bool matches(const char* text) const {
        return pcre2_jit_match(compiled_, reinterpret_cast<PCRE2_SPTR>(text), std::strlen(text), 0,
                               0, match_, nullptr) >= 0;
    }

  private:
    pcre2_code* compiled_;
    pcre2_match_data* match_;
};
constexpr uint32_t kWhole = PCRE2_ANCHORED | PCRE2_ENDANCHORED;

void matches_pcre2(State& state) {
    const Jit pattern(kPattern, kWhole);
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(pattern.matches(channels()[i++ % 1024].c_str()));
}

void contains_pcre2(State& state) {
    const Jit pattern(kLoosePattern, 0);
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(pattern.matches(lines()[i++ % 1024].c_str()));
}

void once_pcre2(State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        const Jit pattern(kPattern, kWhole);
        benchmark::DoNotOptimize(pattern.matches(channels()[i++ % 1024].c_str()));
    }
}

struct Entry {
    std::vector<Jit> channel;
    Jit station;
};

std::vector<Entry> entries() {
    std::vector<Entry> made;
    std::string list;
    for (char c : std::string(kList))
        if (c != ' ') list += c;
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t comma = std::min(list.find(',', at), list.size());
        const std::string entry = list.substr(at, comma - at);
        const std::size_t colon = entry.find(':');
        std::vector<Jit> channel;
        if (colon != std::string::npos) channel.emplace_back(entry.substr(colon + 1), kWhole);
        made.push_back({std::move(channel), Jit(entry.substr(0, colon), kWhole)});
        at = comma + 1;
    }
    return made;
}

void stachans_pcre2(State& state) {
    const std::vector<Entry> list = entries();
    for (auto _ : state)
        for (const Pair& pair : pairs()) {
            int position = 0;
            for (std::size_t i = 0; i < list.size() && position == 0; ++i) {
                if (!list[i].channel.empty() && !list[i].channel[0].matches(pair.channel.c_str()))
                    continue;
                if (list[i].station.matches(pair.station.c_str()))
                    position = static_cast<int>(i) + 1;
            }
            benchmark::DoNotOptimize(position);
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pairs().size()));
}
#endif

const bool registered = [] {
    const auto add = [](const char* name, void (*body)(State&)) {
        benchmark::RegisterBenchmark(name, body);
    };
    add("strmatches with a hook : morva", matches_morva);
    add("strcontains with a hook : morva", contains_morva);
    add("strmatches without a hook : morva", once_morva);
    add("match_stachans 5000 pairs : morva", stachans_morva);
#ifdef MORVA_PEER_PCRE2
    add("strmatches with a hook : PCRE2 JIT", matches_pcre2);
    add("strcontains with a hook : PCRE2 JIT", contains_pcre2);
    add("strmatches without a hook : PCRE2 JIT", once_pcre2);
    add("match_stachans 5000 pairs : PCRE2 JIT", stachans_pcre2);
#endif
    return true;
}();

}  // namespace
