// Reading a configuration text into a tree and freeing the tree, beside readers of other formats
// that are given the same data in theirs:
//   flat    keys and texts, in no order
//   nested  an array of stations, each with texts, an array and a list
// as 1 kB, 100 kB and 10 MB of parameter text. Where a peer takes time in the square of the number
// of its keys, the largest text is left out.
#include <functional>
#include <string_view>

#include "bench.hpp"
#ifdef MORVA_PEER_JSONC
#include <json-c/json.h>
#endif
#ifdef MORVA_PEER_GLIB
#include <glib.h>
#endif
#ifdef MORVA_PEER_LIBCONFIG
#include <libconfig.h>
#endif
#ifdef MORVA_PEER_TOMLPLUSPLUS
#include <toml++/toml.h>
#endif
#ifdef MORVA_PEER_YAMLCPP
#include <yaml-cpp/yaml.h>
#endif
#ifdef MORVA_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef MORVA_PEER_RAPIDJSON
#include <rapidjson/document.h>
#endif

namespace {

using benchmark::State;
using std::string;

// The data, apart from any format.
struct Item {
    enum Kind { kText, kArray, kList } kind = kText;
    string key, text;
    std::vector<Item> children;
};

string random_text(bench::Random& random) {
    static constexpr const char* kTexts[] = {"10.0.0.1:6510",   "True",
                                             "BHZ BHN BHE",     "0.025",
                                             "/opt/data/rt/db", "a note on this site and its mast"};
    if (random() % 2 == 0) return kTexts[random() % std::size(kTexts)];
    return std::to_string(static_cast<double>(random() % 2000000) / 1000.0);
}

Item text_item(string key, bench::Random& random) {
    return {Item::kText, std::move(key), random_text(random), {}};
}

Item station(const string& name, bench::Random& random) {
    Item item{Item::kArray, name, "", {}};
    for (const char* key : {"lat", "lon", "elev", "since", "description"})
        item.children.push_back(text_item(key, random));
    Item sensor{Item::kArray, "sensor", "", {}};
    for (const char* key : {"model", "serial", "gain"})
        sensor.children.push_back(text_item(key, random));
    Item channels{Item::kList, "channels", "", {}};
    for (const char* channel : {"BHZ", "BHN", "BHE"})
        channels.children.push_back({Item::kText, "", channel, {}});
    item.children.push_back(std::move(sensor));
    item.children.push_back(std::move(channels));
    return item;
}

void write_pf(string& out, const Item& item) {
    for (const Item& child : item.children) {
        if (!child.key.empty()) out += child.key + "\t";
        if (child.kind != Item::kText) out += child.kind == Item::kList ? "&Tbl{\n" : "&Arr{\n";
        child.kind == Item::kText ? void(out += child.text) : write_pf(out, child);
        out += child.kind == Item::kText ? "\n" : "}\n";
    }
}

// JSON, and with other marks the inline forms of the other formats.
struct Marks {
    const char *open, *close, *quote, *colon, *comma, *list, *end_list;
};
constexpr Marks kJson{"{", "}", "\"", ":", ",", "[", "]"};
constexpr Marks kToml{"{", "}", "", "=", ",", "[", "]"};
constexpr Marks kLibconfig{"{", "}", "", "=", ";", "[", "]"};
void write_marked(string& out, const Item& item, const Marks& marks, bool outermost = false) {
    if (item.kind == Item::kText) {
        out += "\"" + item.text + "\"";
        return;
    }
    const bool list = item.kind == Item::kList;
    if (!outermost) out += list ? marks.list : marks.open;
    const char* between = "";
    for (const Item& child : item.children) {
        out += between;
        between = outermost ? "\n" : list ? "," : marks.comma;
        if (!list) out += marks.quote + child.key + marks.quote + marks.colon;
        write_marked(out, child, marks);
        if (outermost && marks.comma[0] == ';') out += ";";
    }
    if (!outermost) out += list ? marks.end_list : marks.close;
}

void write_yaml(string& out, const Item& item, const string& indent = "") {
    for (const Item& child : item.children) {
        out += indent + (item.kind == Item::kList ? "-" : child.key + ":");
        out += child.kind == Item::kText ? " \"" + child.text + "\"\n" : "\n";
        write_yaml(out, child, indent + "  ");
    }
}

void write_ini(string& out, const Item& item) {
    out += "[all]\n";
    for (const Item& child : item.children) out += child.key + "=" + child.text + "\n";
}

Item data(bool nested, std::size_t bytes) {
    bench::Random random(7);
    Item root{Item::kArray, "", "", {}};
    for (std::size_t size = 0; size < bytes;) {
        string key = bench::random_keys(1, nested ? 9 : 10, random())[0];
        key[0] = nested ? 'S' : 'k';
        root.children.push_back(nested ? station(key, random) : text_item(key, random));
        string one;
        write_pf(one, Item{Item::kArray, "", "", {root.children.back()}});
        size += one.size();
    }
    return root;
}

void read_morva(const string& text) {
    Pf* pf = nullptr;
    benchmark::DoNotOptimize(pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf));
    pffree(pf);
}

