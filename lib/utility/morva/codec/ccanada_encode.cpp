#include "codec/ccanada_encode.hpp"

#include <bit>

#include "base/simd.hpp"
#include "codec/bit_field.hpp"
#include "codec/ccanada_code.hpp"

namespace morva::canada {

namespace {

int bits_of_group(const std::uint32_t* values) {
    std::uint32_t all = 0;
    for (std::size_t i = 0; i < kGroup; ++i) all |= changes_of(values[i]);
    return std::bit_width(all);
}

// One block of second differences: puts its key at `key` and moves on behind its data.
std::uint8_t* encode_block(const std::uint32_t* differences, std::uint8_t* key,
                           std::uint8_t* data) {
    int bits[kGroups];
    unsigned flag = 0;
    for (std::size_t group = 0; group < kGroups; ++group) {
        bits[group] = bits_of_group(differences + group * kGroup);
        if (bits[group] > kWidestUnflagged) flag = 1;
    }
    BitWriter keys(key), values(data);
    keys.put(flag, 1);
    for (std::size_t group = 0; group < kGroups; ++group) {
        const auto code = kCodes[flag][static_cast<std::size_t>(bits[group])];
        keys.put(code, 3);
        for (std::size_t i = 0; i < kGroup; ++i)
            values.put(differences[group * kGroup + i], kWidths[flag][code]);
    }
    return values.finish();
}

}  // namespace

std::uint8_t* encode_plain(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    const std::size_t count = series.blocks * kBlock;
    const auto sample = [&](std::size_t i) {
        return static_cast<std::uint32_t>(i < count ? series.samples[i] : series.next);
    };
    std::uint32_t before = 0;  // the first difference that led to the block
    for (std::size_t block = 0; block < series.blocks; ++block) {
        std::uint32_t differences[kBlock];
        for (std::size_t i = 0; i < kBlock; ++i) {
            const std::size_t at = block * kBlock + i;
            const std::uint32_t difference = sample(at + 1) - sample(at);
            differences[i] = difference - before;
            before = difference;
        }
        data = encode_block(differences, keys + block * kKeySize, data);
    }
    return data;
}

std::uint8_t* encode(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    if (may_use(Simd::kAvx512)) return encode_avx512(series, keys, data);
    if (may_use(Simd::kAvx2)) return encode_avx2(series, keys, data);
    return encode_plain(series, keys, data);
}

}  // namespace morva::canada
