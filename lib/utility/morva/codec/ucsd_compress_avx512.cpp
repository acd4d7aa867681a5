// The kernel of the compressor for AVX-512: sixteen at a time.
#include "codec/ucsd_compress.hpp"

#ifdef __x86_64__

#include "codec/ucsd_compress_vectors.hpp"

namespace morva::ucsd {
namespace {

constexpr std::size_t kBlock = 16;

// How sixteen values of a class become bytes.
struct Packing {
    std::array<std::uint8_t, 64> last_first;  // moves the bytes of all pairs of values together
    std::uint32_t mask;                       // the bits of a value
    int bits;
    std::size_t size;  // bytes of sixteen values
};

constexpr std::array<Packing, kClassCount> kPackings = [] {
    std::array<Packing, kClassCount> packings{};
    for (int index = 0; index < kClassCount; ++index) {
        const int bits = kClasses[index].bits, pair = 2 * bits / 8;
        Packing& packing = packings[static_cast<std::size_t>(index)];
        packing = {{}, (1u << bits) - 1, bits, run_size(index, kBlock)};
        for (int i = 0; i < 8 * pair; ++i)
            packing.last_first[static_cast<std::size_t>(i)] =
                static_cast<std::uint8_t>(i / pair * 8 + pair - 1 - i % pair);
    }
    return packings;
}();

MORVA_AVX512 inline __m512i load(const std::int32_t* samples) {
    return _mm512_loadu_si512(samples);
}

class Kernel {
  public:
    MORVA_AVX512 Kernel() : all_(_mm512_setzero_si512()) {}

    MORVA_AVX512 void narrow(const std::int32_t* samples, std::uint64_t* narrow) {
        __m512i sizes[kWord / kBlock];  // numbers of the same class that are not negative
        for (std::size_t i = 0; i < kWord / kBlock; ++i) {
            const __m512i difference =
                _mm512_sub_epi32(load(samples + i * kBlock - 1), load(samples + i * kBlock));
            sizes[i] = _mm512_xor_si512(difference, _mm512_srai_epi32(difference, 31));
            all_ = _mm512_or_si512(all_, sizes[i]);
        }
        for (int index = 0; index < kSampleClass; ++index) {
            const __m512i limit = _mm512_set1_epi32(1 << (kClasses[index].bits - 1));
            const auto fits = [&](std::size_t i) MORVA_AVX512 {
                return std::uint64_t{_mm512_cmplt_epi32_mask(sizes[i], limit)} << i * kBlock;
            };
            narrow[index] = fits(0) | fits(1) | fits(2) | fits(3);
        }
    }

    MORVA_AVX512 bool too_steep() const {
        return _mm512_test_epi32_mask(
                   all_, _mm512_set1_epi32(~((1 << (bits_of(kSampleClass) - 1)) - 1))) != 0;
    }

    // In pairs of blocks, of which the last may reach behind the run.
    MORVA_AVX512 static void pack(const std::int32_t* samples, std::size_t count, int class_index,
                                  std::uint8_t* out) {
        const Packing& packing = kPackings[static_cast<std::size_t>(class_index)];
        const __m512i last_first = _mm512_loadu_si512(packing.last_first.data());
        const __m512i mask = _mm512_set1_epi32(static_cast<std::int32_t>(packing.mask));
        const __m128i bits = _mm_cvtsi32_si128(packing.bits);
        const __mmask16 minus = class_index == kSampleClass ? 0 : 0xFFFF;
        const auto pack_block = [&](const std::int32_t* block, std::uint8_t* to) MORVA_AVX512 {
            const __m512i here = load(block);
            const __m512i values =
                _mm512_and_si512(_mm512_mask_sub_epi32(here, minus, load(block - 1), here), mask);
            const __m512i pairs =
                _mm512_or_si512(_mm512_sll_epi64(values, bits), _mm512_srli_epi64(values, 32));
            _mm512_storeu_si512(to, _mm512_permutexvar_epi8(last_first, pairs));
        };
        std::size_t i = 0;
        do {
            pack_block(samples + i, out);
            pack_block(samples + i + kBlock, out + packing.size);
            out += 2 * packing.size;
        } while ((i += 2 * kBlock) < count);
    }

  private:
    __m512i all_;  // all sizes or'ed together
};

}  // namespace

MORVA_AVX512 Compressed compress_avx512(const std::int32_t* samples, std::size_t count, Rule rule,
                                        std::uint8_t* out) {
    return compress_with<Kernel>(samples, count, rule, out);
}

}  // namespace morva::ucsd

#else

namespace morva::ucsd {

Compressed compress_avx512(const std::int32_t* samples, std::size_t count, Rule rule,
                           std::uint8_t* out) {
    return compress_plain(samples, count, rule, out);
}

}  // namespace morva::ucsd

#endif
