// Arr and Stbl beside the sorted maps a program would pick instead.
//   setarr N   a new container filled with N random keys of 16 characters, in random order
//   getarr N   every key looked up once, in another order
//   delarr N   every key deleted, in another order
//   keysarr N  the keys listed in order, as pointers
//   small arr  three keys set, one read, all freed again: what parameter files are made of
//   tblstbl N  one item added to a set of N strings, and the items listed
//   tblstbl after delstbl N  one item deleted from a set of N strings, and the items listed
//   addstbl N, tststbl N  as setarr and getarr, without copies of the keys
#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <set>

#include "bench.hpp"

#ifdef MORVA_PEER_GLIB
#include <glib.h>
#endif
#ifdef MORVA_PEER_ABSL
#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#endif

namespace {

using Keys = std::vector<std::string>;

struct Workload {
    Keys keys;
    Keys shuffled;  // the same, in memory in another order
    explicit Workload(std::size_t count) : keys(bench::random_keys(count, 16)), shuffled(keys) {
        std::shuffle(shuffled.begin(), shuffled.end(), bench::Random(2));
    }
};

const Workload& workload(long count) {
    static std::map<long, Workload> made;
    return made.try_emplace(count, count).first->second;
}

struct Morva {
    Arr* arr = newarr(nullptr);
    Morva() = default;
    Morva(const Morva&) = delete;
    Morva& operator=(const Morva&) = delete;
    ~Morva() { freearr(arr, nullptr); }
    void set(const std::string& key, void* value) { setarr(arr, key.c_str(), value); }
    void* get(const std::string& key) { return getarr(arr, key.c_str()); }
    void erase(const std::string& key) { delarr(arr, key.c_str()); }
    void list() {
        Tbl* keys = keysarr(arr);
        benchmark::DoNotOptimize(keys->base);
        freetbl(keys, nullptr);
    }
};

template <class Map>
struct MapOf {
    Map map;
    void set(const std::string& key, void* value) { map.insert_or_assign(key, value); }
    void* get(const std::string& key) { return map.find(key)->second; }
    void erase(const std::string& key) { map.erase(key); }
    void list() {
        std::vector<const char*> keys;
        keys.reserve(map.size());
        for (const auto& [key, value] : map) keys.push_back(key.c_str());
        benchmark::DoNotOptimize(keys.data());
    }
};
using StdMap = MapOf<std::map<std::string, void*>>;

#ifdef MORVA_PEER_ABSL
using AbslMap = MapOf<absl::btree_map<std::string, void*>>;
#endif

#ifdef MORVA_PEER_GLIB
int compare_strings(const void* a, const void* b, void*) {
    return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

struct GlibTree {
    GTree* tree = g_tree_new_full(compare_strings, nullptr, g_free, nullptr);
    GlibTree() = default;
    GlibTree(const GlibTree&) = delete;
    GlibTree& operator=(const GlibTree&) = delete;
    ~GlibTree() { g_tree_unref(tree); }
    void set(const std::string& key, void* value) {
        g_tree_replace(tree, g_strdup(key.c_str()), value);
    }
    void* get(const std::string& key) { return g_tree_lookup(tree, key.c_str()); }
    void erase(const std::string& key) { g_tree_remove(tree, key.c_str()); }
    void list() {
        GPtrArray* keys = g_ptr_array_sized_new(static_cast<unsigned>(g_tree_nnodes(tree)));
        g_tree_foreach(
            tree,
            [](void* key, void*, void* list) {
                g_ptr_array_add(static_cast<GPtrArray*>(list), key);
                return 0;
            },
            keys);
        benchmark::DoNotOptimize(keys->pdata);
        g_ptr_array_free(keys, 1);
    }
};
#endif

// Takes the time of `body` alone.
template <class Body>
void timed(benchmark::State& state, Body body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(taken.count());
}

template <class Map>
void fill(Map& map, const Keys& keys) {
    for (const auto& key : keys) map.set(key, const_cast<std::string*>(&key));
}

template <class Map>
void set_keys(benchmark::State& state, long count) {
    const Workload& work = workload(count);
    for (auto _ : state) {
        Map map;
        timed(state, [&] { fill(map, work.keys); });
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Map>
void get_keys(benchmark::State& state, long count) {
    const Workload& work = workload(count);
    Map map;
    fill(map, work.keys);
    for (auto _ : state)
        timed(state, [&] {
            for (const auto& key : work.shuffled) benchmark::DoNotOptimize(map.get(key));
        });
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Map>
void delete_keys(benchmark::State& state, long count) {
    const Workload& work = workload(count);
    for (auto _ : state) {
        Map map;
        fill(map, work.keys);
        timed(state, [&] {
            for (const auto& key : work.shuffled) map.erase(key);
        });
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Map>
void list_keys(benchmark::State& state, long count) {
    Map map;
    fill(map, workload(count).keys);
    for (auto _ : state) timed(state, [&] { map.list(); });
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Map>
void small_map(benchmark::State& state) {
    const Keys keys{"sta", "chan", "samprate"};
    for (auto _ : state)
        timed(state, [&] {
            for (int i = 0; i < 100; ++i) {
                Map map;
                fill(map, keys);
                benchmark::DoNotOptimize(map.get(keys[1]));
            }
        });
    state.SetItemsProcessed(state.iterations() * 100);
}

struct MorvaSet {
    Stbl* stbl = newstbl(nullptr);
    MorvaSet() = default;
    MorvaSet(const MorvaSet&) = delete;
    MorvaSet& operator=(const MorvaSet&) = delete;
    ~MorvaSet() { freestbl(stbl, nullptr); }
    void add(const char* item) { addstbl(stbl, const_cast<char*>(item)); }
    void* find(const char* item) { return tststbl(stbl, item); }
    void remove(const char* item) { delstbl(stbl, item); }
    void list() { benchmark::DoNotOptimize(tblstbl(stbl)->base); }
};

struct ByText {
    bool operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }
};

template <class Set>
struct SetOf {
    Set set;
    std::vector<const char*> listed;
    void add(const char* item) { set.insert(item); }
    const char* find(const char* item) { return *set.find(item); }
    void remove(const char* item) { set.erase(item); }
    void list() {
        listed.clear();
        listed.reserve(set.size());
        for (const char* item : set) listed.push_back(item);
        benchmark::DoNotOptimize(listed.data());
    }
};
using StdSet = SetOf<std::set<const char*, ByText>>;
#ifdef MORVA_PEER_ABSL
using AbslSet = SetOf<absl::btree_set<const char*, ByText>>;
#endif

template <class Set>
void add_items(benchmark::State& state, long count) {
    const Workload& work = workload(count);
    for (auto _ : state) {
        Set set;
        timed(state, [&] {
            for (const auto& key : work.keys) set.add(key.c_str());
        });
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Set>
void find_items(benchmark::State& state, long count) {
    const Workload& work = workload(count);
    Set set;
    for (const auto& key : work.keys) set.add(key.c_str());
    for (auto _ : state)
        timed(state, [&] {
            for (const auto& key : work.shuffled) benchmark::DoNotOptimize(set.find(key.c_str()));
        });
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Set>
void add_and_list(benchmark::State& state, long count) {
    Set set;
    for (const auto& key : workload(count).keys) set.add(key.c_str());
    for (auto _ : state) {
        timed(state, [&] {
            set.add("one more item");
            set.list();
        });
        set.remove("one more item");
        set.list();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Set>
void remove_and_list(benchmark::State& state, long count) {
    Set set;
    for (const auto& key : workload(count).keys) set.add(key.c_str());
    for (auto _ : state) {
        set.add("one more item");
        set.list();
        timed(state, [&] {
            set.remove("one more item");
            set.list();
        });
    }
    state.SetItemsProcessed(state.iterations() * count);
}

template <class Body>
void enlist(const std::string& name, Body body) {
    benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime();
}

template <class Map>
void enlist_map(const std::string& who) {
    enlist("small arr : " + who, small_map<Map>);
    for (auto [size, count] : {std::pair{"1e3", 1000L}, {"1e5", 100000L}, {"1e6", 1000000L}}) {
        const std::string tail = std::string(" ") + size + " : " + who;
        enlist("setarr" + tail, [n = count](auto& state) { set_keys<Map>(state, n); });
        enlist("getarr" + tail, [n = count](auto& state) { get_keys<Map>(state, n); });
        enlist("delarr" + tail, [n = count](auto& state) { delete_keys<Map>(state, n); });
        enlist("keysarr" + tail, [n = count](auto& state) { list_keys<Map>(state, n); });
    }
}

template <class Set>
void enlist_set(const std::string& who) {
    for (auto [size, count] : {std::pair{"1e3", 1000L}, {"1e5", 100000L}, {"1e6", 1000000L}}) {
        const std::string tail = std::string(" ") + size + " : " + who;
        enlist("addstbl" + tail, [n = count](auto& state) { add_items<Set>(state, n); });
        enlist("tststbl" + tail, [n = count](auto& state) { find_items<Set>(state, n); });
        enlist("tblstbl" + tail, [n = count](auto& state) { add_and_list<Set>(state, n); });
        enlist("tblstbl after delstbl" + tail,
               [n = count](auto& state) { remove_and_list<Set>(state, n); });
    }
}

const bool enlisted = [] {
    enlist_map<Morva>("morva");
    enlist_map<StdMap>("std::map");
    enlist_set<MorvaSet>("morva");
    enlist_set<StdSet>("std::set");
#ifdef MORVA_PEER_GLIB
    enlist_map<GlibTree>("GTree");
#endif
#ifdef MORVA_PEER_ABSL
    enlist_map<AbslMap>("absl::btree_map");
    enlist_set<AbslSet>("absl::btree_set");
#endif
    return true;
}();

}  // namespace
