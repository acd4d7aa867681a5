// ucanada_anyway: what is left of damaged Canadian data. A group is as long as its key says, so the
// values before the end of the bytes are known to be whole, down to a single one.
#include <algorithm>
#include <iterator>

#include "base/diagnostics.hpp"
#include "codec/big_endian.hpp"
#include "codec/ccanada_code.hpp"
#include "codec/growable.hpp"
#include "codec/ucanada_decode.hpp"
#include "morva/ccanada.h"

using namespace morva;
using namespace morva::canada;

namespace {

constexpr const char* kReasons[] = {"good", "no multiple of 20 samples fits",
                                    "too few bytes for the keys", "bytes behind the data"};

unsigned key_at(const std::uint8_t* compressed, std::size_t block) {
    return load_big_endian<std::uint16_t>(compressed + block * kKeySize);
}

// The only number of blocks that can fill the bytes: one more is longer by twelve bytes at least.
// -1 when none does.
int blocks_that_fit(const std::uint8_t* compressed, std::size_t size) {
    std::size_t blocks = 0, used = kFirstSample;
    while (used + kSmallestBlock <= size)
        used += kKeySize + block_size(key_at(compressed, blocks++));
    return used <= size && size - used <= kSpareBytes ? static_cast<int>(blocks) : -1;
}

// What the bytes hold of a number of blocks.
struct Held {
    std::size_t blocks;  // whole ones
    std::size_t values;  // of the block that is cut
    std::size_t left;    // bytes of that block, or behind the last one
};

Held held_in(const std::uint8_t* compressed, std::size_t size, std::size_t blocks) {
    Held held{0, 0, size - blocks * kKeySize - kFirstSample};
    for (; held.blocks < blocks; ++held.blocks) {
        const unsigned key = key_at(compressed, held.blocks);
        if (held.left < block_size(key)) {
            held.values = values_within(key, held.left);
            break;
        }
        held.left -= block_size(key);
    }
    return held;
}

void decode_held(const std::uint8_t* compressed, std::size_t size, std::size_t blocks,
                 const Held& held, std::int32_t* samples) {
    const std::uint8_t* const first = compressed + blocks * kKeySize;
    decode({compressed, first + kFirstSample, compressed + size, held.blocks,
            static_cast<std::int32_t>(load_big_endian<std::uint32_t>(first))},
           samples);
    if (held.values > 0)
        decode_cut_block(key_at(compressed, held.blocks),
                         {compressed + size - held.left, held.left}, samples, held.blocks * kBlock);
}

}  // namespace

extern "C" {

int ucanada_anyway(const unsigned char* compressed, int nbytes, int32_t** buffer, int* nsamp,
                   int* buffer_size, int* fault) {
    if (compressed == nullptr || nbytes < 0) {
        elog_log(0, "ucanada_anyway: no data: %d bytes\n", nbytes);
        return -1;
    }
    constexpr int kBlockSamples = kBlock;
    const auto size = static_cast<std::size_t>(nbytes);
    const int asked = *nsamp > 0 ? *nsamp / kBlockSamples : blocks_that_fit(compressed, size);
    const bool fits = asked >= 0 && (*nsamp <= 0 || *nsamp % kBlockSamples == 0);
    const auto blocks = static_cast<std::size_t>(std::max(asked, 0));
    if (asked < 0 || blocks * kKeySize + kFirstSample > size) {
        *fault = fits ? UCANADA_CUT : UCANADA_BAD_COUNT;
        return *nsamp = 0;
    }
    const Held held = held_in(compressed, size, blocks);
    const bool cut = held.blocks < blocks;
    // The sample behind a whole series does not count; the first one of a cut series does.
    const std::size_t samples = held.blocks * kBlock + held.values + (cut ? 1 : 0);
    if (!grow_buffer(buffer, buffer_size, static_cast<std::int64_t>(4 * samples + 4),
                     "ucanada_anyway: malloc() error.\n", "ucanada_anyway: realloc() error.\n"))
        return -1;
    decode_held(compressed, size, blocks, held, *buffer);
    *fault = !fits                     ? UCANADA_BAD_COUNT
             : cut                     ? UCANADA_CUT
             : held.left > kSpareBytes ? UCANADA_SPARE_BYTES
                                       : UCANADA_GOOD;
    return *nsamp = static_cast<int>(samples);
}

const char* ucanada_reason(int fault) {
    return fault >= 0 && fault < static_cast<int>(std::size(kReasons)) ? kReasons[fault]
                                                                       : "unknown fault";
}

}  // extern "C"
