// The AVX2 version of the decoder, in steps over chunks of text that stay in the first-level cache:
//
//   1. characters become codes, 32 at a time, and what may stand between them is dropped;
//   2. the continuation bits tell where values end, 64 codes to a word;
//   3. the codes of each value are moved into four bytes of its own, two values at a time;
//   4. eight of these become numbers, and the numbers are summed up twice to samples.
//
// A chunk with a value of more than four characters takes its values one by one after step 2. With
// AVX-512 all steps are those of um6_decode_avx512.
#include "codec/um6_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "base/simd.hpp"
#include "codec/cm6_code.hpp"
#include "digest/gse_checksum.hpp"

namespace morva {

using namespace cm6code;

namespace {

constexpr std::size_t kVector = 32;
constexpr std::size_t kWord = 64;        // codes whose ends are looked at together
constexpr std::size_t kWindow = 8;       // codes that are read for one value
constexpr std::size_t kShort = 4;        // characters of a value that fits in a lane
constexpr std::size_t kChunk = 32 * 64;  // codes between two visits to the samples
static_assert(kChunk + kWord <= kMostCodes);
constexpr std::uint8_t kSignMark = 2 * kNegative;

// A chunk of codes that begins with the first code of a value, and what is found out about it. What
// vectors read and write before and behind the codes is in here too.
struct Chunk {
    std::uint8_t front[kVector] = {};  // zeros: the end of a value that is not there
    std::uint8_t codes[kChunk + 2 * kWord];
    std::size_t count = 0;
    std::uint64_t ends[kChunk / kWord + 1];  // bit i is set when code i is the last of its value
    std::uint8_t digits[kChunk + 3 * kWord];
};

// Tables of sixteen bytes for _mm256_shuffle_epi8, made from the alphabet. A character is in it
// when the kinds of its upper and of its lower half have a bit in common.
struct Tables {
    std::array<std::uint8_t, 16> upper{}, lower{}, offset{};
};

constexpr std::uint8_t kind_of(int upper) {
    return upper == 2 ? 1 : upper == 3 ? 2 : upper == 4 || upper == 6 ? 4 : 8;
}

constexpr Tables kTables = [] {
    Tables tables;
    for (int code = 0; code < 64; ++code) {
        const auto upper = static_cast<std::size_t>(Encode[code] >> 4);
        const auto lower = static_cast<std::size_t>(Encode[code] & 15);
        tables.upper[upper] = kind_of(static_cast<int>(upper));
        tables.lower[lower] |= tables.upper[upper];
        // '-' shares its upper half with '+' and lies one code lower than its place says.
        if (code != 1) tables.offset[upper] = static_cast<std::uint8_t>(code - Encode[code]);
    }
    return tables;
}();

constexpr bool tables_tell_the_alphabet() {
    for (int c = 0; c < 128; ++c) {
        const auto upper = static_cast<std::size_t>(c >> 4),
                   lower = static_cast<std::size_t>(c & 15);
        if (((kTables.upper[upper] & kTables.lower[lower]) != 0) !=
            (Decode[static_cast<std::size_t>(c)] != kNoCode))
            return false;
    }
    return true;
}
static_assert(tables_tell_the_alphabet());

MORVA_AVX2 inline __m256i table(const std::array<std::uint8_t, 16>& bytes) {
    return _mm256_broadcastsi128_si256(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data())));
}

// Writes the codes of 32 characters. Bit i of the result is set when character i has none.
MORVA_AVX2 inline std::uint32_t convert(const char* text, std::uint8_t* codes) {
    const __m256i characters = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
    // A character above 127 finds zeros in every table.
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(characters, 4), _mm256_set1_epi8(15));
    const __m256i kinds = _mm256_and_si256(_mm256_shuffle_epi8(table(kTables.upper), upper),
                                           _mm256_shuffle_epi8(table(kTables.lower), characters));
    const __m256i minus = _mm256_cmpeq_epi8(characters, _mm256_set1_epi8('-'));
    const __m256i code = _mm256_add_epi8(_mm256_add_epi8(characters, minus),
                                         _mm256_shuffle_epi8(table(kTables.offset), upper));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes), code);
    return static_cast<std::uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(kinds, _mm256_setzero_si256())));
}

// Turns the text into codes, chunk by chunk.
class CodeReader {
  public:
    CodeReader(std::string_view text, bool wide)
        : begin_(text.data()), at_(begin_), end_(begin_ + text.size()), wide_(wide) {}

