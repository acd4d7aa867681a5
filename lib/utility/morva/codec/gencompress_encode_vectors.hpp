// What the vector versions of the encoder share: the way through the blocks. A kernel finds the key
// of a block and writes its values; it is compiled for its processors, and so is this, inlined.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "codec/gencompress_encode.hpp"

namespace morva::gen {

// The values of a block, by order.
struct alignas(64) Values {
    std::uint32_t of[3][kLargestBlock];
};

// A kernel has
//   fill        from the samples of a block, of which the two before them are read as well, and
//               count, to values and the key
//   put         appends count values of a width above 0
//   finish      returns the place behind the last value
template <class Kernel>
[[gnu::always_inline]] inline std::uint8_t* encode_blocks(const Series& series, std::uint8_t* keys,
                                                          Kernel kernel) {
    Values values = {};
    std::int32_t framed[2 + kLargestBlock];  // the first block, with a sample more before it
    framed[0] = series.samples[0];
    std::copy_n(series.samples, std::min(series.block + 1, series.count), framed + 1);
    for (std::size_t begin = 1; begin < series.count; begin += series.block) {
        const std::size_t count = std::min(series.block, series.count - begin);
        const Key key =
            Kernel::fill(begin == 1 ? framed + 2 : series.samples + begin, count, values);
        *keys++ = key_byte(key);
        if (key.width > 0) kernel.put(values.of[key.order], count, key.width);
    }
    return kernel.finish();
}

}  // namespace morva::gen
