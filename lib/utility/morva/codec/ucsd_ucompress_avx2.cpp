// The AVX2 version of the expander: eight values at a time, whatever their class. Each value moves
// to the top of a lane and comes down with its sign; sums over the lanes make samples of them.
#include "codec/ucsd_ucompress.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"

namespace morva::ucsd {
namespace {

constexpr std::size_t kBlock = 8;
constexpr std::size_t kTogether = 2 * kBlock;  // values that are written together
constexpr std::size_t kSlack = 64;             // bytes behind a run that may be read

// How four values in 16 bytes become lanes.
struct Unpacking {
    std::array<std::uint8_t, 16> to_top;  // the three bytes from the first one of a value on
    std::int64_t half_byte;  // for each second value: how far it begins behind its first byte
    std::int32_t above;      // bits of a lane that are not the value's
    std::size_t size;        // bytes of the four
};

constexpr std::array<Unpacking, kClassCount> kUnpackings = [] {
    std::array<Unpacking, kClassCount> unpackings{};
    for (int index = 0; index < kClassCount; ++index) {
        const int bits = kClasses[index].bits;
        Unpacking& unpacking = unpackings[static_cast<std::size_t>(index)];
        unpacking.half_byte = std::int64_t{bits % 8} << 32;
        unpacking.above = 32 - bits;
        unpacking.size = static_cast<std::size_t>(bits) / 2;
        for (int value = 0; value < 4; ++value)
            for (int byte = 0; byte < 4; ++byte)
                unpacking.to_top[static_cast<std::size_t>(4 * value + 3 - byte)] =
                    static_cast<std::uint8_t>(byte < 3 ? value * bits / 8 + byte : 0x80);
    }
    return unpackings;
}();

// Running sums of eight numbers.
MORVA_AVX2 inline __m256i running_sums(__m256i numbers) {
    __m256i sums = _mm256_add_epi32(numbers, _mm256_slli_si256(numbers, 4));
    sums = _mm256_add_epi32(sums, _mm256_slli_si256(sums, 8));
    const __m256i low = _mm256_permute2x128_si256(sums, sums, 0x08);
    return _mm256_add_epi32(sums, _mm256_shuffle_epi32(low, 0xff));
}

// Expands a run in pairs of blocks, the last of which may reach behind it.
MORVA_AVX2 inline void expand_blocks(const std::uint8_t* bytes, const Run& run,
                                     std::int32_t* samples) {
    const std::uint8_t* values = bytes + run.values;
    const Unpacking& unpacking = kUnpackings[static_cast<std::size_t>(run.class_index)];
    const __m256i to_top = _mm256_broadcastsi128_si256(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(unpacking.to_top.data())));
    const __m256i half_byte = _mm256_set1_epi64x(unpacking.half_byte);
    const __m128i above = _mm_cvtsi32_si128(unpacking.above);
    const auto block = [&](const std::uint8_t* at) MORVA_AVX2 {
        const __m256i bytes = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + unpacking.size)), 1);
        const __m256i top = _mm256_sllv_epi32(_mm256_shuffle_epi8(bytes, to_top), half_byte);
        return _mm256_sra_epi32(top, above);
    };
    const auto store = [&](std::size_t i, __m256i eight) MORVA_AVX2 {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(samples + i), eight);
    };
    const std::size_t step = 2 * unpacking.size;
    if (run.class_index == kSampleClass) {
        for (std::size_t i = 0; i < run.count; i += kBlock, values += step) store(i, block(values));
        return;
    }
    const __m256i last = _mm256_set1_epi32(kBlock - 1);
    __m256i before = _mm256_set1_epi32(samples[-1]);
    for (std::size_t i = 0; i < run.count; i += kTogether, values += 2 * step) {
        const __m256i low = running_sums(block(values));
        const __m256i high = running_sums(block(values + step));
        const __m256i middle = _mm256_sub_epi32(before, _mm256_permutevar8x32_epi32(low, last));
        store(i, _mm256_sub_epi32(before, low));
        store(i + kBlock, _mm256_sub_epi32(middle, high));
        before = _mm256_sub_epi32(middle, _mm256_permutevar8x32_epi32(high, last));
    }
}

}  // namespace

MORVA_AVX2 Expanded expand_avx2(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                                std::size_t count) {
    return expand_runs(bytes, size, samples, count, kTogether, kSlack, expand_blocks);
}

}  // namespace morva::ucsd

#else

namespace morva::ucsd {

Expanded expand_avx2(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                     std::size_t count) {
    return expand_plain(bytes, size, samples, count);
}

}  // namespace morva::ucsd

#endif
