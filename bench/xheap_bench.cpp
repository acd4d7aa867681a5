// Heaps beside the stores that a program would map instead: 10,000 entries of 100 bytes under
// random names of 12 letters, none of them synchronised with the disk.
//
//   putx        a random entry replaced
//   putx_safe   the same, old or new after a kill; beside it a transaction of lmdb
//   getx        a random entry copied to a buffer
//   getxaddr    a random entry found where it is
//   fill heap   all entries into a fresh file, counted an entry
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "bench.hpp"

#ifdef MORVA_PEER_TDB
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <sys/stat.h>
extern "C" {
#include <tdb.h>
}
#endif
#ifdef MORVA_PEER_GDBM
#include <gdbm.h>
#endif
#ifdef MORVA_PEER_LMDB
#include <lmdb.h>
#endif

namespace {

using benchmark::State;

constexpr std::size_t kEntries = 10000;
constexpr std::size_t kBytes = 100;

const std::vector<std::string>& names() {
    static const std::vector<std::string> all = bench::random_keys(kEntries, 12);
    return all;
}

// Names in an order that no cache guesses.
class Turns {
  public:
    const std::string& next() {
        at_ = (at_ * 6364136223846793005u + 1442695040888963407u);
        return names()[(at_ >> 33) % kEntries];
    }

  private:
    std::uint64_t at_ = 1;
};

std::string scratch() {
    static int count = 0;
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder != nullptr ? folder : "/tmp") + "/morva-bench-heap-" +
           std::to_string(::getpid()) + "-" + std::to_string(++count);
}

const char* value(std::uint64_t turn) {
    static char bytes[kBytes];
    std::memcpy(bytes, &turn, sizeof turn);
    return bytes;
}

struct Morva {
    static constexpr char kName[] = "morva";
    std::string path = scratch();
    Xheap* heap = openx(path.c_str(), "r+", 4096);
    void* buffer = nullptr;
    int n = 0, size = 0;

    ~Morva() {
        closex(&heap);
        ::unlink(path.c_str());
        std::free(buffer);
    }
    void put(const std::string& name, const char* data) { putx(heap, name.c_str(), data, kBytes); }
    void put_safe(const std::string& name, const char* data) {
        putx_safe(heap, name.c_str(), data, kBytes);
    }
    char get(const std::string& name) {
        getx(heap, name.c_str(), &buffer, &n, &size);
        return static_cast<char*>(buffer)[kBytes - 1];
    }
    char look(const std::string& name) {
        void* where = nullptr;
        getxaddr(heap, name.c_str(), &where, &n);
        return static_cast<char*>(where)[kBytes - 1];
    }
};

#ifdef MORVA_PEER_TDB
struct Tdb {
    static constexpr char kName[] = "tdb";
    std::string path = scratch();
    tdb_context* tdb =
        tdb_open(path.c_str(), 10007, TDB_NOLOCK | TDB_NOSYNC, O_RDWR | O_CREAT, 0600);

    ~Tdb() {
        tdb_close(tdb);
        ::unlink(path.c_str());
    }
    static TDB_DATA datum(const char* bytes, std::size_t n) {
        return {reinterpret_cast<unsigned char*>(const_cast<char*>(bytes)), n};
    }
    void put(const std::string& name, const char* data) {
        tdb_store(tdb, datum(name.data(), name.size()), datum(data, kBytes), TDB_REPLACE);
    }
    char get(const std::string& name) {
        const TDB_DATA found = tdb_fetch(tdb, datum(name.data(), name.size()));
        const auto last = static_cast<char>(found.dptr[kBytes - 1]);
        std::free(found.dptr);
        return last;
    }
    char look(const std::string& name) {
        char last = 0;
        tdb_parse_record(
            tdb, datum(name.data(), name.size()),
            [](TDB_DATA, TDB_DATA data, void* to) {
                *static_cast<char*>(to) = static_cast<char>(data.dptr[kBytes - 1]);
                return 0;
            },
            &last);
        return last;
    }
};
#endif

#ifdef MORVA_PEER_GDBM
struct Gdbm {
    static constexpr char kName[] = "gdbm";
    std::string path = scratch();
    GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB | GDBM_NOLOCK, 0600, nullptr);

    ~Gdbm() {
        gdbm_close(file);
        ::unlink(path.c_str());
    }
    static datum key(const std::string& name) {
        return {const_cast<char*>(name.data()), static_cast<int>(name.size())};
    }
    void put(const std::string& name, const char* data) {
        gdbm_store(file, key(name), {const_cast<char*>(data), kBytes}, GDBM_REPLACE);
    }
    char get(const std::string& name) {
        const datum found = gdbm_fetch(file, key(name));
        const char last = found.dptr[kBytes - 1];
        std::free(found.dptr);
        return last;
    }
};
#endif

