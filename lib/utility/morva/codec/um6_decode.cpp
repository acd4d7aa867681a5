#include "codec/um6_decode.hpp"

#include "base/simd.hpp"
#include "codec/cm6_code.hpp"
#include "digest/gse_checksum.hpp"

namespace morva {

using namespace cm6code;

namespace {

const char* skip_line_ends(const char* at, const char* end) {
    while (at < end && is_skipped(*at)) ++at;
    return at;
}

// Collects the bits and errors of one value. A character without a code counts as an error and is
// then taken for one with all bits set.
class ValueReader {
  public:
    // Takes one character and returns its six bits.
    std::uint8_t code(const char* at) {
        const std::uint8_t code = code_of(*at);
        if (code == kNoCode) error(at);
        return code;
    }
    void error(const char* at) {
        if (errors_++ == 0) first_error_ = at;
    }
    void cut(const char* end) {
        if (errors_ == 0) error(end);
    }
    Value value(std::uint32_t bits, bool negative) const {
        return {static_cast<std::int32_t>(negative ? 0 - bits : bits), errors_, first_error_};
    }

  private:
    int errors_ = 0;
    const char* first_error_ = nullptr;
};

}  // namespace

Value read_value(const char*& at, const char* end) {
    ValueReader reader;
    at = skip_line_ends(at, end);
    if (at == end || *at == ' ') {
        reader.error(at);
        if (at < end) ++at;
        return reader.value(0, false);
    }
    std::uint8_t code = reader.code(at++);
    const bool negative = (code & kNegative) != 0;
    std::uint32_t bits = code & 15;
    while ((code & kContinues) != 0) {
        while (at < end && (is_skipped(*at) || *at == ' ')) ++at;
        if (at == end) {
            reader.cut(end);
            break;
        }
        code = reader.code(at++);
        bits = (bits & 0x7ffffff) << 5 | (code & 31);
    }
    return reader.value(bits, negative);
}

Decoded decode_plain(std::string_view data, std::int32_t* samples) {
    const char* const begin = data.data();
    const char* const end = begin + data.size();
    const char* at = begin;
    Decoded result{0, Stop::kEnd, data.size(), 0};
    Integrator integrator;
    for (;;) {
        at = skip_line_ends(at, end);
        // Blanks pad the last line; before the first value they are no padding.
        if (at == end || (*at == ' ' && result.count > 0)) break;
        const Value value = read_value(at, end);
        if (value.errors > 0) {
            result.stop = value.first_error == end ? Stop::kCut : Stop::kBadCharacter;
            result.position = static_cast<std::size_t>(value.first_error - begin);
            break;
        }
        samples[result.count++] = integrator.next(static_cast<std::uint32_t>(value.number));
    }
    result.sum = add_to_checksum_plain(0, samples, result.count);
    return result;
}

Decoded decode_samples(std::string_view data, std::int32_t* samples) {
    const auto version = may_use(Simd::kAvx512) ? decode_avx512
                         : may_use(Simd::kAvx2) ? decode_avx2
                                                : decode_plain;
    return version(data, samples);
}

}  // namespace morva
