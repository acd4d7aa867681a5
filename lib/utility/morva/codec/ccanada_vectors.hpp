// What the vector versions of the encoder share: the way through the blocks. A kernel encodes one
// block; it is compiled for its processors, and so is this, inlined.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "codec/ccanada_code.hpp"
#include "codec/ccanada_encode.hpp"

namespace morva::canada {

// Kernel::encode_block reads also the sample before the block and the one behind it, writes the key
// and up to sixteen bytes for each group, and returns the place behind the data.
template <class Kernel>
[[gnu::always_inline]] inline std::uint8_t* encode_blocks(const Series& series, std::uint8_t* keys,
                                                          std::uint8_t* data) {
    const std::int32_t* samples = series.samples;
    const std::size_t blocks = series.blocks;
    for (std::size_t block = 0; block < blocks; ++block, samples += kBlock, keys += kKeySize) {
        const bool is_first = block == 0, is_last = block + 1 == blocks;
        if (!is_first && !is_last) {
            data = Kernel::encode_block(samples, keys, data);
            continue;
        }
        std::int32_t framed[1 + kBlock + 1];
        framed[0] = is_first ? samples[0] : samples[-1];
        std::copy_n(samples, kBlock, framed + 1);
        framed[kBlock + 1] = is_last ? series.next : samples[kBlock];
        data = Kernel::encode_block(framed + 1, keys, data);
    }
    return data;
}

}  // namespace morva::canada