#ifdef MORVA_PEER_LMDB
struct Lmdb {
    static constexpr char kName[] = "lmdb";
    std::string path = scratch();
    MDB_env* env = nullptr;
    MDB_txn* reader = nullptr;
    MDB_dbi dbi = 0;

    Lmdb() {
        constexpr unsigned kFlags = MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP | MDB_NOLOCK;
        mdb_env_create(&env);
        mdb_env_set_mapsize(env, std::size_t{1} << 30);
        mdb_env_open(env, path.c_str(), kFlags, 0600);
        MDB_txn* txn = nullptr;
        mdb_txn_begin(env, nullptr, 0, &txn);
        mdb_dbi_open(txn, nullptr, 0, &dbi);
        mdb_txn_commit(txn);
    }
    ~Lmdb() {
        if (reader != nullptr) mdb_txn_abort(reader);
        mdb_env_close(env);
        ::unlink(path.c_str());
    }
    static MDB_val val(const char* bytes, std::size_t n) { return {n, const_cast<char*>(bytes)}; }
    void put(const std::string& name, const char* data) {
        MDB_txn* txn = nullptr;
        mdb_txn_begin(env, nullptr, 0, &txn);
        MDB_val key = val(name.data(), name.size()), bytes = val(data, kBytes);
        mdb_put(txn, dbi, &key, &bytes, 0);
        mdb_txn_commit(txn);
    }
    void put_safe(const std::string& name, const char* data) { put(name, data); }
    // One transaction for all, which is the quickest way to read.
    const char* find(const std::string& name) {
        if (reader == nullptr) mdb_txn_begin(env, nullptr, MDB_RDONLY, &reader);
        MDB_val key = val(name.data(), name.size()), bytes;
        mdb_get(reader, dbi, &key, &bytes);
        return static_cast<const char*>(bytes.mv_data);
    }
    char get(const std::string& name) {
        char copy[kBytes];
        std::memcpy(copy, find(name), kBytes);
        benchmark::DoNotOptimize(copy);
        return copy[kBytes - 1];
    }
    char look(const std::string& name) { return find(name)[kBytes - 1]; }
};
#endif

template <class Store>
void fill(Store& store) {
    for (const std::string& name : names()) store.put(name, value(0));
}

template <class Store, class Work>
void on_random_entries(const char* work, Work run) {
    const std::string row = std::string(work) + " : " + Store::kName;
    benchmark::RegisterBenchmark(row.c_str(), [run](State& state) {
        Store store;
        fill(store);
        Turns turns;
        for (auto _ : state) run(store, turns.next());
    });
}

template <class Store>
void add_put_and_get() {
    on_random_entries<Store>("putx", [](Store& store, const std::string& name) {
        static std::uint64_t turn = 0;
        store.put(name, value(++turn));
    });
    on_random_entries<Store>("getx", [](Store& store, const std::string& name) {
        benchmark::DoNotOptimize(store.get(name));
    });
    const std::string row = std::string("fill heap : ") + Store::kName;
    benchmark::RegisterBenchmark(row.c_str(), [](State& state) {
        for (auto _ : state) {
            std::optional<Store> store(std::in_place);
            fill(*store);
            state.PauseTiming();  // to remove a file takes longer than to fill it
            store.reset();
            state.ResumeTiming();
        }
        state.SetItemsProcessed(state.iterations() * static_cast<long>(kEntries));
    });
}

template <class Store>
void add_look() {
    on_random_entries<Store>("getxaddr", [](Store& store, const std::string& name) {
        benchmark::DoNotOptimize(store.look(name));
    });
}

template <class Store>
void add_safe() {
    on_random_entries<Store>(
        "putx_safe", [](Store& store, const std::string& name) { store.put_safe(name, value(1)); });
}

const bool g_registered = [] {
    add_put_and_get<Morva>();
    add_look<Morva>();
    add_safe<Morva>();
#ifdef MORVA_PEER_TDB
    add_put_and_get<Tdb>();
    add_look<Tdb>();
#endif
#ifdef MORVA_PEER_GDBM
    add_put_and_get<Gdbm>();
#endif
#ifdef MORVA_PEER_LMDB
    add_put_and_get<Lmdb>();
    add_look<Lmdb>();
    add_safe<Lmdb>();
#endif
    return true;
}();

}  // namespace
