// What the vector versions of the compressor share. They work on planes: words of which bit i says
// something about the difference at place i of a chunk.
//
//   1. For each class, which differences are narrower than it.
//   2. For each pair of classes, where a run of the first may give way to one of the second: where
//      all differences that the look-ahead sees are narrow enough. Together these tell for each
//      class where a run of it ends, and the class of the run that follows.
//   3. Runs are found by looking for the next bit.
//   4. Their values are packed, many at a time.
//
// Behind the end of the series all differences count as 0. A kernel does the first step and the
// last; it is compiled for its processors, and what calls it is inlined there.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "base/simd.hpp"
#include "codec/ucsd_code.hpp"
#include "codec/ucsd_compress.hpp"

namespace morva::ucsd {

inline constexpr std::size_t kWord = 64;
inline constexpr std::size_t kWords = 32;
inline constexpr std::size_t kChunk = kWord * kWords;
inline constexpr std::size_t kSlack = 32;  // samples behind a run that packing may read

inline constexpr unsigned kCodeBits = 3;

using Plane = std::array<std::uint64_t, kWords + 1>;

// Words of a plane that are worked on together.
inline constexpr std::size_t kTogether = 4;
typedef std::uint64_t Words __attribute__((vector_size(kTogether * sizeof(std::uint64_t))));

MORVA_AVX2 inline Words words_at(const Plane& plane, std::size_t word) {
    Words words;
    std::memcpy(&words, &plane[word], sizeof words);
    return words;
}

// A run of a class up to the place where the next one begins.
struct Start {
    std::size_t first;
    int class_index;
};

// The planes of a chunk.
class Planes {
  public:
    // A word of the planes of narrow differences: those that a class before this one holds.
    std::uint64_t& narrow(int class_index, std::size_t word) { return narrow_[class_index][word]; }

    void move_on() {
        for (int index = 1; index < kClassCount; ++index)
            narrow_[index][0] = narrow_[index][kWords];
    }

    MORVA_AVX2 void find_all_ends() {
        for (std::size_t word = 0; word < kWords; word += kTogether) {
            find_ends<0>(word);
            find_ends<1>(word);
            find_ends<2>(word);
            find_ends<3>(word);
            find_ends<4>(word);
        }
    }

    // Hands over the runs that begin in this chunk, whose first difference is that of sample
    // `chunk`, behind the given one, until that returns false.
    template <class Take>
    [[gnu::always_inline]] void each_run(std::size_t chunk, const Start& before,
                                         Take&& take) const {
        int current = before.class_index;
        for (std::size_t word = 0; word < kWords; ++word) {
            // The places not yet passed: a run takes the one it begins with.
            std::uint64_t left = ~std::uint64_t{before.first == chunk + word * kWord};
            for (;;) {
                const Next& next = next_[word][current];
                const std::uint64_t ends = next.ends & left;
                if (ends == 0) break;
                const int bit = std::countr_zero(ends);
                current =
                    static_cast<int>((next.code[0] >> bit & 1) | (next.code[1] >> bit & 1) << 1 |
                                     (next.code[2] >> bit & 1) << 2);
                if (!take(Start{chunk + word * kWord + static_cast<std::size_t>(bit), current}))
                    return;
                left = ~std::uint64_t{1} << bit;
            }
        }
    }

  private:
    // The places whose difference, and all others that the look-ahead then sees, are narrow enough
    // for a run of class To behind one of class From.
    template <int From, int To>
    MORVA_AVX2 Words gives_way(std::size_t word) const {
        const Words here = words_at(narrow_[To + 1], word);
        const Words next = words_at(narrow_[To + 1], word + 1);
        Words places = here;
        for (int j = 1; j <= differences_to_see(From, To); ++j)
            places &= here >> j | next << (static_cast<int>(kWord) - j);
        return places;
    }

    // What is found out about the places where runs of a class end.
    struct Ends {
        Words open;  // those without a class for the next run yet
        Words ends, code[kCodeBits];
    };

