// The AVX2 version of the encoder. A block's values are computed for every order, eight at a time,
// while their widths are found; those of the chosen order are squeezed together with PEXT and go
// out up to 56 bits at once.
#include "codec/gencompress_encode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/gencompress_encode_vectors.hpp"

namespace morva::gen {

namespace {

constexpr std::size_t kVector = 8;  // values
constexpr int kWidestQuad = 14, kWidestPair = 28;

constexpr std::int32_t kMasks[2 * kVector] = {-1, -1, -1, -1, -1, -1, -1, -1};

// Eight samples, of which the first `count` are read and the others zero.
MORVA_AVX2 inline __m256i load(const std::int32_t* samples, std::size_t count) {
    if (count >= kVector) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples));
    const auto* mask = reinterpret_cast<const __m256i*>(kMasks + kVector - count);
    return _mm256_maskload_epi32(samples, _mm256_loadu_si256(mask));
}

MORVA_AVX2 inline std::uint32_t any_of(__m256i bits) {
    __m128i all = _mm_or_si128(_mm256_castsi256_si128(bits), _mm256_extracti128_si256(bits, 1));
    all = _mm_or_si128(all, _mm_unpackhi_epi64(all, all));
    const auto pair = static_cast<std::uint64_t>(_mm_cvtsi128_si64(all));
    return static_cast<std::uint32_t>(pair | pair >> 32);
}

// Fills in the values of the block's samples; the two before them are read as well.
MORVA_AVX2 Key fill(const std::int32_t* samples, std::size_t count, Values& values) {
    __m256i changes[3] = {};
    for (std::size_t i = 0; i < count; i += kVector) {
        const __m256i here = load(samples + i, count - i);
        const __m256i last = load(samples + i - 1, count - i);
        const __m256i before = load(samples + i - 2, count - i);
        const __m256i difference = _mm256_sub_epi32(here, last);
        const __m256i of[3] = {here, difference,
                               _mm256_sub_epi32(difference, _mm256_sub_epi32(last, before))};
        for (int order = 0; order < 3; ++order) {
            _mm256_store_si256(reinterpret_cast<__m256i*>(values.of[order] + i), of[order]);
            changes[order] = _mm256_or_si256(
                changes[order],
                _mm256_xor_si256(of[order], _mm256_add_epi32(of[order], of[order])));
        }
    }
    const std::uint32_t all[3] = {any_of(changes[0]), any_of(changes[1]), any_of(changes[2])};
    return narrowest(all);
}

// Bits on their way to memory. Each store writes eight bytes, of which the last may be rewritten.
class BitStream {
  public:
    explicit BitStream(std::uint8_t* out) : out_(out) {}
    // The low `count` bits, 1 to 56, above which there are none.
    void put(std::uint64_t bits, unsigned count) {
        held_ += count;
        waiting_ |= bits << (64 - held_);
        store_big_endian(out_, waiting_);
        out_ += held_ / 8;
        waiting_ <<= held_ & ~7U;
        held_ &= 7;
    }
    std::uint8_t* finish() const { return out_ + (held_ > 0); }

  private:
    std::uint8_t* out_;
    std::uint64_t waiting_ = 0;  // from the top down
    unsigned held_ = 0;          // bits of it, below 8 between calls
};

// Values in pairs, each pair as bits one behind the other.
class Squeezer {
  public:
    explicit Squeezer(int width) : mask_(low_bits(width) * 0x100000001U) {}
    MORVA_AVX2 std::uint64_t pair(const std::uint32_t* values) const {
        std::uint64_t word;
        std::memcpy(&word, values, sizeof word);
        return _pext_u64(std::rotl(word, 32), mask_);
    }

  private:
    std::uint64_t mask_;
};

MORVA_AVX2 void put_values(const std::uint32_t* values, std::size_t count, int width,
                           BitStream& stream) {
    const Squeezer squeezer(width);
    const auto bits = static_cast<unsigned>(width);
    std::size_t i = 0;
    if (width <= kWidestQuad)
        for (; i + 4 <= count; i += 4)
            stream.put(squeezer.pair(values + i) << 2 * bits | squeezer.pair(values + i + 2),
                       4 * bits);
    else if (width <= kWidestPair)
        for (; i + 2 <= count; i += 2) stream.put(squeezer.pair(values + i), 2 * bits);
    for (; i < count; ++i) stream.put(values[i] & low_bits(width), bits);
}

class Avx2 {
  public:
    explicit Avx2(std::uint8_t* out) : stream_(out) {}
    MORVA_AVX2 static Key fill(const std::int32_t* samples, std::size_t count, Values& values) {
        return gen::fill(samples, count, values);
    }
    MORVA_AVX2 void put(const std::uint32_t* values, std::size_t count, int width) {
        put_values(values, count, width, stream_);
    }
    std::uint8_t* finish() const { return stream_.finish(); }

  private:
    BitStream stream_;
};

}  // namespace

MORVA_AVX2 std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_blocks(series, keys, Avx2(data));
}

}  // namespace morva::gen

#else

namespace morva::gen {

std::uint8_t* encode_avx2(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    return encode_plain(series, keys, data);
}

}  // namespace morva::gen

#endif
