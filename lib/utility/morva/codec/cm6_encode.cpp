#include "codec/cm6_encode.hpp"

#include "base/simd.hpp"
#include "codec/cm6_code.hpp"
#include "codec/cm6_text.hpp"
#include "digest/gse_checksum.hpp"

namespace morva {

using namespace cm6code;

std::int64_t encoded_length(const std::int32_t* samples, std::size_t count) {
    std::int64_t length = 0;
    for (std::size_t i = 0; i < count; ++i)
        length += characters_of(magnitude(second_difference(samples, i)));
    return length > 0 ? length + (length - 1) / kLineLength : 0;
}

Encoded encode_plain(const std::int32_t* samples, std::size_t count, char* out) {
    int column = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint8_t codes[kMaxCharacters];
        const std::uint8_t* end = put_codes(second_difference(samples, i), codes);
        for (const std::uint8_t* code = codes; code < end; ++code, ++column) {
            if (column == kLineLength) {
                *out++ = '\n';
                column = 0;
            }
            *out++ = Encode[*code];
        }
    }
    return {out, add_to_checksum_plain(0, samples, count)};
}

Encoded encode_samples(const std::int32_t* samples, std::size_t count, char* out) {
    const auto version = may_use(Simd::kAvx512) ? encode_avx512
                         : may_use(Simd::kAvx2) ? encode_avx2
                                                : encode_plain;
    return version(samples, count, out);
}

}  // namespace morva