    // Narrower classes come first: the first one that is wide enough is the next one.
    template <int From, int To>
    MORVA_AVX2 void choose(std::size_t word, Ends& found) {
        if constexpr (To < kClassCount) {
            if constexpr (To != From) {
                Words places = found.open;
                if constexpr (To < From) places &= gives_way<From, To>(word);
                if constexpr (To > From && To < kSampleClass)
                    places &= words_at(narrow_[To + 1], word);
                if constexpr (To < From) found.ends |= places;
                for (unsigned bit = 0; bit < kCodeBits; ++bit)
                    if ((To >> bit & 1) != 0) found.code[bit] |= places;
                found.open &= ~places;
            }
            choose<From, To + 1>(word, found);
        }
    }

    template <int From>
    MORVA_AVX2 void find_ends(std::size_t word) {
        Ends found = {~Words{}, {}, {}};
        if constexpr (From < kSampleClass) found.ends = ~words_at(narrow_[From + 1], word);
        choose<From, 0>(word, found);
        for (std::size_t i = 0; i < kTogether; ++i)
            next_[word + i][From] = {found.ends[i],
                                     {found.code[0][i], found.code[1][i], found.code[2][i]}};
    }

    // Where runs of a class end in a word, and the bits of the class that follows there.
    struct Next {
        std::uint64_t ends, code[kCodeBits];
    };

    Plane narrow_[kClassCount];
    Next next_[kWords][kClassCount];
};

// A kernel is made with nothing, and has
//   narrow      of 64 samples, which differences fit in 4, 8, 12 and 16 bits; one sample before
//   them
//               is read
//   too_steep   true when one of these differences needs more than 24 bits
//   pack        from samples, their number and class, to bytes; reads up to kSlack samples behind
//               them, and writes up to 4 bytes for each of these
template <class Kernel>
class Chunk {
  public:
    [[gnu::always_inline]] Chunk(const std::int32_t* samples, std::size_t count)
        : samples_(samples), count_(count) {
        find_narrow(kWords, 1);
    }

    // Moves to the chunk that begins with the difference of sample `first`, the one behind the last
    // chunk.
    [[gnu::always_inline]] void move_to(std::size_t first) {
        first_ = first;
        planes_.move_on();
        for (std::size_t word = 1; word <= kWords; ++word) find_narrow(word, first + word * kWord);
        planes_.find_all_ends();
    }

    // Hands over the runs that begin in this chunk behind the given one, until that returns false.
    template <class Take>
    [[gnu::always_inline]] void each_run(const Start& before, Take&& take) const {
        planes_.each_run(first_, before, take);
    }

    // True when a difference before the end of this chunk needs more than 24 bits.
    [[gnu::always_inline]] bool too_steep() const { return kernel_.too_steep(); }

  private:
    // Asks for 64 samples of the next chunk: it is looked at in one go, which leaves no time to.
    static void prefetch(const std::int32_t* samples) {
        for (std::size_t line = 0; line < kWord; line += kWord / 4)
            __builtin_prefetch(samples + line);
    }

    // Fills a word of the planes of narrow differences, from the one of sample i on.
    [[gnu::always_inline]] void find_narrow(std::size_t word, std::size_t i) {
        std::uint64_t narrow[kClassCount - 1];
        if (i >= count_) {
            std::fill(std::begin(narrow), std::end(narrow), ~std::uint64_t{0});
        } else if (count_ - i < kWord) {
            std::int32_t rest[kWord + 1];
            std::memcpy(rest, samples_ + i - 1, (count_ - i + 1) * sizeof *samples_);
            std::fill(rest + (count_ - i + 1), std::end(rest), samples_[count_ - 1]);
            kernel_.narrow(rest + 1, narrow);
        } else {
            if (count_ - i > kChunk + kWord) prefetch(samples_ + i + kChunk);
            kernel_.narrow(samples_ + i, narrow);
        }
        for (int index = 1; index < kClassCount; ++index)
            planes_.narrow(index, word) = narrow[index - 1];
    }

