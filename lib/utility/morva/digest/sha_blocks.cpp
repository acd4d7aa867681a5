#include <utility>

#include "digest/sha.hpp"

namespace morva::sha {
namespace {

template <std::size_t kRound>
std::uint32_t mixed(std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    if constexpr (kRound == 0) return d ^ (b & (c ^ d));
    if constexpr (kRound == 2) return (b & c) | (d & (b | c));
    return b ^ c ^ d;
}

// floor(2^30 times the square roots of 2, 3, 5 and 10)
constexpr std::uint32_t kRoots[] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

// The five words of the state turn by one place a step; the schedule overwrites the block's words.
template <std::size_t kStep>
[[gnu::always_inline]] inline void step(std::uint32_t (&state)[5], std::uint32_t (&words)[16]) {
    std::uint32_t& word = words[kStep % 16];
    if constexpr (kStep >= 16)
        word = std::rotl(
            words[(kStep + 13) % 16] ^ words[(kStep + 8) % 16] ^ words[(kStep + 2) % 16] ^ word, 1);
    const std::uint32_t a = state[(80 - kStep) % 5];
    std::uint32_t& b = state[(81 - kStep) % 5];
    const std::uint32_t c = state[(82 - kStep) % 5];
    const std::uint32_t d = state[(83 - kStep) % 5];
    std::uint32_t& e = state[(84 - kStep) % 5];
    e += word + kRoots[kStep / 20] + mixed<kStep / 20>(b, c, d) + std::rotl(a, 5);
    b = std::rotl(b, 30);
}

template <std::size_t... kSteps>
[[gnu::always_inline]] inline void all_steps(std::uint32_t (&state)[5], std::uint32_t (&words)[16],
                                             std::index_sequence<kSteps...>) {
    (step<kSteps>(state, words), ...);
}

}  // namespace

void add_words(std::uint32_t* state, const std::uint32_t* words) {
    std::uint32_t schedule[16];
    std::copy_n(words, 16, schedule);
    std::uint32_t now[5] = {state[0], state[1], state[2], state[3], state[4]};
    all_steps(now, schedule, std::make_index_sequence<80>());
    for (int i = 0; i < 5; ++i) state[i] += now[i];
}

void add_blocks_plain(std::uint32_t* state, const unsigned char* bytes, std::size_t blocks) {
    for (; blocks > 0; --blocks, bytes += kBlock) {
        std::uint32_t words[kBlock / 4];
        load_words<std::endian::big>(bytes, words);
        add_words(state, words);
    }
}

}  // namespace morva::sha
