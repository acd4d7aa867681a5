// Samples to CM6 text: the values and the line breaks between them, without the last newline.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva {

struct Encoded {
    char* end;         // the place after the last character written
    std::int32_t sum;  // the running checksum of the samples, starting at 0
};

// The length of the text in characters, line breaks included.
std::int64_t encoded_length(const std::int32_t* samples, std::size_t count);

// Writes encoded_length characters at `out`, and nothing behind them.
Encoded encode_samples(const std::int32_t* samples, std::size_t count, char* out);

// The versions behind it. All write the same text.
Encoded encode_plain(const std::int32_t* samples, std::size_t count, char* out);
Encoded encode_avx2(const std::int32_t* samples, std::size_t count, char* out);
Encoded encode_avx512(const std::int32_t* samples, std::size_t count, char* out);

}  // namespace morva
