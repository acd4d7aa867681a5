// A tree written to a string, beside a document of the same data in JSON:
//   flat    keys and short texts, in no order in the memory of the tree
//   nested  an array of stations, each with texts, an array and a list
// as 100 kB and 10 MB of parameter text.
#include <cstdlib>

#include "bench.hpp"
#ifdef MORVA_PEER_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace {

using benchmark::State;
using std::string;

string random_text(bench::Random& random) {
    static constexpr const char* kTexts[] = {"10.0.0.1:6510",   "True",
                                             "BHZ BHN BHE",     "0.025",
                                             "/opt/data/rt/db", "a note on this site and its mast"};
    if (random() % 2 == 0) return kTexts[random() % std::size(kTexts)];
    return std::to_string(static_cast<double>(random() % 2000000) / 1000.0);
}

void add_texts(string& text, std::initializer_list<const char*> keys, bench::Random& random) {
    for (const char* key : keys) text += string(key) + "\t" + random_text(random) + "\n";
}

void add_station(string& text, const string& name, bench::Random& random) {
    text += name + "\t&Arr{\n";
    add_texts(text, {"lat", "lon", "elev", "since", "description"}, random);
    text += "sensor\t&Arr{\n";
    add_texts(text, {"model", "serial", "gain"}, random);
    text += "}\nchannels\t&Tbl{\nBHZ\nBHN\nBHE\n}\n}\n";
}

Pf* tree(bool nested, std::size_t bytes) {
    bench::Random random(7);
    string text;
    for (std::size_t i = 0; text.size() < bytes; ++i) {
        const string key = bench::random_keys(1, 10, random())[0];
        if (nested)
            add_station(text, key, random);
        else
            add_texts(text, {key.c_str()}, random);
    }
    Pf* pf = nullptr;
    if (pfcompile(text.c_str(), &pf) != 0) std::abort();
    return pf;
}

void write_string(State& state, Pf* pf) {
    std::size_t bytes = 0;
    for (auto _ : state) {
        char* text = pf2string(pf);
        benchmark::DoNotOptimize(text);
        bytes = std::char_traits<char>::length(text);
        std::free(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

#ifdef MORVA_PEER_RAPIDJSON
// The document of a tree; strings are the tree's.
rapidjson::Value value_of(Pf* pf, rapidjson::Document::AllocatorType& memory) {
    using Value = rapidjson::Value;
    if (pf->type == PFSTRING) return Value(pf->value.string, memory);
    if (pf->type == PFTBL) {
        Value list(rapidjson::kArrayType);
        for (long i = 0; i < maxtbl(pf->value.tbl); ++i)
            list.PushBack(value_of(static_cast<Pf*>(gettbl(pf->value.tbl, i)), memory), memory);
        return list;
    }
    Value object(rapidjson::kObjectType);
    Tbl* keys = keysarr(pf->value.arr);
    for (long i = 0; i < maxtbl(keys); ++i) {
        const char* key = static_cast<const char*>(gettbl(keys, i));
        object.AddMember(Value(key, memory),
                         value_of(static_cast<Pf*>(getarr(pf->value.arr, key)), memory), memory);
    }
    freetbl(keys, nullptr);
    return object;
}

void write_json(State& state, Pf* pf) {
    rapidjson::Document document;
    // Parsed from its own text, so that its memory is that of a document that was read.
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> first(text);
    value_of(pf, document.GetAllocator()).Accept(first);
    document.Parse(text.GetString());
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.GetSize()));
}
#endif

void add(const string& work, bool nested, std::size_t bytes) {
    Pf* pf = tree(nested, bytes);
    benchmark::RegisterBenchmark((work + " : morva").c_str(),
                                 [pf](State& state) { write_string(state, pf); });
#ifdef MORVA_PEER_RAPIDJSON
    benchmark::RegisterBenchmark((work + " : RapidJSON").c_str(),
                                 [pf](State& state) { write_json(state, pf); });
#endif
}

const bool g_registered = [] {
    add("pf2string flat 100 kB", false, 100'000);
    add("pf2string flat 10 MB", false, 10'000'000);
    add("pf2string nested 100 kB", true, 100'000);
    add("pf2string nested 10 MB", true, 10'000'000);
    return true;
}();

}  // namespace