#ifdef MORVA_PEER_JSONC
void read_jsonc(const string& text) {
    json_object_put(json_tokener_parse(text.c_str()));
}
#endif
#ifdef MORVA_PEER_GLIB
void read_glib(const string& text) {
    GKeyFile* file = g_key_file_new();
    g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr);
    g_key_file_free(file);
}
#endif
#ifdef MORVA_PEER_LIBCONFIG
void read_libconfig(const string& text) {
    config_t config;
    config_init(&config);
    benchmark::DoNotOptimize(config_read_string(&config, text.c_str()));
    config_destroy(&config);
}
#endif
#ifdef MORVA_PEER_TOMLPLUSPLUS
void read_toml(const string& text) {
    benchmark::DoNotOptimize(toml::parse(text));
}
#endif
#ifdef MORVA_PEER_YAMLCPP
void read_yaml(const string& text) {
    benchmark::DoNotOptimize(YAML::Load(text));
}
#endif
#ifdef MORVA_PEER_NLOHMANN
void read_nlohmann(const string& text) {
    benchmark::DoNotOptimize(nlohmann::json::parse(text));
}
#endif
#ifdef MORVA_PEER_RAPIDJSON
void read_rapidjson(const string& text) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    benchmark::DoNotOptimize(document.MemberCount());
}
#endif

using Read = void (*)(const string&);

// Reads `text`; the rate is told in bytes of parameter text, whatever the format.
void add(const string& work, const char* who, Read read, string text, std::size_t pf_bytes) {
    benchmark::RegisterBenchmark((work + " : " + who).c_str(), [=](State& state) {
        for (auto _ : state) read(text);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * pf_bytes));
    });
}

void add_works(bool nested, std::size_t bytes, const char* size) {
    const string work = string("pfcompile ") + (nested ? "nested " : "flat ") + size;
    const Item root = data(nested, bytes);
    string pf, json, toml, libconfig, yaml, ini;
    write_pf(pf, root);
    write_marked(json, root, kJson);
    add(work, "morva", read_morva, pf, pf.size());
    [[maybe_unused]] const bool small = bytes <= 100000;
#ifdef MORVA_PEER_JSONC
    add(work, "json-c", read_jsonc, json, pf.size());
#endif
#ifdef MORVA_PEER_NLOHMANN
    add(work, "nlohmann", read_nlohmann, json, pf.size());
#endif
#ifdef MORVA_PEER_RAPIDJSON
    add(work, "RapidJSON", read_rapidjson, json, pf.size());
#endif
#ifdef MORVA_PEER_TOMLPLUSPLUS
    write_marked(toml, root, kToml, true);
    add(work, "toml++", read_toml, toml, pf.size());
#endif
#ifdef MORVA_PEER_LIBCONFIG
    write_marked(libconfig, root, kLibconfig, true);
    if (small) add(work, "libconfig", read_libconfig, libconfig, pf.size());
#endif
#ifdef MORVA_PEER_YAMLCPP
    write_yaml(yaml, root);
    if (small) add(work, "yaml-cpp", read_yaml, yaml, pf.size());
#endif
#ifdef MORVA_PEER_GLIB
    write_ini(ini, root);
    if (!nested) add(work, "GKeyFile", read_glib, ini, pf.size());
#endif
}

const bool registered = [] {
    for (const bool nested : {false, true}) {
        add_works(nested, 1000, "1 kB");
        add_works(nested, 100000, "100 kB");
        add_works(nested, 10000000, "10 MB");
    }
    return true;
}();

}  // namespace
