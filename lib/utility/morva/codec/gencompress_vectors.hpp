// What the vector versions of the decoder share: the way through the blocks. A kernel unpacks and
// integrates the values of one block; it is compiled for its processors, and so is this, inlined.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codec/big_endian.hpp"
#include "codec/gencompress_decode.hpp"

namespace morva::gen {

inline constexpr std::size_t kLargest = kLargestBlock;
inline constexpr std::size_t kOverread = 64;  // bytes behind the values of a block that may be read
inline constexpr std::size_t kWidestNarrow = 25;  // fits, at any bit of a byte, into four bytes

// The packed values. What is left of them when a kernel would read behind their end is copied to
// where it may.
class PackedValues {
  public:
    PackedValues(const std::uint8_t* data, const std::uint8_t* end) : data_(data), end_(end) {}
    const std::uint8_t* data() const { return data_; }
    std::size_t start() const { return start_; }  // the bit of data()[0], from its top
    void make_readable(std::size_t bytes) {
        if (static_cast<std::size_t>(end_ - data_) >= bytes) return;
        std::memset(std::copy(data_, end_, tail_), 0, kBehind);
        data_ = tail_;
        end_ = tail_ + sizeof tail_;
    }
    void skip(std::size_t bits) {
        start_ += bits;
        data_ += start_ / 8;
        start_ %= 8;
    }

  private:
    const std::uint8_t* data_;
    const std::uint8_t* end_;
    std::size_t start_ = 0;
    // Read of the tail behind the values: what rounding up a block adds, and the rest of a vector.
    static constexpr std::size_t kBehind = 2 * kOverread;
    std::uint8_t tail_[2 * (4 * kLargest + kOverread)];
};

inline void unpack_wide(const std::uint8_t* data, std::size_t start, std::size_t width,
                        std::size_t count, std::int32_t* values) {
    for (std::size_t i = 0; i < count; ++i, start += width) {
        const auto word = load_big_endian<std::uint64_t>(data + start / 8) << start % 8;
        values[i] = static_cast<std::int32_t>(word >> 32) >> (32 - width);
    }
}

// A kernel has
//   kVector     the number of values in a vector: blocks are rounded up to it
//   unpack      from data, start bit, width (1 to 25) and count, to values
//   integrate   from order, values and count, to samples behind the two that are known
template <class Kernel>
[[gnu::always_inline]] inline void decode_blocks(const Source& source, std::int32_t* samples) {
    PackedValues packed(source.data, source.end);
    const std::size_t block_size = source.block, total = source.count;
    const std::uint8_t* key_at = source.keys;
    alignas(64) std::int32_t values[kLargest];
    samples[0] = source.first;
    for (std::size_t begin = 1; begin < total; begin += block_size) {
        const std::size_t count = std::min(block_size, total - begin);
        const std::size_t rounded =
            (count + Kernel::kVector - 1) / Kernel::kVector * Kernel::kVector;
        const Key key = key_of(*key_at++);
        const auto width = static_cast<std::size_t>(key.width);
        packed.make_readable(rounded * width / 8 + kOverread);
        if (width == 0)
            std::memset(values, 0, rounded * sizeof *values);
        else if (width <= kWidestNarrow)
            Kernel::unpack(packed.data(), packed.start(), width, count, values);
        else
            unpack_wide(packed.data(), packed.start(), width, count, values);
        packed.skip(width * count);
        if (begin > 1 && begin + rounded <= total) {
            Kernel::integrate(key.order, values, count, samples + begin);
            continue;
        }
        // The first sample has none before it, and the last vector would be stored behind the end.
        std::int32_t aside[2 + kLargest];
        aside[0] = samples[begin > 1 ? begin - 2 : 0];
        aside[1] = samples[begin - 1];
        Kernel::integrate(key.order, values, count, aside + 2);
        std::copy_n(aside + 2, count, samples + begin);
    }
}

}  // namespace morva::gen
