// CM6 text to samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace morva {

enum class Stop {
    kEnd,           // all data were decoded, to their end or to the blanks that pad the last line
    kBadCharacter,  // a character that no value may hold
    kCut            // the data end inside a value
};

struct Decoded {
    std::size_t count;     // samples written
    Stop stop;             // why decoding stopped
    std::size_t position;  // offset of the character that stopped it
    std::int32_t sum;      // the running checksum of the samples, starting at 0
};

// Decodes data into `samples`, which has room for one sample for each character.
Decoded decode_samples(std::string_view data, std::int32_t* samples);

// The versions behind it. All give the same result for any bytes.
Decoded decode_plain(std::string_view data, std::int32_t* samples);
Decoded decode_avx2(std::string_view data, std::int32_t* samples);
Decoded decode_avx512(std::string_view data, std::int32_t* samples);

// Reads one value. `at` moves behind what was read, never past `end`. `first_error` is the place of
// the first error, `end` for a value that the text cuts off; it is set only with errors.
struct Value {
    std::int32_t number;
    int errors;
    const char* first_error;
};
Value read_value(const char*& at, const char* end);

// The double integration that turns second differences back into samples, wrapping at 32 bits.
class Integrator {
  public:
    Integrator() = default;
    Integrator(std::int32_t difference, std::int32_t sample)
        : difference_(static_cast<std::uint32_t>(difference)),
          sample_(static_cast<std::uint32_t>(sample)) {}
    std::int32_t next(std::uint32_t second_difference) {
        difference_ += second_difference;
        sample_ += difference_;
        return sample();
    }
    std::int32_t difference() const { return static_cast<std::int32_t>(difference_); }
    std::int32_t sample() const { return static_cast<std::int32_t>(sample_); }

  private:
    std::uint32_t difference_ = 0, sample_ = 0;
};

// Turns 64 characters into codes up to the first one that neither has a code nor stands for a line
// end or tab; these are left out. Writes 64 bytes, of which `count` are codes.
struct Converted {
    std::size_t used;  // characters up to that one, 64 without one
    std::size_t count;
};
Converted convert_avx512(const char* text, std::uint8_t* codes);

// Decodes all whole values of at most kMostCodes codes, of which the first one begins a value.
// False when one has more than seven characters: then nothing is decoded.
inline constexpr std::size_t kMostCodes = 33 * 64;
bool decode_codes_avx512(const std::uint8_t* codes, std::size_t count, Integrator& integrator,
                         std::int32_t* samples, std::size_t* decoded);

}  // namespace morva
