// What the vector versions of the encoder share: the way through the samples, and the lines. Values
// become codes in a scratch buffer, one code a byte; whole lines of codes are then turned into
// characters on their way to the text. A kernel does both; it is compiled for its processors, and
// so is this, inlined.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codec/cm6_code.hpp"
#include "codec/cm6_encode.hpp"
#include "codec/cm6_text.hpp"
#include "digest/gse_checksum.hpp"

namespace morva::cm6code {

inline constexpr std::size_t kChunk = 1024;  // samples between two visits to the text
inline constexpr std::size_t kOverrun = 64;  // bytes behind the last code that vectors may touch

// Codes that wait for their line to fill.
template <class Kernel>
class LineWriter {
  public:
    explicit LineWriter(char* out) : out_(out) {}

    std::uint8_t* end() { return codes_ + pending_; }

    // Takes the codes up to `end` and writes all lines behind which another character stands.
    [[gnu::always_inline]] void write_lines(const std::uint8_t* end) {
        const std::uint8_t* line = codes_;
        for (; end - line > kLineLength; line += kLineLength, out_ += kLineLength + 1) {
            Kernel::write_line(line, out_);
            out_[kLineLength] = '\n';
        }
        pending_ = static_cast<std::size_t>(end - line);
        std::memmove(codes_, line, pending_);
    }

    // Writes what is left, at most a line.
    [[gnu::always_inline]] char* finish() {
        char line[kLineLength];
        Kernel::write_line(codes_, line);
        std::memcpy(out_, line, pending_);
        return out_ + pending_;
    }

  private:
    char* out_;
    std::size_t pending_ = 0;
    std::uint8_t codes_[kLineLength + kChunk * kMaxCharacters + kOverrun];
};

// The codes of samples first..end-1 of a series.
template <class Kernel>
[[gnu::always_inline]] inline std::uint8_t* put_samples(const std::int32_t* samples,
                                                        std::size_t first, std::size_t end,
                                                        std::uint8_t* out) {
    std::size_t i = first;
    for (; i < end && i < 2; ++i) out = put_codes(second_difference(samples, i), out);
    for (; i + Kernel::kBlock <= end; i += Kernel::kBlock)
        out = Kernel::put_block(samples + i, out);
    for (; i < end; ++i) out = put_codes(second_difference(samples, i), out);
    return out;
}

// A kernel has
//   kBlock      the number of values that it takes at a time
//   put_block   writes the codes of as many samples, of which the two before them are read
//   write_line  writes kLineLength codes as characters; reads up to 31 bytes more, writes none more
template <class Kernel>
[[gnu::always_inline]] inline Encoded encode_with(const std::int32_t* samples, std::size_t count,
                                                  char* out) {
    LineWriter<Kernel> writer(out);
    std::int32_t sum = 0;
    for (std::size_t first = 0; first < count; first += kChunk) {
        const std::size_t end = std::min(first + kChunk, count);
        sum = add_to_checksum(sum, samples + first, end - first);
        writer.write_lines(put_samples<Kernel>(samples, first, end, writer.end()));
    }
    return {writer.finish(), sum};
}

}  // namespace morva::cm6code
