// String utilities beside what a C++ or C programmer would reach for:
//   split        words of a text into a list of fields
//   strtrim      blanks at both ends
//   pushstr      short pieces into a growing string
//   strsub       every occurrence of a word replaced
//   strdbl       a number as short text
//   levenshtein  distance of two strings of 8, 64 and 1000 characters
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "bench.hpp"
#ifdef MORVA_PEER_ABSL
#include <absl/strings/str_split.h>
#endif
#ifdef MORVA_PEER_GLIB
#include <glib.h>
#endif
#ifdef MORVA_PEER_EDLIB
#include <edlib.h>
#endif

namespace {

using benchmark::State;

void add(const char* name, void (*body)(State&)) {
    benchmark::RegisterBenchmark(name, body);
}

// Words of 1 to 11 letters with single blanks between them.
std::string words(std::size_t bytes) {
    bench::Random random(1);
    std::string text;
    while (text.size() < bytes) {
        for (std::size_t n = 1 + random() % 11; n > 0; --n)
            text += static_cast<char>('a' + random() % 26);
        text += ' ';
    }
    return text;
}

template <std::size_t kBytes>
void split_morva(State& state) {
    const std::string text = words(kBytes);
    std::string copy = text;
    for (auto _ : state) {
        std::memcpy(copy.data(), text.data(), text.size());
        Tbl* fields = split(copy.data(), ' ');
        benchmark::DoNotOptimize(fields->count);
        freetbl(fields, nullptr);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

#ifdef MORVA_PEER_ABSL
template <std::size_t kBytes>
void split_absl(State& state) {
    const std::string text = words(kBytes);
    std::string copy = text;
    for (auto _ : state) {
        std::memcpy(copy.data(), text.data(), text.size());
        std::vector<absl::string_view> fields = absl::StrSplit(copy, ' ', absl::SkipEmpty());
        benchmark::DoNotOptimize(fields.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
#endif

const std::vector<std::string>& padded() {
    static const std::vector<std::string> lines = [] {
        bench::Random random(2);
        std::vector<std::string> made = bench::random_keys(1024, 20);
        for (std::string& line : made) {
            line.insert(0, random() % 8, ' ');
            line.append(random() % 8, ' ');
        }
        return made;
    }();
    return lines;
}

template <char* (*kTrim)(char*)>
void trim(State& state) {
    char copy[64];
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string& line = padded()[i++ % 1024];
        std::memcpy(copy, line.c_str(), line.size() + 1);
        benchmark::DoNotOptimize(kTrim(copy));
    }
}

#ifdef MORVA_PEER_GLIB
char* strip_glib(char* s) {
    return g_strstrip(s);
}
#endif

template <std::size_t kPieces>
void push_morva(State& state) {
    const auto pieces = bench::random_keys(1024, 11);
    for (auto _ : state) {
        void* stack = nullptr;
        for (std::size_t i = 0; i < kPieces; ++i) pushstr(&stack, pieces[i % 1024].c_str());
        free(popstr(&stack, 1));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kPieces));
}

template <std::size_t kPieces>
void push_string(State& state) {
    const auto pieces = bench::random_keys(1024, 11);
    for (auto _ : state) {
        std::string text;
        for (std::size_t i = 0; i < kPieces; ++i) text += pieces[i % 1024].c_str();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kPieces));
}

char* sub_strstr(const char* s, const char* old_text, const char* new_text, char* out) {
    const std::size_t old_length = std::strlen(old_text), new_length = std::strlen(new_text);
    while (const char* found = std::strstr(s, old_text)) {
        std::memcpy(out, s, static_cast<std::size_t>(found - s));
        out += found - s;
        std::memcpy(out, new_text, new_length);
        out += new_length;
        s = found + old_length;
    }
    return stpcpy(out, s);
}

template <char* (*kSubstitute)(const char*, const char*, const char*, char*), bool kLong>
void substitute(State& state) {
    std::string text = kLong ? words(4096) : "the station AAK sent the channel BHZ of AAK";
    for (std::size_t at = 0; kLong && at + 100 < text.size(); at += 100) text.replace(at, 3, "AAK");
    std::string out(2 * text.size() + 1, ' ');
    for (auto _ : state)
        benchmark::DoNotOptimize(kSubstitute(text.c_str(), "AAK", "STAT", out.data()));
}

const std::vector<double>& doubles() {
    static const std::vector<double> values = [] {
        bench::Random random(3);
        std::vector<double> made(4096);
        for (double& value : made)
            value = std::ldexp(static_cast<double>(random() >> 11) - 4e15,
                               -53 + static_cast<int>(random() % 40) - 5);
        return made;
    }();
    return values;
}

void number_morva(State& state) {
    char text[64];
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(strdbl(text, doubles()[i++ % 4096]));
}

void number_to_chars(State& state) {
    char text[64];
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            std::to_chars(text, text + 64, doubles()[i++ % 4096], std::chars_format::general, 15)
                .ptr);
}

struct Pairs {
    std::vector<std::string> a, b;
};
// Pairs with about one edit in ten characters.
template <std::size_t kLength>
const Pairs& similar() {
    static const Pairs pairs = [] {
        bench::Random random(4);
        Pairs made{bench::random_keys(64, kLength, 5), {}};
        made.b = made.a;
        for (std::string& text : made.b)
            for (std::size_t i = 0; i < 1 + kLength / 10; ++i) text[random() % kLength] = 'x';
        return made;
    }();
    return pairs;
}
template <std::size_t kLength>
const Pairs& unlike() {
    static const Pairs pairs = {bench::random_keys(64, kLength, 5),
                                bench::random_keys(64, kLength, 6)};
    return pairs;
}

int two_rows(const char* a, const char* b) {
    const std::size_t m = std::strlen(a), n = std::strlen(b);
    std::vector<int> above(n + 1), row(n + 1);
    for (std::size_t j = 0; j <= n; ++j) above[j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= m; ++i) {
        row[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= n; ++j)
            row[j] =
                std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] != b[j - 1])});
        std::swap(above, row);
    }
    return above[n];
}