    // Adds codes behind the `count` that are there, up to `limit` and at most a word more, and
    // returns their number. `began` tells whether a value precedes the first of them.
    MORVA_AVX2 std::size_t fill(std::uint8_t* codes, std::size_t count, std::size_t limit,
                                bool began) {
        if (wide_) count = fill_wide(codes, count, limit, began);
        while (count < limit && !done_) {
            if (static_cast<std::size_t>(end_ - at_) < kVector) {
                count = take_rest(codes, count, began);
                break;
            }
            const std::uint32_t bad = convert(at_, codes + count);
            const auto good = static_cast<std::size_t>(std::countr_zero(bad));
            count += good;
            at_ += good;
            if (bad != 0) take_odd(codes, count, began);
        }
        return count;
    }
    bool done() const { return done_; }
    Stop stop() const { return stop_; }
    std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }
    std::size_t size() const { return static_cast<std::size_t>(end_ - begin_); }

  private:
    // The same as far as whole words of characters go.
    std::size_t fill_wide(std::uint8_t* codes, std::size_t count, std::size_t limit, bool began) {
        while (count < limit && !done_ && static_cast<std::size_t>(end_ - at_) >= kWord) {
            const Converted converted = convert_avx512(at_, codes + count);
            count += converted.count;
            at_ += converted.used;
            if (converted.used < kWord) take_odd(codes, count, began);
        }
        return count;
    }

    std::size_t take_rest(std::uint8_t* codes, std::size_t count, bool began) {
        while (at_ < end_ && !done_) {
            const std::uint8_t code = code_of(*at_);
            if (code == kNoCode) {
                take_odd(codes, count, began);
            } else {
                codes[count++] = code;
                ++at_;
            }
        }
        done_ = true;
        return count;
    }

    // Takes a character that has no code: skips it, or ends the data.
    void take_odd(const std::uint8_t* codes, std::size_t count, bool began) {
        const bool inside = count > 0 && (codes[count - 1] & kContinues) != 0;
        if (is_skipped(*at_) || (*at_ == ' ' && inside)) {
            ++at_;
            return;
        }
        done_ = true;
        if (*at_ != ' ' || (count == 0 && !began)) stop_ = Stop::kBadCharacter;
    }

    const char* begin_;
    const char* at_;
    const char* end_;
    bool wide_;  // AVX-512 may be used
    bool done_ = false;
    Stop stop_ = Stop::kEnd;
};

// The bits of a value of `length` codes, at most seven, that stand last in eight: five bits of
// each, but for the sign in the first.
constexpr std::array<std::uint64_t, kMaxCharacters + 1> kValueBits = [] {
    std::array<std::uint64_t, kMaxCharacters + 1> bits{};
    for (std::size_t length = 1; length < bits.size(); ++length)
        for (std::size_t i = 0; i < length; ++i)
            bits[length] |= (i + 1 < length ? std::uint64_t{31} : std::uint64_t{15}) << 8 * i;
    return bits;
}();

constexpr std::uint32_t with_sign(std::uint32_t bits, std::uint32_t negative) {
    return (bits ^ (0 - negative)) + negative;
}

MORVA_AVX2 inline std::uint32_t short_value(const std::uint8_t* last, std::size_t length) {
    std::uint64_t codes;
    std::memcpy(&codes, last - (kWindow - 1), sizeof codes);
    codes = __builtin_bswap64(codes);
    const auto negative = static_cast<std::uint32_t>(codes >> (8 * length - 4)) & 1;
    return with_sign(static_cast<std::uint32_t>(_pext_u64(codes, kValueBits[length])), negative);
}

// A value with more characters than it needs; bits beyond the 32nd are lost.
std::uint32_t long_value(const std::uint8_t* first, const std::uint8_t* last) {
    std::uint32_t bits = *first & 15;
    for (const std::uint8_t* code = first + 1; code <= last; ++code)
        bits = bits << 5 | (*code & 31);
    return with_sign(bits, (*first & kNegative) != 0 ? 1 : 0);
}

MORVA_AVX2 inline __m256i load(const std::uint8_t* bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

// Bit i is set when code i is not the last of its value.
MORVA_AVX2 inline std::uint32_t continues(__m256i codes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(codes, 2)));
}

// Writes the value bits of 32 codes, and marks the first one of a negative value. The byte before
// the codes tells whether they begin with a first one. A vector of codes behind which three more of
// the same value follow is added to `runs`.
MORVA_AVX2 inline __m256i write_digits(const std::uint8_t* codes, std::uint8_t* digits,
                                       __m256i* runs) {
    const __m256i here = load(codes);
    const __m256i before = load(codes - 1);
    const __m256i inner = _mm256_and_si256(before, _mm256_set1_epi8(kContinues));
    *runs = _mm256_or_si256(*runs,
                            _mm256_and_si256(_mm256_and_si256(inner, here),
                                             _mm256_and_si256(load(codes - 2), load(codes - 3))));
    const __m256i is_first = _mm256_cmpeq_epi8(inner, _mm256_setzero_si256());
    const __m256i sign =
        _mm256_and_si256(_mm256_and_si256(here, is_first), _mm256_set1_epi8(kNegative));
    // Adding the sign bit to itself moves it up by one place, to the mark.
    const __m256i bits = _mm256_and_si256(here, _mm256_set1_epi8(31));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(digits), _mm256_add_epi8(bits, sign));
    return here;
}

