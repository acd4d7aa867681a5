#include "base/simd.hpp"
#include "codec/um6_decode.hpp"

namespace morva {
Decoded decode_avx2(std::string_view data, std::int32_t* samples) {
    return decode_plain(data, samples);
}
}  // namespace morva