#ifdef MORVA_PEER_EDLIB
int edlib(const char* a, const char* b) {
    const EdlibAlignResult result =
        edlibAlign(a, static_cast<int>(std::strlen(a)), b, static_cast<int>(std::strlen(b)),
                   edlibDefaultAlignConfig());
    const int distance = result.editDistance;
    edlibFreeAlignResult(result);
    return distance;
}
#endif

template <int (*kDistance)(const char*, const char*), const Pairs& (*kPairs)()>
void distance(State& state) {
    const Pairs& pairs = kPairs();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kDistance(pairs.a[i % 64].c_str(), pairs.b[i % 64].c_str()));
        ++i;
    }
}

template <std::size_t kLength>
void add_distances(const std::string& length) {
    const auto name = [&](const char* kind, const char* who) {
        return "levenshtein " + length + kind + " : " + who;
    };
    add(name(" unlike", "morva").c_str(), distance<levenshtein_distance, unlike<kLength>>);
    add(name(" similar", "morva").c_str(), distance<levenshtein_distance, similar<kLength>>);
    if (kLength < 1000) {
        add(name(" unlike", "two rows").c_str(), distance<two_rows, unlike<kLength>>);
        add(name(" similar", "two rows").c_str(), distance<two_rows, similar<kLength>>);
    }
#ifdef MORVA_PEER_EDLIB
    add(name(" unlike", "edlib").c_str(), distance<edlib, unlike<kLength>>);
    add(name(" similar", "edlib").c_str(), distance<edlib, similar<kLength>>);
#endif
}

const bool registered = [] {
    add("split 1 kB : morva", split_morva<1000>);
    add("split 1 MB : morva", split_morva<1000000>);
#ifdef MORVA_PEER_ABSL
    add("split 1 kB : absl::StrSplit", split_absl<1000>);
    add("split 1 MB : absl::StrSplit", split_absl<1000000>);
#endif
    add("strtrim : morva", trim<strtrim>);
#ifdef MORVA_PEER_GLIB
    add("strtrim : g_strstrip", trim<strip_glib>);
#endif
    add("pushstr 50 pieces : morva", push_morva<50>);
    add("pushstr 50 pieces : std::string", push_string<50>);
    add("pushstr 10000 pieces : morva", push_morva<10000>);
    add("pushstr 10000 pieces : std::string", push_string<10000>);
    add("strsub short : morva", substitute<strsub, false>);
    add("strsub short : strstr", substitute<sub_strstr, false>);
    add("strsub 4 kB : morva", substitute<strsub, true>);
    add("strsub 4 kB : strstr", substitute<sub_strstr, true>);
    add("strdbl : morva", number_morva);
    add("strdbl : std::to_chars", number_to_chars);
    add_distances<8>("8");
    add_distances<64>("64");
    add_distances<1000>("1000");
    return true;
}();

}  // namespace