    const std::int32_t* samples_;
    std::size_t count_;
    std::size_t first_ = 1;
    Kernel kernel_;
    Planes planes_;
};

// The series and the bytes written so far.
struct Output {
    const std::int32_t* samples;
    std::size_t count;
    std::uint8_t* begin;
    bool lossy;
};

template <class Kernel>
[[gnu::always_inline]] inline std::uint8_t* put_short_run(const Output& output, std::size_t first,
                                                          std::size_t count, int class_index,
                                                          std::uint8_t* at) {
    if (first + count + kSlack > output.count)
        return put_run(output.samples, first, count, class_index, output.begin, at);
    *at = 0;
    at += (at - output.begin) % 2;
    *at++ = kClasses[class_index].code;
    *at++ = static_cast<std::uint8_t>(count);
    Kernel::pack(output.samples + first, count, class_index, at);
    at += run_size(class_index, count);
    // What lies in the other half of a half-filled byte belongs to a value behind the run.
    const auto bits = count * static_cast<std::size_t>(bits_of(class_index));
    at[-1] &= static_cast<std::uint8_t>(0xff << bits % 8);
    return at;
}

// Writes the samples first..end-1 as runs of a class.
template <class Kernel>
[[gnu::always_inline]] inline std::uint8_t* put(Output& output, std::size_t first, std::size_t end,
                                                int class_index, std::uint8_t* at) {
    if (class_index == kSampleClass)
        for (std::size_t i = first; i < end; ++i)
            output.lossy |= !fits(output.samples[i], bits_of(kSampleClass));
    for (; end - first > kMaxRun; first += kMaxRun)
        at = put_short_run<Kernel>(output, first, kMaxRun, class_index, at);
    return put_short_run<Kernel>(output, first, end - first, class_index, at);
}

// True when the look-ahead that led from one run to the next met the end of the series.
inline bool saw_the_end(const Start& start, int before, std::size_t count) {
    return start.class_index < before &&
           start.first + static_cast<std::size_t>(differences_to_see(before, start.class_index)) >=
               count;
}

template <class Kernel>
[[gnu::always_inline]] inline Compressed compress_with(const std::int32_t* samples,
                                                       std::size_t count, Rule rule,
                                                       std::uint8_t* out) {
    std::uint8_t* at = put_first(samples[0], out);
    if (count == 1) return {at, false, false, false};
    Start run = {1, look_ahead(samples, count, 1, kBeforeFirst, rule)};
    if (run.class_index == kUndecided) return {out, true, false, false};
    Output output = {samples, count, out, false};
    Chunk<Kernel> chunk(samples, count);
    bool undecided = false;
    for (std::size_t first = 1; first < count; first += kChunk) {
        chunk.move_to(first);
        const Start before = run;
        chunk.each_run(
            before, [&](const Start& next) __attribute__((always_inline)) {
                if (next.first >= count) return false;
                undecided = rule == Rule::kStrict && saw_the_end(next, run.class_index, count);
                if (undecided) return false;
                at = put<Kernel>(output, run.first, next.first, run.class_index, at);
                run = next;
                return true;
            });
        if (undecided) return {out, true, false, false};
        // Whole runs of a long series of one class are written while they are in the cache.
        for (; std::min(first + kChunk, count) - run.first > kMaxRun; run.first += kMaxRun)
            at = put<Kernel>(output, run.first, run.first + kMaxRun, run.class_index, at);
        if (output.lossy && rule == Rule::kLenient) break;
    }
    at = put<Kernel>(output, run.first, count, run.class_index, at);
    if (output.lossy && rule == Rule::kLenient) return compress_plain(samples, count, rule, out);
    return {at, false, output.lossy, chunk.too_steep()};
}

}  // namespace morva::ucsd
