// The AVX2 version of the decoder. Values of up to 25 bits fit, wherever they begin in a byte, into
// the four bytes around them, and eight values of w bits are w bytes: one shuffle and two shifts,
// the same for the whole block, unpack eight at a time. Running sums make samples of them.
#include "codec/gencompress_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"

namespace morva::gen {

namespace {

constexpr std::size_t kVector = 8;  // values
constexpr std::size_t kWidest = 25;
constexpr std::size_t kLargest = kLargestBlock;
constexpr std::size_t kOverread = 32;  // bytes behind the values of a block that vectors read

// How four values come out of the bytes around them: which bytes make a lane, and by how much they
// are shifted up to lose the bits before the value.
struct Unpacking {
    std::uint8_t bytes[16];
    std::uint32_t up[4];
};

// By width and the bit of the first byte, from its top, that the first value begins at.
constexpr auto kUnpackings = [] {
    std::array<std::array<Unpacking, 8>, kWidest + 1> rows{};
    for (std::size_t width = 0; width <= kWidest; ++width)
        for (std::size_t start = 0; start < 8; ++start)
            for (std::size_t i = 0; i < 4; ++i) {
                const std::size_t bit = start + i * width;
                Unpacking& row = rows[width][start];
                row.up[i] = static_cast<std::uint32_t>(bit % 8);
                for (std::size_t byte = 0; byte < 4; ++byte)
                    row.bytes[4 * i + byte] = static_cast<std::uint8_t>(bit / 8 + 3 - byte);
            }
    return rows;
}();

MORVA_AVX2 inline __m256i joined(const void* low, const void* high) {
    return _mm256_loadu2_m128i(static_cast<const __m128i*>(high), static_cast<const __m128i*>(low));
}

// Unpacks at least `count` values of 1 to 25 bits that begin at a bit of data[0].
MORVA_AVX2 inline void unpack_narrow(const std::uint8_t* data, std::size_t start, std::size_t width,
                                     std::size_t count, std::int32_t* values) {
    const std::size_t middle = start + 4 * width;
    const Unpacking& low = kUnpackings[width][start];
    const Unpacking& high = kUnpackings[width][middle % 8];
    const __m256i bytes = joined(low.bytes, high.bytes), up = joined(low.up, high.up);
    const __m128i down = _mm_cvtsi32_si128(static_cast<int>(32 - width));
    for (std::size_t i = 0; i < count; i += kVector, data += width) {
        const __m256i lanes = _mm256_shuffle_epi8(joined(data, data + middle / 8), bytes);
        _mm256_store_si256(reinterpret_cast<__m256i*>(values + i),
                           _mm256_sra_epi32(_mm256_sllv_epi32(lanes, up), down));
    }
}

void unpack_wide(const std::uint8_t* data, std::size_t start, std::size_t width, std::size_t count,
                 std::int32_t* values) {
    for (std::size_t i = 0; i < count; ++i, start += width) {
        const auto word = load_big_endian<std::uint64_t>(data + start / 8) << start % 8;
        values[i] = static_cast<std::int32_t>(word >> 32) >> (32 - width);
    }
}

MORVA_AVX2 inline __m256i running_sums(__m256i values) {
    values = _mm256_add_epi32(values, _mm256_slli_si256(values, 4));
    values = _mm256_add_epi32(values, _mm256_slli_si256(values, 8));
    const __m256i low = _mm256_permute2x128_si256(values, values, 0x08);
    return _mm256_add_epi32(values, _mm256_shuffle_epi32(low, _MM_SHUFFLE(3, 3, 3, 3)));
}

MORVA_AVX2 inline __m256i last_of(__m256i values) {
    return _mm256_permutevar8x32_epi32(values, _mm256_set1_epi32(7));
}

// Makes samples of at least `count` values; the two samples before them are read.
template <unsigned order>
MORVA_AVX2 inline void integrate(const std::int32_t* values, std::size_t count,
                                 std::int32_t* samples) {
    __m256i sample = _mm256_set1_epi32(samples[-1]);
    __m256i difference = _mm256_sub_epi32(sample, _mm256_set1_epi32(samples[-2]));
    for (std::size_t i = 0; i < count; i += kVector) {
        __m256i result = _mm256_load_si256(reinterpret_cast<const __m256i*>(values + i));
        if constexpr (order == kSecondDifferences) {
            const __m256i sums = running_sums(result);
            result = _mm256_add_epi32(sums, difference);
            difference = _mm256_add_epi32(difference, last_of(sums));
        }
        if constexpr (order != kSamples) {
            const __m256i sums = running_sums(result);
            result = _mm256_add_epi32(sums, sample);
            sample = _mm256_add_epi32(sample, last_of(sums));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(samples + i), result);
    }
}

MORVA_AVX2 inline void integrate(unsigned order, const std::int32_t* values, std::size_t count,
                                 std::int32_t* samples) {
    if (order == kSecondDifferences)
        integrate<kSecondDifferences>(values, count, samples);
    else if (order == kDifferences)
        integrate<kDifferences>(values, count, samples);
    else
        integrate<kSamples>(values, count, samples);
}

constexpr std::size_t rounded_up(std::size_t count) {
    return (count + kVector - 1) / kVector * kVector;
}

// The packed values. What is left of them when vectors would read behind their end is copied to
// where they may.
class Values {
  public:
    Values(const std::uint8_t* data, const std::uint8_t* end) : data_(data), end_(end) {}

    // Unpacks the next `count`, and leaves anything in the rest of a last vector.
    MORVA_AVX2 void unpack(std::size_t width, std::size_t count, std::int32_t* values) {
        if (static_cast<std::size_t>(end_ - data_) < rounded_up(count) * width / 8 + kOverread)
            move_to_tail();
        if (width == 0)
            std::memset(values, 0, rounded_up(count) * sizeof *values);
        else if (width <= kWidest)
            unpack_narrow(data_, start_, width, count, values);
        else
            unpack_wide(data_, start_, width, count, values);
        start_ += width * count;
        data_ += start_ / 8;
        start_ %= 8;
    }

  private:
    void move_to_tail() {
        std::copy(data_, end_, tail_);
        data_ = tail_;
        end_ = tail_ + sizeof tail_;
    }

    const std::uint8_t* data_;
    const std::uint8_t* end_;
    std::size_t start_ = 0;  // the bit of *data_, from its top, that comes next
    std::uint8_t tail_[2 * (4 * kLargest + kOverread)] = {};
};

}  // namespace

MORVA_AVX2 void decode_avx2(const Source& source, std::int32_t* samples) {
    Values packed(source.data, source.end);
    // The first block, and those whose last vector would be stored behind the end, go through here.
    std::int32_t framed[2 + kLargest];
    alignas(32) std::int32_t values[kLargest];
    samples[0] = source.first;
    for (std::size_t begin = 1, block = 0; begin < source.count; begin += source.block, ++block) {
        const std::size_t count = std::min(source.block, source.count - begin);
        const Key key = key_of(source.keys[block]);
        packed.unpack(static_cast<std::size_t>(key.width), count, values);
        if (begin > 1 && begin + rounded_up(count) <= source.count) {
            integrate(key.order, values, count, samples + begin);
            continue;
        }
        framed[0] = begin > 1 ? samples[begin - 2] : source.first;
        framed[1] = samples[begin - 1];
        integrate(key.order, values, count, framed + 2);
        std::copy_n(framed + 2, count, samples + begin);
    }
}

}  // namespace morva::gen

#else

namespace morva::gen {

void decode_avx2(const Source& source, std::int32_t* samples) {
    decode_plain(source, samples);
}

}  // namespace morva::gen

#endif
