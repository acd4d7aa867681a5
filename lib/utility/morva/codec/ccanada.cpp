// ccanada and ucanada: Canadian compression, second differences in groups of four of one width.
//
// This file settles arguments and buffers; ccanada_encode and ucanada_decode do the work on values.
// What the data need is known from the keys alone, so everything is checked before it is decoded.
#include "morva/ccanada.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/diagnostics.hpp"
#include "codec/big_endian.hpp"
#include "codec/ccanada_code.hpp"
#include "codec/ccanada_encode.hpp"
#include "codec/growable.hpp"
#include "codec/ucanada_decode.hpp"

using namespace morva;
using namespace morva::canada;

namespace {

constexpr int kShortestInput = 6;

// Costs in bits, by flag, that the estimate of an unknown number of samples charges for a group.
// They are coarse, and kept so: what other programs make of the same bytes depends on them.
constexpr int kGroupCost[2] = {128, 72};
constexpr int kBlockCost = 16;

// Never reads behind the bytes: a block costs far more than the two bytes of its key.
std::size_t estimated_blocks(const std::uint8_t* compressed, std::size_t size) {
    auto budget = static_cast<std::int64_t>(size) * 8 - 48;
    for (std::size_t blocks = 0;; ++blocks) {
        const unsigned key = load_big_endian<std::uint16_t>(compressed + blocks * kKeySize);
        budget -= static_cast<std::int64_t>(kGroups) * kGroupCost[flag_of(key)];
        if (budget < 0) return blocks;
        budget -= kBlockCost;
    }
}

// Key area, first sample and data must fill `size` bytes but for a few: why not, null when they do.
const char* misfit_of(const std::uint8_t* compressed, std::size_t size, std::size_t blocks) {
    constexpr const char* kTooSmall = "ucanada: Illegal input data: compressed buffer too small.\n";
    constexpr const char* kTooBig = "ucanada: Illegal input data: compressed buffer too big.\n";
    if (blocks * kSmallestBlock + kFirstSample > size) return kTooSmall;
    const std::size_t used = blocks * kKeySize + kFirstSample + data_size(compressed, blocks);
    if (used > size) return kTooSmall;
    return used + kSpareBytes < size ? kTooBig : nullptr;
}

// Where a bit goes: a byte and, from 7 for its top bit, a place in it.
void put_bit(unsigned char* buffer, int* byte_index, int* bit_position, bool set) {
    const auto bit = static_cast<unsigned char>(1U << *bit_position);
    unsigned char& byte = buffer[*byte_index];
    byte = static_cast<unsigned char>(set ? byte | bit : byte & ~bit);
    if ((*bit_position)-- == 0) {
        *bit_position = 7;
        ++*byte_index;
    }
}

}  // namespace

extern "C" {

int ccanada(const int32_t* samples, int nsamp, unsigned char** buffer, int* nbytes,
            int* buffer_size) {
    constexpr int kBlockSamples = kBlock;
    if (nsamp < 0 || nsamp % kBlockSamples > 1) {
        elog_log(0, "ccanada: nsamp not a multiple of 20.\n");
        return -1;
    }
    const bool has_next = nsamp % kBlockSamples == 1;
    const auto count = static_cast<std::size_t>(has_next ? nsamp - 1 : nsamp);
    const Series series = {samples, count / kBlock, has_next ? samples[count] : INT32_MIN};
    const std::size_t capacity = series.blocks * kLargestBlock + kFirstSample;
    if (!grow_buffer(buffer, buffer_size, static_cast<std::int64_t>(capacity),
                     "ccanada: malloc() error.\n", "ccanada: realloc() error.\n"))
        return -1;
    std::uint8_t* const start = *buffer;
    std::uint8_t* const first = start + series.blocks * kKeySize;
    store_big_endian(first, nsamp > 0 ? static_cast<std::uint32_t>(samples[0]) : 0);
    std::uint8_t* const end = encode(series, start, first + kFirstSample);
    std::memset(end, 0, static_cast<std::size_t>(start + capacity - end));
    *nbytes = static_cast<int>(end - start);
    return 0;
}

int ucanada(const unsigned char* compressed, int nbytes, int32_t** buffer, int* nsamp,
            int* buffer_size) {
    if (compressed == nullptr || nbytes < kShortestInput) {
        elog_log(0, "ucanada: Illegal input data: compressed buffer too small\n");
        return -1;
    }
    const auto size = static_cast<std::size_t>(nbytes);
    if (*nsamp > 0 && *nsamp % static_cast<int>(kBlock) != 0) {
        elog_log(0, "ucanada: nsamp not a multiple of 20.\n");
        return -1;
    }
    const std::size_t blocks =
        *nsamp > 0 ? static_cast<std::size_t>(*nsamp) / kBlock : estimated_blocks(compressed, size);
    if (blocks == 0) return *nsamp = 0;
    if (const char* misfit = misfit_of(compressed, size, blocks); misfit != nullptr) {
        elog_log(0, "%s", misfit);
        return -1;
    }
    const std::size_t samples = blocks * kBlock;
    if (!grow_buffer(buffer, buffer_size, static_cast<std::int64_t>(4 * samples + 4),
                     "ucanada: malloc() error.\n", "ucanada: realloc() error.\n"))
        return -1;
    const std::uint8_t* const first = compressed + blocks * kKeySize;
    decode({compressed, first + kFirstSample, compressed + size, blocks,
            static_cast<std::int32_t>(load_big_endian<std::uint32_t>(first))},
           *buffer);
    *nsamp = static_cast<int>(samples);
    return 0;
}

void cc_bitpack(unsigned char* buffer, int* byte_index, int* bit_position, int nbits, int value) {
    for (int bit = std::min(nbits, 32); bit-- > 0;)
        put_bit(buffer, byte_index, bit_position,
                (static_cast<std::uint32_t>(value) >> bit & 1) != 0);
}

}  // extern "C"