// Finds the ends and digits of the values of a chunk. True when no value has more than kShort
// characters.
MORVA_AVX2 bool mark_values(Chunk& chunk) {
    std::memset(chunk.codes + chunk.count, 0, kWord);
    __m256i runs = _mm256_setzero_si256();
    for (std::size_t at = 0; at < chunk.count; at += kWord) {
        const std::uint32_t low =
            continues(write_digits(chunk.codes + at, chunk.digits + at, &runs));
        const std::uint32_t high =
            continues(write_digits(chunk.codes + at + kVector, chunk.digits + at + kVector, &runs));
        std::uint64_t ends = ~(std::uint64_t{low} | std::uint64_t{high} << kVector);
        if (chunk.count - at < kWord)
            ends = _bzhi_u64(ends, static_cast<unsigned>(chunk.count - at));
        chunk.ends[at / kWord] = ends;
    }
    return _mm256_testz_si256(runs, _mm256_set1_epi8(kContinues)) != 0;
}

// Decodes the values that end in a chunk one by one.
MORVA_AVX2 std::size_t decode_any(const Chunk& chunk, Integrator& integrator,
                                  std::int32_t* samples) {
    const std::uint8_t* first = chunk.codes;  // of the next value
    std::size_t n = 0;
    for (std::size_t word = 0; word * kWord < chunk.count; ++word) {
        const std::uint8_t* const codes = chunk.codes + word * kWord;
        for (std::uint64_t ends = chunk.ends[word]; ends != 0; ends = _blsr_u64(ends)) {
            const std::uint8_t* const last = codes + _tzcnt_u64(ends);
            const auto length = static_cast<std::size_t>(last - first) + 1;
            const std::uint32_t value =
                length <= kMaxCharacters ? short_value(last, length) : long_value(first, last);
            samples[n++] = integrator.next(value);
            first = last + 1;
        }
    }
    return n;
}

// Which bytes of four hold the last `length` codes of a value; none for lengths that are no
// value's, which occur behind the last value of a word.
constexpr std::array<std::uint64_t, kWord + 2 * kShort> kLaneBytes = [] {
    std::array<std::uint64_t, kWord + 2 * kShort> bytes{};
    for (std::size_t length = 1; length <= kShort; ++length)
        bytes[length] = 0xffffffffu << (32 - 8 * length) & 0xffffffffu;
    return bytes;
}();

// Moves the digits of each value into the last bytes of a lane. Writes some lanes too many.
MORVA_AVX2 std::size_t fill_lanes(const Chunk& chunk, std::uint32_t* lanes) {
    std::size_t n = 0;
    std::int64_t before = -1;  // where the value before ends, counted from the word
    for (std::size_t word = 0; word * kWord < chunk.count; ++word) {
        const std::uint8_t* const digits = chunk.digits + word * kWord;
        std::uint64_t ends = chunk.ends[word];
        if (ends == 0) {
            before -= kWord;
            continue;
        }
        std::uint32_t* out = lanes + n;
        const auto pair = [&]() MORVA_AVX2 {
            const auto one = static_cast<std::int64_t>(_tzcnt_u64(ends));
            ends = _blsr_u64(ends);
            const auto two = static_cast<std::int64_t>(_tzcnt_u64(ends));
            ends = _blsr_u64(ends);
            std::uint64_t codes;
            std::memcpy(&codes, digits + before + 1, sizeof codes);
            const std::uint64_t bytes = kLaneBytes[static_cast<std::size_t>(one - before)] |
                                        kLaneBytes[static_cast<std::size_t>(two - one)] << 32;
            const std::uint64_t spread = _pdep_u64(codes, bytes);
            std::memcpy(out, &spread, sizeof spread);
            before = two;
            out += 2;
        };
        n += static_cast<std::size_t>(std::popcount(ends));
        const std::int64_t last = 63 - static_cast<std::int64_t>(std::countl_zero(ends));
        do {
            pair(), pair(), pair(), pair();
        } while (ends != 0);
        before = last - static_cast<std::int64_t>(kWord);
    }
    return n;
}

// The numbers in eight lanes.
MORVA_AVX2 inline __m256i numbers_in(__m256i lanes) {
    const __m256i digits = _mm256_and_si256(lanes, _mm256_set1_epi8(31));
    const __m256i tens = _mm256_maddubs_epi16(digits, _mm256_set1_epi16(0x0120));
    const __m256i sizes = _mm256_madd_epi16(tens, _mm256_set1_epi32(0x00010400));
    const __m256i negative = _mm256_cmpgt_epi32(
        _mm256_and_si256(lanes, _mm256_set1_epi8(kSignMark)), _mm256_setzero_si256());
    return _mm256_sub_epi32(_mm256_xor_si256(sizes, negative), negative);
}

