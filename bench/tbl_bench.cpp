// The growable list beside the containers a program would take instead.
//
//   push and get     n pointers appended to an empty list, then all read by index
//   queue            a queue of 1000 pointers: one appended, one taken from the front
//   unshift, shift   1000 pointers put in front of an empty list and taken off again, over and over
//   sorttbl          n random integers by callback, beside the same shell sort written inline
//   searchtbl        random keys in n sorted integers
//   jointbl          n words of 1 to 16 letters joined with a blank
#include "bench.hpp"

#include <algorithm>
#include <cstdlib>
#include <deque>

#ifdef MORVA_PEER_GLIB
#include <glib.h>
#endif

namespace {

using benchmark::State;

void* item(long i) {
    return reinterpret_cast<void*>(i);
}

void count_items(State& state, long per_iteration) {
    state.SetItemsProcessed(state.iterations() * per_iteration);
}

// ---- push and get

void push_and_get_morva(State& state) {
    for (auto _ : state) {
        Tbl* tbl = newtbl(0);
        for (long i = 0; i < state.range(0); ++i) pushtbl(tbl, item(i));
        long sum = 0;
        for (long i = 0, n = maxtbl(tbl); i < n; ++i) sum += reinterpret_cast<long>(gettbl(tbl, i));
        benchmark::DoNotOptimize(sum);
        freetbl(tbl, nullptr);
    }
    count_items(state, state.range(0));
}

template <class Container>
void push_and_get_std(State& state) {
    for (auto _ : state) {
        Container list;
        for (long i = 0; i < state.range(0); ++i) list.push_back(item(i));
        long sum = 0;
        for (std::size_t i = 0; i < list.size(); ++i) sum += reinterpret_cast<long>(list[i]);
        benchmark::DoNotOptimize(sum);
    }
    count_items(state, state.range(0));
}

#ifdef MORVA_PEER_GLIB
void push_and_get_glib(State& state) {
    for (auto _ : state) {
        GPtrArray* list = g_ptr_array_new();
        for (long i = 0; i < state.range(0); ++i) g_ptr_array_add(list, item(i));
        long sum = 0;
        for (guint i = 0; i < list->len; ++i)
            sum += reinterpret_cast<long>(g_ptr_array_index(list, i));
        benchmark::DoNotOptimize(sum);
        g_ptr_array_free(list, TRUE);
    }
    count_items(state, state.range(0));
}
#endif

// ---- queues

constexpr long kDepth = 1000;

void queue_morva(State& state) {
    Tbl* tbl = newtbl(0);
    for (long i = 0; i < kDepth; ++i) pushtbl(tbl, item(i));
    for (auto _ : state) {
        pushtbl(tbl, item(1));
        benchmark::DoNotOptimize(shifttbl(tbl));
    }
    freetbl(tbl, nullptr);
    count_items(state, 1);
}

void queue_deque(State& state) {
    std::deque<void*> list(kDepth);
    for (auto _ : state) {
        list.push_back(item(1));
        void* front = list.front();
        benchmark::DoNotOptimize(front);
        list.pop_front();
    }
    count_items(state, 1);
}

void front_morva(State& state) {
    Tbl* tbl = newtbl(0);
    for (auto _ : state) {
        for (long i = 0; i < kDepth; ++i) unshifttbl(tbl, item(i));
        for (long i = 0; i < kDepth; ++i) benchmark::DoNotOptimize(shifttbl(tbl));
    }
    freetbl(tbl, nullptr);
    count_items(state, kDepth);
}

void front_deque(State& state) {
    std::deque<void*> list;
    for (auto _ : state) {
        for (long i = 0; i < kDepth; ++i) list.push_front(item(i));
        for (long i = 0; i < kDepth; ++i) {
            void* front = list.front();
            benchmark::DoNotOptimize(front);
            list.pop_front();
        }
    }
    count_items(state, kDepth);
}

// ---- sorting and searching

std::vector<int> random_ints(long count) {
    bench::Random random(7);
    std::vector<int> numbers(count);
    for (int& number : numbers) number = static_cast<int>(random());
    return numbers;
}

int compare_ints(void* a, void* b, void*) {
    const int left = *static_cast<int*>(a), right = *static_cast<int*>(b);
    return (left > right) - (left < right);
}

Tbl* list_of(const std::vector<int>& numbers) {
    Tbl* tbl = inittbl(0, static_cast<long>(numbers.size()), 1, nullptr, sizeof(int));
    for (const int& number : numbers) pushtbl(tbl, &number);
    return tbl;
}

void sort_morva(State& state) {
    const std::vector<int> numbers = random_ints(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        Tbl* tbl = list_of(numbers);
        state.ResumeTiming();
        sorttbl(tbl, compare_ints, nullptr);
        state.PauseTiming();
        freetbl(tbl, nullptr);
        state.ResumeTiming();
    }
    count_items(state, state.range(0));
}

template <class Above>
void shell_sort(std::vector<int>& list, Above above) {
    const long count = static_cast<long>(list.size());
    long gap = 1;
    while (gap < count) gap = 3 * gap + 1;
    while (gap > 1) {
        gap /= 3;
        for (long i = gap; i < count; ++i) {
            int scratch = list[i];
            long j = i;
            for (; j >= gap && above(&list[j - gap], &scratch); j -= gap) list[j] = list[j - gap];
            list[j] = scratch;
        }
    }
}

template <class Above>
void sort_ints(State& state, Above above) {
    const std::vector<int> numbers = random_ints(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<int> list = numbers;
        state.ResumeTiming();
        shell_sort(list, above);
        benchmark::DoNotOptimize(list.data());
    }
    count_items(state, state.range(0));
}

void sort_inline(State& state) {
    sort_ints(state, [](const int* a, const int* b) { return *a > *b; });
}

void sort_pointer(State& state) {
    int (*compare)(void*, void*, void*) = compare_ints;
    benchmark::DoNotOptimize(compare);
    sort_ints(state, [compare](int* a, int* b) { return compare(a, b, nullptr) > 0; });
}

// Pointers to numbers of which each occurs about four times: equal items can be told apart.
void sort_equal_morva(State& state) {
    std::vector<int> numbers = random_ints(state.range(0));
    for (int& number : numbers) number = static_cast<unsigned>(number) % (numbers.size() / 4);
    Tbl* tbl = newtbl(static_cast<long>(numbers.size()));
    for (auto _ : state) {
        state.PauseTiming();
        clrtbl(tbl, nullptr);
        for (int& number : numbers) pushtbl(tbl, &number);
        state.ResumeTiming();
        sorttbl(
            tbl,
            [](void* a, void* b, void*) {
                return compare_ints(*static_cast<int**>(a), *static_cast<int**>(b), nullptr);
            },
            nullptr);
    }
    freetbl(tbl, nullptr);
    count_items(state, state.range(0));
}

struct SearchWork {
    std::vector<int> sorted, keys;
    explicit SearchWork(long count) : sorted(random_ints(count)), keys(1 << 16) {
        bench::Random random(3);
        for (int& key : keys) key = sorted[random() % sorted.size()];
        std::sort(sorted.begin(), sorted.end());
    }
};

// Out of line, as a comparison handed to a library is.
[[gnu::noinline]] int compare_for_bsearch(const void* a, const void* b) {
    const int left = *static_cast<const int*>(a), right = *static_cast<const int*>(b);
    return (left > right) - (left < right);
}

void search_morva(State& state) {
    SearchWork work(state.range(0));
    Tbl* tbl = list_of(work.sorted);
    std::size_t i = 0;
    for (auto _ : state) {
        long first, last;
        benchmark::DoNotOptimize(
            searchtbl(&work.keys[i], tbl, compare_ints, nullptr, &first, &last));
        if (++i == work.keys.size()) i = 0;
    }
    freetbl(tbl, nullptr);
    count_items(state, 1);
}

void search_bsearch(State& state) {
    const SearchWork work(state.range(0));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::bsearch(&work.keys[i], work.sorted.data(), work.sorted.size(),
                                              sizeof(int), compare_for_bsearch));
        if (++i == work.keys.size()) i = 0;
    }
    count_items(state, 1);
}

