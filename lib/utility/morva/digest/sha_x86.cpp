// SHA-1 by the instructions made for it: four steps at a time.
#include <utility>

#include "digest/sha.hpp"

#ifdef __x86_64__
#include <cpuid.h>

#include "digest/x86.hpp"
#endif

namespace morva::sha {

constinit AddBlocks g_add_blocks = add_blocks_plain;

#ifdef __x86_64__
namespace {

#define MORVA_SHA __attribute__((target("sha,ssse3,sse4.1")))

// Four words of the state, and the fifth as the top lane of another register.
struct State {
    __m128i abcd, e;
};

// Steps 4 kQuad to 4 kQuad + 3, with the words of the schedule for them in w[kQuad % 4]. The words
// that come 16 steps later are made in the same register, as far as its neighbours are ready.
template <int kQuad>
MORVA_SHA inline void four_steps(State& now, __m128i (&w)[4]) {
    if constexpr (kQuad >= 4) {
        __m128i& word = w[kQuad % 4];
        word = _mm_xor_si128(_mm_sha1msg1_epu32(word, w[(kQuad + 1) % 4]), w[(kQuad + 2) % 4]);
        word = _mm_sha1msg2_epu32(word, w[(kQuad + 3) % 4]);
    }
    const __m128i before = now.abcd;
    const __m128i with_e =
        kQuad == 0 ? _mm_add_epi32(now.e, w[0]) : _mm_sha1nexte_epu32(now.e, w[kQuad % 4]);
    now.abcd = _mm_sha1rnds4_epu32(now.abcd, with_e, kQuad / 5);
    now.e = before;
}

template <int... kQuads>
MORVA_SHA inline void all_steps(State& now, __m128i (&w)[4],
                                std::integer_sequence<int, kQuads...>) {
    (four_steps<kQuads>(now, w), ...);
}

MORVA_SHA void add_blocks_sha(std::uint32_t* state, const unsigned char* bytes,
                              std::size_t blocks) {
    const __m128i big_endian = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    auto* const first = reinterpret_cast<__m128i*>(state);
    // The instructions want the first word in the highest lane.
    State all = {_mm_shuffle_epi32(_mm_loadu_si128(first), 0x1b),
                 _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0)};
    for (; blocks > 0; --blocks, bytes += kBlock) {
        __m128i w[4];
        for (int i = 0; i < 4; ++i)
            w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes) + i),
                                    big_endian);
        State now = all;
        all_steps(now, w, std::make_integer_sequence<int, 20>());
        all.e = _mm_sha1nexte_epu32(now.e, all.e);
        all.abcd = _mm_add_epi32(now.abcd, all.abcd);
    }
    _mm_storeu_si128(first, _mm_shuffle_epi32(all.abcd, 0x1b));
    state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(all.e, 3));
}

[[gnu::constructor]] void choose() {
    if (AddBlocks faster = add_blocks_x86()) g_add_blocks = faster;
}

}  // namespace

AddBlocks add_blocks_x86() {
    // The compiler's own list of features leaves this one out.
    unsigned a, b, c, d;
    const bool runs = __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_SHA) != 0;
    return runs ? add_blocks_sha : nullptr;
}

#else

AddBlocks add_blocks_x86() {
    return nullptr;
}

#endif

}  // namespace morva::sha