// Running sums of eight numbers behind a sum that all of `before` hold.
MORVA_AVX2 inline __m256i running_sums(__m256i numbers, __m256i before) {
    __m256i sums = _mm256_add_epi32(numbers, _mm256_slli_si256(numbers, 4));
    sums = _mm256_add_epi32(sums, _mm256_slli_si256(sums, 8));
    const __m256i low = _mm256_permute2x128_si256(sums, sums, 0x08);
    sums = _mm256_add_epi32(sums, _mm256_shuffle_epi32(low, 0xff));
    return _mm256_add_epi32(sums, before);
}

MORVA_AVX2 inline __m256i last_of(__m256i numbers) {
    return _mm256_permutevar8x32_epi32(numbers, _mm256_set1_epi32(7));
}

MORVA_AVX2 void integrate_lanes(const std::uint32_t* lanes, std::size_t count,
                                Integrator& integrator, std::int32_t* samples) {
    __m256i difference = _mm256_set1_epi32(integrator.difference());
    __m256i sample = _mm256_set1_epi32(integrator.sample());
    const auto next = [&](std::size_t i) MORVA_AVX2 {
        const __m256i eight = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lanes + i));
        const __m256i differences = running_sums(numbers_in(eight), difference);
        difference = last_of(differences);
        const __m256i result = running_sums(differences, sample);
        sample = last_of(result);
        return result;
    };
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(samples + i), next(i));
    integrator = {_mm256_cvtsi256_si32(difference), _mm256_cvtsi256_si32(sample)};
    if (i == count) return;
    alignas(32) std::int32_t rest[8];
    alignas(32) std::int32_t numbers[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(numbers),
                       numbers_in(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(lanes + i))));
    for (std::size_t k = 0; k < count - i; ++k)
        rest[k] = integrator.next(static_cast<std::uint32_t>(numbers[k]));
    std::memcpy(samples + i, rest, (count - i) * sizeof rest[0]);
}

// Decodes all whole values of a chunk, and tells how many they are.
MORVA_AVX2 std::size_t decode_chunk(Chunk& chunk, bool wide, Integrator& integrator,
                                    std::int32_t* samples) {
    std::size_t decoded;
    if (wide && decode_codes_avx512(chunk.codes, chunk.count, integrator, samples, &decoded))
        return decoded;
    if (!mark_values(chunk)) return decode_any(chunk, integrator, samples);
    std::uint32_t lanes[kChunk + kWord + 8];
    const std::size_t count = fill_lanes(chunk, lanes);
    integrate_lanes(lanes, count, integrator, samples);
    return count;
}

// Moves the codes of a value that has not ended to the front. Of a long one the first code and the
// last seven tell all: their 35 bits push out those between.
void keep_tail(Chunk& chunk) {
    std::size_t first = chunk.count;
    while (first > 0 && (chunk.codes[first - 1] & kContinues) != 0) --first;
    const std::size_t length = chunk.count - first;
    chunk.count = std::min(length, kWindow);
    chunk.codes[0] = chunk.codes[first];
    const std::size_t others = length > 0 ? chunk.count - 1 : 0;
    std::memmove(chunk.codes + 1, chunk.codes + first + length - others, others);
}

MORVA_AVX2 Decoded decode(std::string_view data, bool wide, std::int32_t* samples) {
    Chunk chunk;
    CodeReader reader(data, wide);
    Integrator integrator;
    std::int32_t sum = 0;
    std::size_t total = 0;
    while (!reader.done()) {
        chunk.count = reader.fill(chunk.codes, chunk.count, kChunk, total > 0);
        const std::size_t decoded = decode_chunk(chunk, wide, integrator, samples + total);
        sum = add_to_checksum(sum, samples + total, decoded);
        total += decoded;
        keep_tail(chunk);
    }
    Decoded result{total, reader.stop(), data.size(), sum};
    if (result.stop == Stop::kBadCharacter)
        result.position = reader.position();
    else if (chunk.count > 0)
        result.stop = Stop::kCut;
    return result;
}

}  // namespace

Decoded decode_avx2(std::string_view data, std::int32_t* samples) {
    return decode(data, false, samples);
}

Decoded decode_avx512(std::string_view data, std::int32_t* samples) {
    return decode(data, true, samples);
}

}  // namespace morva

#else

namespace morva {

Decoded decode_avx2(std::string_view data, std::int32_t* samples) {
    return decode_plain(data, samples);
}

Decoded decode_avx512(std::string_view data, std::int32_t* samples) {
    return decode_plain(data, samples);
}

}  // namespace morva

#endif
