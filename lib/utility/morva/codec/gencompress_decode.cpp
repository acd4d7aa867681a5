#include "codec/gencompress_decode.hpp"

#include <algorithm>

#include "base/simd.hpp"
#include "codec/bit_field.hpp"

namespace morva::gen {

namespace {

// Turns values of each order into samples, wrapping at 32 bits.
struct History {
    std::uint32_t last, before;
    std::int32_t next(unsigned order, std::int32_t value) {
        std::uint32_t sample = static_cast<std::uint32_t>(value);
        if (order == kDifferences) sample += last;
        if (order == kSecondDifferences) sample += 2 * last - before;
        before = last;
        last = sample;
        return static_cast<std::int32_t>(sample);
    }
};

}  // namespace

std::uint64_t data_size(const std::uint8_t* keys, std::size_t count, std::size_t block) {
    const std::size_t blocks = blocks_of(count, block);
    if (!std::all_of(keys, keys + blocks, is_key)) return kNoSize;
    std::uint64_t widths = 0;
    for (std::size_t i = 0; i + 1 < blocks; ++i)
        widths += static_cast<std::uint64_t>(key_of(keys[i]).width);
    const std::size_t in_last = count - 1 - (blocks - 1) * block;
    const auto last_width = static_cast<std::uint64_t>(key_of(keys[blocks - 1]).width);
    return (widths * block + last_width * in_last + 7) / 8;
}

std::size_t values_within(const std::uint8_t* keys, std::size_t count, std::size_t block,
                          std::size_t bytes) {
    const std::size_t total = count - 1;
    std::size_t values = 0, bits = 8 * bytes;
    for (; values < total && is_key(*keys); values += block) {
        const auto width = static_cast<std::size_t>(key_of(*keys++).width);
        const std::size_t in_block = std::min(block, total - values);
        if (in_block * width > bits) return values + bits / width;
        bits -= in_block * width;
    }
    return std::min(values, total);
}

void decode_plain(const Source& source, std::int32_t* samples) {
    History history{static_cast<std::uint32_t>(source.first),
                    static_cast<std::uint32_t>(source.first)};
    BitReader reader(source.data);
    samples[0] = source.first;
    const std::uint8_t* keys = source.keys;
    for (std::size_t begin = 1; begin < source.count; begin += source.block) {
        const std::size_t end = std::min(begin + source.block, source.count);
        const Key key = key_of(*keys++);
        for (std::size_t i = begin; i < end; ++i)
            samples[i] = history.next(key.order, reader.get(key.width));
    }
}

void decode(const Source& source, std::int32_t* samples) {
    if (may_use(Simd::kAvx512))
        decode_avx512(source, samples);
    else if (may_use(Simd::kAvx2))
        decode_avx2(source, samples);
    else
        decode_plain(source, samples);
}

}  // namespace morva::gen
