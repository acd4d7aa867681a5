// Renaming by rules: 5,000 channel names through a table of 20 rules, beside regexec rule by rule
// and PCRE2 compiled to machine code, which put the result together in the same way.
#include <regex.h>

#include <cstring>

#include "bench.hpp"
#ifdef MORVA_PEER_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif

namespace {

using benchmark::State;

constexpr const char* kRules[][2] = {{"^BH([ZNE])$", "HH$1"},
                                     {"^LH([ZNE])$", "MH$1"},
                                     {"^(.)L([ZNE])_00$", "$1H$2_10"},
                                     {"SHZ", "EHZ"},
                                     {"^VM([UVW])$", "VN$1"},
                                     {"LOG", "ACE"},
                                     {"^LCQ_(..)$", "QC_$1"},
                                     {"^BH([12])_?(.*)$", "BX$1$2"},
                                     {"^([EHS])N([ZNE])$", "$1G$2"},
                                     {"(UHZ|UHN|UHE)", "VHx"},
                                     {"^HD([FHO])$", "BD$1"},
                                     {"^BH(.)_([0-9]+)$", "HH$1_$2"},
                                     {"ACE", "LOG"},
                                     {"^[a-z]+$", "lower"},
                                     {"^(.*)_99$", "$1"},
                                     {"^EH([ZNE])_([0-9])$", "SH$1_0$2"},
                                     {"OCF", "SOH"},
                                     {"^M[HL](.)$", "LX$1"},
                                     {"^HH([ZNE])_(..)$", "BH$1_$2"},
                                     {"^[0-9]{3}$", "number"}};
constexpr std::size_t kRuleCount = std::size(kRules);

const std::vector<std::string>& names() {
    static const std::vector<std::string> made = [] {
        const char* const all[] = {"BHZ",    "BHN",   "BHE_00", "LHZ_10", "HHZ",    "LOG", "BHZ_01",
                                   "VMU",    "EHZ_2", "ACE",    "BDF",    "LCQ_00", "bhz", "HNZ",
                                   "BH1_99", "BH2",   "UHZ",    "123",    "HHZ_00", "MLZ", "XYZ"};
        bench::Random random(1);
        std::vector<std::string> list(5000);
        for (auto& name : list) name = all[random() % std::size(all)];
        return list;
    }();
    return made;
}

void morphs_morva(State& state) {
    Tbl* lines = newtbl(20);
    std::vector<std::string> texts;
    for (const auto& rule : kRules) texts.push_back(std::string("/") + rule[0] + "/" + rule[1]);
    for (auto& text : texts) pushtbl(lines, text.data());
    Tbl* table;
    newmorphtbl(lines, &table);
    char result[64];
    for (auto _ : state)
        for (const std::string& name : names()) {
            benchmark::DoNotOptimize(morphtbl(name.c_str(), table, 0, result));
            benchmark::ClobberMemory();
        }
    freemorphtbl(table);
    freetbl(lines, nullptr);
}

void morphs_regexec(State& state) {
    regex_t compiled[kRuleCount];
    for (std::size_t i = 0; i < kRuleCount; ++i) regcomp(&compiled[i], kRules[i][0], REG_EXTENDED);
    char result[64];
    for (auto _ : state)
        for (const std::string& name : names()) {
            std::strcpy(result, name.c_str());
            for (std::size_t i = 0; i < kRuleCount; ++i) {
                regmatch_t matches[10];
                if (regexec(&compiled[i], name.c_str(), 10, matches, 0) != 0) continue;
                if (matches[0].rm_so != 0 || name[static_cast<std::size_t>(matches[0].rm_eo)])
                    continue;
                regsubstitute(name.c_str(), kRules[i][1], matches, result);
                break;
            }
            benchmark::ClobberMemory();
        }
    for (regex_t& regex : compiled) regfree(&regex);
}

#ifdef MORVA_PEER_PCRE2
void morphs_pcre2(State& state) {
    pcre2_code* compiled[kRuleCount];
    for (std::size_t i = 0; i < kRuleCount; ++i) {
        int code;
        size_t offset;
        compiled[i] =
            pcre2_compile(reinterpret_cast<PCRE2_SPTR>(kRules[i][0]), PCRE2_ZERO_TERMINATED,
                          PCRE2_ANCHORED | PCRE2_ENDANCHORED, &code, &offset, nullptr);
        pcre2_jit_compile(compiled[i], PCRE2_JIT_COMPLETE);
    }
    pcre2_match_data* found = pcre2_match_data_create(10, nullptr);
    char result[64];
    for (auto _ : state)
        for (const std::string& name : names()) {
            std::strcpy(result, name.c_str());
            for (std::size_t i = 0; i < kRuleCount; ++i) {
                const int groups =
                    pcre2_jit_match(compiled[i], reinterpret_cast<PCRE2_SPTR>(name.c_str()),
                                    name.size(), 0, 0, found, nullptr);
                if (groups < 0) continue;
                regmatch_t matches[10];
                const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(found);
                for (int group = 0; group < groups; ++group)
                    matches[group] = {static_cast<regoff_t>(ends[2 * group]),
                                      static_cast<regoff_t>(ends[2 * group + 1])};
                regsubstitute(name.c_str(), kRules[i][1], matches, result);
                break;
            }
            benchmark::ClobberMemory();
        }
    pcre2_match_data_free(found);
    for (pcre2_code* code : compiled) pcre2_code_free(code);
}
#endif

const bool registered = [] {
    benchmark::RegisterBenchmark("morphtbl 20 rules 5000 names : morva", morphs_morva);
    benchmark::RegisterBenchmark("morphtbl 20 rules 5000 names : regexec", morphs_regexec);
#ifdef MORVA_PEER_PCRE2
    benchmark::RegisterBenchmark("morphtbl 20 rules 5000 names : PCRE2 JIT", morphs_pcre2);
#endif
    return true;
}();

}  // namespace
