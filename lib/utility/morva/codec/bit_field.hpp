// Values of a few bits one behind another, most significant bit first. The plain versions of the
// codecs read and write with these; widths are 0 to 32 bits.
#pragma once

#include <bit>
#include <cstdint>

namespace morva {

constexpr std::uint32_t low_bits(int width) {
    return static_cast<std::uint32_t>((std::uint64_t{1} << width) - 1);
}

// The value that the low `width` bits of `bits` stand for in two's complement; 0 for no bits.
constexpr std::int32_t sign_extended(std::uint32_t bits, int width) {
    const std::uint32_t sign = width > 0 ? std::uint32_t{1} << (width - 1) : 0;
    return static_cast<std::int32_t>(((bits & low_bits(width)) ^ sign) - sign);
}
static_assert(sign_extended(0xF, 4) == -1 && sign_extended(7, 4) == 7);
static_assert(sign_extended(0x80000000U, 32) == INT32_MIN && sign_extended(5, 0) == 0);

// The places where a bit differs from the one below it, zero standing below the lowest. A value in
// two's complement needs as many bits as the highest of them tells, several values as many as the
// highest of all: or them together. Zero needs none.
constexpr std::uint32_t changes_of(std::uint32_t value) {
    return value ^ value << 1;
}
static_assert(std::bit_width(changes_of(7)) == 4 && std::bit_width(changes_of(0U - 8)) == 4);
static_assert(std::bit_width(changes_of(0U - 1)) == 1 && changes_of(0) == 0);

class BitWriter {
  public:
    explicit BitWriter(std::uint8_t* out) : out_(out) {}
    void put(std::uint32_t value, int width) {
        bits_ = bits_ << width | (value & low_bits(width));
        for (held_ += width; held_ >= 8; held_ -= 8)
            *out_++ = static_cast<std::uint8_t>(bits_ >> (held_ - 8));
    }
    // Fills the last byte with zero bits; the place behind it.
    std::uint8_t* finish() {
        if (held_ > 0) put(0, 8 - held_);
        return out_;
    }

  private:
    std::uint8_t* out_;
    std::uint64_t bits_ = 0;
    int held_ = 0;  // bits not yet written, below 8 between calls
};

class BitReader {
  public:
    explicit BitReader(const std::uint8_t* in) : in_(in) {}
    std::int32_t get(int width) {
        for (; held_ < width; held_ += 8) bits_ = bits_ << 8 | *in_++;
        held_ -= width;
        return sign_extended(static_cast<std::uint32_t>(bits_ >> held_), width);
    }

  private:
    const std::uint8_t* in_;
    std::uint64_t bits_ = 0;
    int held_ = 0;  // bits read but not yet given, below 8 between calls
};

}  // namespace morva