// ---- joining

std::vector<std::string> words(long count) {
    bench::Random random(5);
    std::vector<std::string> words = bench::random_keys(count, 16);
    for (std::string& word : words) word.resize(1 + random() % 16);
    return words;
}

void count_bytes(State& state, const std::vector<std::string>& words) {
    std::size_t bytes = 0;
    for (const std::string& word : words) bytes += word.size() + 1;
    state.SetBytesProcessed(state.iterations() * static_cast<long>(bytes));
}

void join_morva(State& state) {
    std::vector<std::string> list = words(state.range(0));
    Tbl* tbl = newtbl(0);
    for (std::string& word : list) pushtbl(tbl, word.data());
    for (auto _ : state) {
        char* joined = jointbl(tbl, " ");
        benchmark::DoNotOptimize(joined);
        std::free(joined);
    }
    freetbl(tbl, nullptr);
    count_bytes(state, list);
}

#ifdef MORVA_PEER_GLIB
void join_glib(State& state) {
    std::vector<std::string> list = words(state.range(0));
    std::vector<char*> pointers;
    for (std::string& word : list) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    for (auto _ : state) {
        char* joined = g_strjoinv(" ", pointers.data());
        benchmark::DoNotOptimize(joined);
        g_free(joined);
    }
    count_bytes(state, list);
}
#endif

const int registered = [] {
    using benchmark::RegisterBenchmark;
    for (long n : {1000L, 1000000L}) {
        const std::string size = n == 1000 ? "1e3" : "1e6";
        const auto add = [&](const std::string& work, const char* who, void (*body)(State&)) {
            RegisterBenchmark((work + " " + size + " : " + who).c_str(), body)->Arg(n);
        };
        add("push and get", "morva", push_and_get_morva);
        add("push and get", "std::vector", push_and_get_std<std::vector<void*>>);
        add("push and get", "std::deque", push_and_get_std<std::deque<void*>>);
        add("searchtbl", "morva", search_morva);
        add("searchtbl", "bsearch", search_bsearch);
        add("sorttbl", "morva", sort_morva);
        add("sorttbl", "inline shell sort", sort_inline);
        add("sorttbl", "shell sort by pointer", sort_pointer);
        add("sorttbl of equal items", "morva", sort_equal_morva);
        add("jointbl", "morva", join_morva);
#ifdef MORVA_PEER_GLIB
        add("push and get", "GPtrArray", push_and_get_glib);
        add("jointbl", "g_strjoinv", join_glib);
#endif
    }
    RegisterBenchmark("queue push/shift : morva", queue_morva);
    RegisterBenchmark("queue push/shift : std::deque", queue_deque);
    RegisterBenchmark("unshift/shift : morva", front_morva);
    RegisterBenchmark("unshift/shift : std::deque", front_deque);
    return 0;
}();

}  // namespace
