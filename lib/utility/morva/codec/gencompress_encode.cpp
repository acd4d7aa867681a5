#include "codec/gencompress_encode.hpp"

#include <algorithm>

#include "base/simd.hpp"

namespace morva::gen {

namespace {

// The value of each order for one sample.
struct Values {
    std::uint32_t of[3];
};

Values values_at(const std::int32_t* samples, std::size_t i) {
    const auto x = static_cast<std::uint32_t>(samples[i]);
    const auto last = static_cast<std::uint32_t>(samples[i - 1]);
    const auto before = i >= 2 ? static_cast<std::uint32_t>(samples[i - 2]) : last;
    return {{x, x - last, x - 2 * last + before}};
}

Key choose_key(const std::int32_t* samples, std::size_t begin, std::size_t end) {
    std::uint32_t changes[3] = {};
    for (std::size_t i = begin; i < end; ++i) {
        const Values values = values_at(samples, i);
        for (std::size_t order = 0; order < 3; ++order)
            changes[order] |= changes_of(values.of[order]);
    }
    return narrowest(changes);
}

}  // namespace

std::uint8_t* encode_plain(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    BitWriter writer(data);
    for (std::size_t begin = 1; begin < series.count; begin += series.block) {
        const std::size_t end = std::min(begin + series.block, series.count);
        const Key key = choose_key(series.samples, begin, end);
        *keys++ = key_byte(key);
        for (std::size_t i = begin; i < end; ++i)
            writer.put(values_at(series.samples, i).of[key.order], key.width);
    }
    return writer.finish();
}

std::uint8_t* encode(const Series& series, std::uint8_t* keys, std::uint8_t* data) {
    if (may_use(Simd::kAvx512)) return encode_avx512(series, keys, data);
    if (may_use(Simd::kAvx2)) return encode_avx2(series, keys, data);
    return encode_plain(series, keys, data);
}

}  // namespace morva::gen
