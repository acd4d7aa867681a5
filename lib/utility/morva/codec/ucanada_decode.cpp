#include "codec/ucanada_decode.hpp"

#include <algorithm>

#include "base/simd.hpp"
#include "codec/big_endian.hpp"
#include "codec/bit_field.hpp"
#include "codec/ccanada_code.hpp"

namespace morva::canada {

namespace {

// The double integration that turns second differences into samples, wrapping at 32 bits.
struct Integrator {
    std::uint32_t sample, difference;
    std::int32_t next(std::int32_t second_difference) {
        difference += static_cast<std::uint32_t>(second_difference);
        sample += difference;
        return static_cast<std::int32_t>(sample);
    }
};

// Reads a block with the given key and writes the 20 samples behind the last one known. Returns the
// place behind its data.
const std::uint8_t* decode_block(unsigned key, const std::uint8_t* data, Integrator& integrator,
                                 std::int32_t* samples) {
    BitReader values(data);
    for (std::size_t group = 0; group < kGroups; ++group) {
        const int width = kWidths[flag_of(key)][code_of(key, group)];
        for (std::size_t i = 0; i < kGroup; ++i) *samples++ = integrator.next(values.get(width));
    }
    return data + block_size(key);
}

}  // namespace

std::size_t data_size(const std::uint8_t* keys, std::size_t blocks) {
    std::size_t size = 0;
    for (std::size_t block = 0; block < blocks; ++block)
        size += block_size(load_big_endian<std::uint16_t>(keys + block * kKeySize));
    return size;
}

void decode_plain(const Source& source, std::int32_t* samples) {
    Integrator integrator{static_cast<std::uint32_t>(source.first), 0};
    const std::uint8_t* data = source.data;
    samples[0] = source.first;
    for (std::size_t block = 0; block < source.blocks; ++block) {
        const unsigned key = load_big_endian<std::uint16_t>(source.keys + block * kKeySize);
        data = decode_block(key, data, integrator, samples + 1 + block * kBlock);
    }
}

std::size_t values_within(unsigned key, std::size_t bytes) {
    std::size_t group = 0;
    for (; bytes >= group_size(flag_of(key), code_of(key, group)); ++group)
        bytes -= group_size(flag_of(key), code_of(key, group));
    return group * kGroup + 8 * bytes / kWidths[flag_of(key)][code_of(key, group)];
}

void decode_cut_block(unsigned key, std::span<const std::uint8_t> data, std::int32_t* samples,
                      std::size_t last) {
    std::uint8_t padded[kLargestBlock] = {};
    std::copy(data.begin(), data.end(), padded);
    const auto sample = static_cast<std::uint32_t>(samples[last]);
    Integrator integrator{sample,
                          last > 0 ? sample - static_cast<std::uint32_t>(samples[last - 1]) : 0};
    std::int32_t decoded[kBlock];
    decode_block(key, padded, integrator, decoded);
    std::copy_n(decoded, values_within(key, data.size()), samples + last + 1);
}

void decode(const Source& source, std::int32_t* samples) {
    may_use(Simd::kAvx2) ? decode_avx2(source, samples) : decode_plain(source, samples);
}

}  // namespace morva::canada
