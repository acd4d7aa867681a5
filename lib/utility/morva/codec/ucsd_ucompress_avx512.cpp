// The AVX-512 version of the expander: as the AVX2 version, but sixteen values at a time.
#include "codec/ucsd_ucompress.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>

#include "base/simd.hpp"

namespace morva::ucsd {
namespace {

constexpr std::size_t kBlock = 16;
constexpr std::size_t kTogether = 2 * kBlock;  // values that are written together
constexpr std::size_t kSlack = 3 * 64;         // bytes behind a run that may be read

// How the values at the front of 64 bytes become lanes.
struct Unpacking {
    std::array<std::uint8_t, 64> to_top;  // the four bytes from the first one of a value on
    std::int64_t half_byte;               // how far each second value begins behind that byte
    std::int32_t above;                   // bits of a lane that are not the value's
    std::size_t size;                     // bytes of sixteen values
};

constexpr std::array<Unpacking, kClassCount> kUnpackings = [] {
    std::array<Unpacking, kClassCount> unpackings{};
    for (int index = 0; index < kClassCount; ++index) {
        const int bits = kClasses[index].bits;
        Unpacking& unpacking = unpackings[static_cast<std::size_t>(index)];
        unpacking.half_byte = std::int64_t{bits % 8} << 32;
        unpacking.above = 32 - bits;
        unpacking.size = run_size(index, kBlock);
        for (int i = 0; i < 64; ++i)
            unpacking.to_top[static_cast<std::size_t>(i)] =
                static_cast<std::uint8_t>(i / 4 * bits / 8 + 3 - i % 4);
    }
    return unpackings;
}();

MORVA_AVX512 inline __m512i running_sums(__m512i numbers) {
    const __m512i zero = _mm512_setzero_si512();
    __m512i sums = _mm512_add_epi32(numbers, _mm512_alignr_epi32(numbers, zero, 15));
    sums = _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 14));
    sums = _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 12));
    return _mm512_add_epi32(sums, _mm512_alignr_epi32(sums, zero, 8));
}

// Expands a run in pairs of blocks, the last of which may reach behind it.
MORVA_AVX512 inline void expand_blocks(const std::uint8_t* bytes, const Run& run,
                                       std::int32_t* samples) {
    const std::uint8_t* values = bytes + run.values;
    const Unpacking& unpacking = kUnpackings[static_cast<std::size_t>(run.class_index)];
    const __m512i to_top = _mm512_loadu_si512(unpacking.to_top.data());
    const __m512i half_byte = _mm512_set1_epi64(unpacking.half_byte);
    const __m128i above = _mm_cvtsi32_si128(unpacking.above);
    const auto block = [&](const std::uint8_t* at) MORVA_AVX512 {
        const __m512i top = _mm512_permutexvar_epi8(to_top, _mm512_loadu_si512(at));
        return _mm512_sra_epi32(_mm512_sllv_epi32(top, half_byte), above);
    };
    const std::size_t step = unpacking.size;
    if (run.class_index == kSampleClass) {
        for (std::size_t i = 0; i < run.count; i += kBlock, values += step)
            _mm512_storeu_si512(samples + i, block(values));
        return;
    }
    const __m512i last = _mm512_set1_epi32(kBlock - 1);
    __m512i before = _mm512_set1_epi32(samples[-1]);
    for (std::size_t i = 0; i < run.count; i += kTogether, values += 2 * step) {
        const __m512i low = running_sums(block(values));
        const __m512i high = running_sums(block(values + step));
        const __m512i middle = _mm512_sub_epi32(before, _mm512_permutexvar_epi32(last, low));
        _mm512_storeu_si512(samples + i, _mm512_sub_epi32(before, low));
        _mm512_storeu_si512(samples + i + kBlock, _mm512_sub_epi32(middle, high));
        before = _mm512_sub_epi32(middle, _mm512_permutexvar_epi32(last, high));
    }
}

}  // namespace

MORVA_AVX512 Expanded expand_avx512(const std::uint8_t* bytes, std::size_t size,
                                    std::int32_t* samples, std::size_t count) {
    return expand_runs(bytes, size, samples, count, kTogether, kSlack, expand_blocks);
}

}  // namespace morva::ucsd

#else

namespace morva::ucsd {

Expanded expand_avx512(const std::uint8_t* bytes, std::size_t size, std::int32_t* samples,
                       std::size_t count) {
    return expand_plain(bytes, size, samples, count);
}

}  // namespace morva::ucsd

#endif
