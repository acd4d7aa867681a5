// Byte order: beside a plain loop of byte swaps, and memcpy, which is the limit. Numbers are read
// beside the C library and the standard library.
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "bench.hpp"
#include "skerrows.h"

namespace {

using bench::Random;

template <class Body>
void add(const std::string& work, const std::string& who, Body body) {
    benchmark::RegisterBenchmark((work + " : " + who).c_str(), body);
}

// Keeps the compiler from making a vector loop of it: the loop that programs have.
template <class Word>
[[gnu::noinline, gnu::optimize("no-tree-vectorize")]] void swap_loop(const char* from, char* to,
                                                                     long count) {
    for (long i = 0; i < count; ++i) {
        Word word;
        std::memcpy(&word, from + i * sizeof word, sizeof word);
        if constexpr (sizeof word == 2) word = __builtin_bswap16(word);
        if constexpr (sizeof word == 4) word = __builtin_bswap32(word);
        if constexpr (sizeof word == 8) word = __builtin_bswap64(word);
        std::memcpy(to + i * sizeof word, &word, sizeof word);
    }
}

template <class Word>
void copy(const char* from, char* to, long count) {
    std::memcpy(to, from, static_cast<size_t>(count) * sizeof(Word));
}

template <void (*convert)(char**, void*, long)>
void ours(const char* from, char* to, long count) {
    char* cursor = const_cast<char*>(from);
    convert(&cursor, to, count);
}

template <class Word>
void add_words(const std::string& work, const std::string& who, long count, bool in_place,
               void (*convert)(const char*, char*, long)) {
    add(work, who, [=](benchmark::State& state) {
        std::vector<Word> from(count), to(count);
        Random random(1);
        for (Word& word : from) word = static_cast<Word>(random());
        auto* source = reinterpret_cast<char*>(from.data());
        auto* target = in_place ? source : reinterpret_cast<char*>(to.data());
        for (auto _ : state) {
            convert(source, target, count);
            benchmark::DoNotOptimize(target);
            benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() * count * static_cast<long>(sizeof(Word)));
    });
}

template <class Word, void (*convert)(char**, void*, long)>
void add_size(const std::string& name, long count, const std::string& size) {
    const std::string work = name + " " + size;
    add_words<Word>(work, "morva", count, false, ours<convert>);
    add_words<Word>(work, "swap loop", count, false, swap_loop<Word>);
    add_words<Word>(work, "memcpy", count, false, copy<Word>);
    add_words<Word>(work + " in place", "morva", count, true, ours<convert>);
    add_words<Word>(work + " in place", "swap loop", count, true, swap_loop<Word>);
}

void add_byte_order() {
    const std::pair<long, const char*> sizes[] = {
        {16, "x 16"}, {1000, "x 1e3"}, {100'000, "x 1e5"}, {5'000'000, "x 5e6"}};
    for (const auto& [count, size] : sizes) {
        add_size<std::uint16_t, hs2ms>("hs2ms", count, size);
        add_size<std::uint32_t, hi2mi>("hi2mi", count, size);
        add_size<std::uint64_t, hd2md>("hd2md", count, size);
    }
}

std::vector<std::string> random_numbers(int digits) {
    Random random(2);
    std::vector<std::string> texts(1000);
    for (auto& text : texts) {
        char buffer[64];
        const double value = static_cast<double>(random() >> 11) * 1e-9;
        std::snprintf(buffer, sizeof buffer, "%.*g", digits, value);
        text = buffer;
    }
    return texts;
}

template <class Read>
void add_reading(const std::string& work, const std::string& who, int digits, Read read) {
    add(work, who, [=](benchmark::State& state) {
        const auto texts = random_numbers(digits);
        for (auto _ : state)
            for (const auto& text : texts) benchmark::DoNotOptimize(read(text));
        state.SetItemsProcessed(state.iterations() * static_cast<long>(texts.size()));
    });
}

void add_numbers() {
    for (const auto& [work, digits] :
         {std::pair("fix_strtod 17 digits", 17), std::pair("fix_strtod 5 digits", 5)}) {
        add_reading(work, "morva", digits,
                    [](const std::string& text) { return fix_strtod(text.c_str(), nullptr); });
        add_reading(work, "strtod", digits,
                    [](const std::string& text) { return std::strtod(text.c_str(), nullptr); });
        add_reading(work, "std::from_chars", digits, [](const std::string& text) {
            double value = 0;
            std::from_chars(text.data(), text.data() + text.size(), value);
            return value;
        });
    }
}

const bool registered = (add_byte_order(), add_numbers(), true);

}  // namespace
