// The AVX2 version of the decoder. Every width fits, at any of its places in a group, into the four
// bytes around it: one shuffle and two shifts unpack a group. Running sums within vectors of four
// integrate it twice.
#include "codec/ucanada_decode.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/ccanada_code.hpp"

namespace morva::canada {

namespace {

constexpr std::size_t kVector = 16;  // bytes that are read for a group

// How the four values of a group come out of its bytes: which bytes make a lane, by how much they
// are shifted up to lose the bits before the value, and down to lose those behind it.
struct alignas(64) Unpacking {
    std::uint8_t bytes[kVector];
    std::uint32_t up[kGroup];
    std::uint32_t down[kGroup];
    std::size_t size;
};

// By flag and code, as they lie one above the other in four bits.
constexpr auto kUnpackings = [] {
    std::array<Unpacking, 16> rows{};
    for (unsigned flag = 0; flag < 2; ++flag)
        for (unsigned code = 0; code < 8; ++code) {
            Unpacking& row = rows[flag * 8 + code];
            row.size = group_size(flag, code);
            for (unsigned i = 0; i < kGroup; ++i) {
                const unsigned width = kWidths[flag][code], bit = i * width;
                for (unsigned byte = 0; byte < 4; ++byte)
                    row.bytes[4 * i + byte] = static_cast<std::uint8_t>(bit / 8 + 3 - byte);
                row.up[i] = bit % 8;
                row.down[i] = 32 - width;
            }
        }
    return rows;
}();

MORVA_AVX2 inline __m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

MORVA_AVX2 inline __m128i unpack(const std::uint8_t* data, const Unpacking& row) {
    const __m128i lanes = _mm_shuffle_epi8(load(data), load(row.bytes));
    return _mm_srav_epi32(_mm_sllv_epi32(lanes, load(row.up)), load(row.down));
}

MORVA_AVX2 inline __m128i running_sums(__m128i values) {
    values = _mm_add_epi32(values, _mm_slli_si128(values, 4));
    return _mm_add_epi32(values, _mm_slli_si128(values, 8));
}

MORVA_AVX2 inline __m128i last_of(__m128i values) {
    return _mm_shuffle_epi32(values, _MM_SHUFFLE(3, 3, 3, 3));
}

// The last difference and sample, in all lanes.
struct State {
    __m128i difference, sample;
};

MORVA_AVX2 inline const std::uint8_t* decode_block(unsigned key, const std::uint8_t* data,
                                                   State& state, std::int32_t* samples) {
    const unsigned flag = flag_of(key) * 8;
    for (std::size_t group = 0; group < kGroups; ++group) {
        const Unpacking& row = kUnpackings[flag + code_of(key, group)];
        const __m128i values = unpack(data, row);
        data += row.size;
        const __m128i differences = _mm_add_epi32(running_sums(values), state.difference);
        state.difference = last_of(differences);
        const __m128i sums = _mm_add_epi32(running_sums(differences), state.sample);
        state.sample = last_of(sums);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(samples + group * kGroup), sums);
    }
    return data;
}

}  // namespace

MORVA_AVX2 void decode_avx2(const Source& source, std::int32_t* samples) {
    // What is left of the data when vectors would read behind their end is copied in here.
    constexpr std::size_t kFarthest = kLargestBlock - kKeySize + kVector;
    std::uint8_t tail[2 * kFarthest] = {};
    const std::uint8_t* data = source.data;
    const std::uint8_t* end = source.end;
    State state{_mm_setzero_si128(), _mm_set1_epi32(source.first)};
    samples[0] = source.first;
    for (std::size_t block = 0; block < source.blocks; ++block) {
        if (static_cast<std::size_t>(end - data) < kFarthest) {
            std::copy(data, end, tail);
            data = tail;
            end = tail + sizeof tail;
        }
        const unsigned key = load_big_endian<std::uint16_t>(source.keys + block * kKeySize);
        data = decode_block(key, data, state, samples + 1 + block * kBlock);
    }
}

}  // namespace morva::canada

#else

namespace morva::canada {

void decode_avx2(const Source& source, std::int32_t* samples) {
    decode_plain(source, samples);
}

}  // namespace morva::canada

#endif
