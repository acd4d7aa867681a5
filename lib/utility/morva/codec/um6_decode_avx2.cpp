// The AVX2 version of the decoder. A first step turns characters into codes, 32 at a time, and
// drops what may stand between them; a second step finds the ends of values by the continuation
// bits, 64 at a time, and takes each value out of the eight codes before its end.
#include "codec/um6_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

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
constexpr std::size_t kChunk = 64 * 64;  // codes between two visits to the samples

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
    explicit CodeReader(std::string_view text)
        : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

    // Adds codes behind the `count` that are there, up to `limit` and at most a vector more, and
    // returns their number. `began` tells whether a value precedes the first of them.
    MORVA_AVX2 std::size_t fill(std::uint8_t* codes, std::size_t count, std::size_t limit,
                                bool began) {
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

// Bit i is set when code i is the last of its value.
MORVA_AVX2 inline std::uint64_t ends_of(const std::uint8_t* codes) {
    const auto continues = [&](std::size_t at) MORVA_AVX2 {
        const __m256i half = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + at));
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(half, 2)));
    };
    return ~(std::uint64_t{continues(0)} | std::uint64_t{continues(kVector)} << kVector);
}

// Decodes all whole values among `count` codes, and tells how many codes they are.
MORVA_AVX2 std::size_t decode_codes(const std::uint8_t* codes, std::size_t count,
                                    Integrator& integrator, std::int32_t*& samples) {
    Integrator local = integrator;
    std::int32_t* out = samples;
    const std::uint8_t* first = codes;  // of the next value
    for (std::size_t at = 0; at < count; at += kWord) {
        std::uint64_t ends = ends_of(codes + at);
        if (count - at < kWord) ends = _bzhi_u64(ends, static_cast<unsigned>(count - at));
        for (; ends != 0; ends = _blsr_u64(ends)) {
            const std::uint8_t* const last = codes + at + _tzcnt_u64(ends);
            const auto length = static_cast<std::size_t>(last - first) + 1;
            const std::uint32_t value =
                length <= kMaxCharacters ? short_value(last, length) : long_value(first, last);
            *out++ = local.next(value);
            first = last + 1;
        }
    }
    integrator = local;
    samples = out;
    return static_cast<std::size_t>(first - codes);
}

// Moves the codes of a value that has not ended to the front. Of a long one the first code and the
// last seven tell all: their 35 bits push out those between.
std::size_t keep_tail(std::uint8_t* codes, std::size_t first, std::size_t count) {
    const std::size_t length = count - first;
    if (length <= kWindow) {
        std::memmove(codes, codes + first, length);
        return length;
    }
    codes[0] = codes[first];
    std::memmove(codes + 1, codes + count - (kWindow - 1), kWindow - 1);
    return kWindow;
}

}  // namespace

MORVA_AVX2 Decoded decode_avx2(std::string_view data, std::int32_t* samples) {
    std::uint8_t buffer[kWindow + kChunk + kWord + kVector] = {};
    std::uint8_t* const codes = buffer + kWindow;
    CodeReader reader(data);
    Integrator integrator;
    std::int32_t sum = 0;
    std::int32_t* out = samples;
    std::size_t count = 0;
    while (!reader.done()) {
        count = reader.fill(codes, count, kChunk, out > samples);
        std::int32_t* const first = out;
        const std::size_t decoded = decode_codes(codes, count, integrator, out);
        sum = add_to_checksum(sum, first, static_cast<std::size_t>(out - first));
        count = keep_tail(codes, decoded, count);
    }
    Decoded result{static_cast<std::size_t>(out - samples), reader.stop(), data.size(), sum};
    if (result.stop == Stop::kBadCharacter)
        result.position = reader.position();
    else if (count > 0)
        result.stop = Stop::kCut;
    return result;
}

}  // namespace morva

#else

namespace morva {

Decoded decode_avx2(std::string_view data, std::int32_t* samples) {
    return decode_plain(data, samples);
}

}  // namespace morva

#endif
