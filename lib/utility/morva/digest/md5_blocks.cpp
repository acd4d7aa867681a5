#include "digest/md5.hpp"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace morva::md5 {
namespace {

// floor(2^32 |sin(step + 1)|)
constexpr std::array<std::uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

struct Round {
    int shifts[4];
    std::size_t word_step, first_word;  // the words of the block are taken in steps, modulo 16
};
constexpr Round kRounds[] = {{{7, 12, 17, 22}, 1, 0},
                             {{5, 9, 14, 20}, 5, 1},
                             {{4, 11, 16, 23}, 3, 5},
                             {{6, 10, 15, 21}, 7, 0}};

template <std::size_t kRound>
std::uint32_t mixed(std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    if constexpr (kRound == 0) return d ^ (b & (c ^ d));
    if constexpr (kRound == 1) return (c & ~d) + (b & d);
    if constexpr (kRound == 2) return b ^ c ^ d;
    return c ^ (b | ~d);
}

// The four words of the state turn by one place a step: a, b, c and d are never moved.
template <std::size_t kStep>
[[gnu::always_inline]] inline void step(std::uint32_t (&state)[4], const std::uint32_t* words) {
    constexpr std::size_t kRound = kStep / 16;
    constexpr Round kPlan = kRounds[kRound];
    std::uint32_t& a = state[(64 - kStep) % 4];
    const std::uint32_t b = state[(65 - kStep) % 4];
    const std::uint32_t c = state[(66 - kStep) % 4];
    const std::uint32_t d = state[(67 - kStep) % 4];
    a += words[(kPlan.first_word + kPlan.word_step * kStep) % 16] + kSines[kStep];
    a += mixed<kRound>(b, c, d);
    a = b + std::rotl(a, kPlan.shifts[kStep % 4]);
}

template <std::size_t... kSteps>
[[gnu::always_inline]] inline void all_steps(std::uint32_t (&state)[4], const std::uint32_t* words,
                                             std::index_sequence<kSteps...>) {
    (step<kSteps>(state, words), ...);
}

}  // namespace

void add_blocks(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks) {
    for (; blocks > 0; --blocks, bytes += kBlock) {
        std::uint32_t words[kBlock / 4];
        load_words<std::endian::little>(bytes, words);
        std::uint32_t now[4] = {state[0], state[1], state[2], state[3]};
        all_steps(now, words, std::make_index_sequence<64>());
        for (int i = 0; i < 4; ++i) state[i] += now[i];
    }
}

}  // namespace morva::md5
