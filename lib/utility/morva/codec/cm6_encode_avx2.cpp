#include "base/simd.hpp"
#include "codec/cm6_encode.hpp"

namespace morva {
Encoded encode_avx2(const std::int32_t* samples, std::size_t count, char* out) {
    return encode_plain(samples, count, out);
}
}  // namespace morva
