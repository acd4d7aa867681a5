// Numbers in bytes, most significant byte first.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

namespace morva {

static_assert(std::endian::native == std::endian::little);

template <std::unsigned_integral Word>
Word swap_bytes(Word word) {
    if constexpr (sizeof word == 2) return __builtin_bswap16(word);
    if constexpr (sizeof word == 4) return __builtin_bswap32(word);
    if constexpr (sizeof word == 8) return __builtin_bswap64(word);
}

template <std::unsigned_integral Word>
Word load_big_endian(const std::uint8_t* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return swap_bytes(word);
}

template <std::unsigned_integral Word>
void store_big_endian(std::uint8_t* bytes, Word word) {
    word = swap_bytes(word);
    std::memcpy(bytes, &word, sizeof word);
}

}  // namespace morva
