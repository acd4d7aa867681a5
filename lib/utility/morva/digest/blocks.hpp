// What MD5 and SHA-1 share: blocks of 64 bytes, a buffer for the rest, and the bits at the end.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace morva {

constexpr std::size_t kBlock = 64;

template <std::endian kOrder>
std::uint32_t in_order(std::uint32_t word) {
    return kOrder == std::endian::native ? word : __builtin_bswap32(word);
}

// The bytes of a block as the words of an algorithm, and back.
template <std::endian kOrder>
void load_words(const unsigned char* bytes, std::uint32_t (&words)[kBlock / 4]) {
    std::memcpy(words, bytes, kBlock);
    for (std::uint32_t& word : words) word = in_order<kOrder>(word);
}

template <std::endian kOrder, std::size_t kWords>
void store_words(const std::uint32_t (&words)[kWords], unsigned char* bytes) {
    for (std::size_t i = 0; i < kWords; ++i) {
        const std::uint32_t word = in_order<kOrder>(words[i]);
        std::memcpy(bytes + i * sizeof word, &word, sizeof word);
    }
}

// Takes bytes into a context: its state, count (of bits, low word first) and buffer.
// `add_blocks(state, bytes, number of blocks)` is the algorithm.
template <class Context, class AddBlocks>
void take(Context& context, const unsigned char* bytes, std::size_t n, AddBlocks add_blocks) {
    std::uint64_t bits = context.count[0] | std::uint64_t{context.count[1]} << 32;
    const std::size_t held = bits / 8 % kBlock;
    bits += std::uint64_t{n} * 8;
    context.count[0] = static_cast<std::uint32_t>(bits);
    context.count[1] = static_cast<std::uint32_t>(bits >> 32);
    if (held > 0) {
        const std::size_t part = std::min(n, kBlock - held);
        std::memcpy(context.buffer + held, bytes, part);
        if (held + part < kBlock) return;
        add_blocks(context.state, context.buffer, 1);
        bytes += part;
        n -= part;
    }
    add_blocks(context.state, bytes, n / kBlock);
    if (n % kBlock > 0) std::memcpy(context.buffer, bytes + n / kBlock * kBlock, n % kBlock);
}

// Ends the bytes: a set bit, zeros, and the count of bits as the last 64 of a block.
template <std::endian kOrder, class Context, class AddBlocks>
void pad(Context& context, AddBlocks add_blocks) {
    constexpr std::size_t kRoom = kBlock - sizeof(std::uint64_t);
    const std::uint64_t bits = context.count[0] | std::uint64_t{context.count[1]} << 32;
    std::size_t held = bits / 8 % kBlock;
    context.buffer[held++] = 0x80;
    std::memset(context.buffer + held, 0, kBlock - held);
    if (held > kRoom) {
        add_blocks(context.state, context.buffer, 1);
        std::memset(context.buffer, 0, kRoom);
    }
    const std::uint64_t count = kOrder == std::endian::native ? bits : __builtin_bswap64(bits);
    std::memcpy(context.buffer + kRoom, &count, sizeof count);
    add_blocks(context.state, context.buffer, 1);
}

}  // namespace morva
