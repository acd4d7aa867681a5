// cm6 and um6: second differences of samples as printable text, with the GSE checksum line.
//
// This file settles the callers' buffers and the line with the checksum; cm6_encode and um6_decode
// do the work on values, cm6_text finds the parts of a message. No state but the choice of version.
#include "morva/cm6.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "codec/cm6_code.hpp"
#include "codec/cm6_encode.hpp"
#include "codec/cm6_text.hpp"
#include "codec/um6_decode.hpp"
#include "digest/gse_checksum.hpp"

using namespace morva;

namespace {

// The last newline, "CHK2 ", eight digits, a newline and the end of the string.
constexpr int kChecksumLineSize = 16;

// The stated size falls short of seven characters for every sample once their line breaks fill the
// spare bytes, so the larger of the two counts. Both in double or 64 bits: no count overflows.
std::int64_t text_capacity(int nsamp) {
    const auto stated = static_cast<std::int64_t>(nsamp * 7.0 * 1.0123456790123457 + 1 + 20);
    const std::int64_t characters = std::int64_t{7} * nsamp;
    return std::max(stated, characters + characters / kLineLength + 21);
}

// The shortest text of a series: one character for each sample.
std::int64_t shortest_text(int nsamp) {
    return std::int64_t{nsamp} + nsamp / kLineLength + kChecksumLineSize;
}

// True when the text fits in a buffer whose size an int can tell.
bool fits_in_int(const std::int32_t* samples, int nsamp) {
    if (text_capacity(nsamp) <= INT_MAX) return true;
    return shortest_text(nsamp) <= INT_MAX &&
           encoded_length(samples, static_cast<std::size_t>(nsamp)) + kChecksumLineSize <= INT_MAX;
}

// Makes the caller's buffer hold `need` zeroed items unless it already has that many. A buffer
// whose size is given as 0 is not the caller's to lose: it is replaced, not freed.
template <class Item>
void settle_buffer(Item** buffer, int* size, int need, const char* what, Site site) {
    if (*size >= need && (*buffer != nullptr || need == 0)) return;
    Item* larger = must_alloc<Item>(static_cast<std::size_t>(need), what, site);
    if (*size != 0) std::free(*buffer);
    *buffer = larger;
    *size = need;
}

int status_of(const MessageParts& parts, const Decoded& decoded) {
    if (decoded.stop == Stop::kBadCharacter) return UM6_BAD_CHARACTER;
    if (decoded.stop == Stop::kCut) return UM6_CUT;
    if (!parts.has_checksum_line) return UM6_NO_CHECKSUM_LINE;
    if (!parts.has_number) return UM6_NO_NUMBER;
    return parts.stored == checksum_of(decoded.sum) ? UM6_GOOD : UM6_MISMATCH;
}

// Decodes the data of a message into a buffer that has room for them.
int decode_parts(std::string_view text, const MessageParts& parts, std::int32_t* samples,
                 Um6_verdict* verdict) {
    const Decoded decoded = decode_samples(parts.data, samples);
    verdict->status = status_of(parts, decoded);
    const auto data_offset = parts.data.data() - text.data();
    verdict->position =
        static_cast<std::int32_t>(data_offset) + static_cast<std::int32_t>(decoded.position);
    verdict->has_stored = parts.has_number ? 1 : 0;
    verdict->computed = checksum_of(decoded.sum);
    verdict->stored = parts.stored;
    return static_cast<int>(decoded.count);
}

const char* plain_reason(int status) {
    switch (status) {
        case UM6_GOOD:
            return "good";
        case UM6_NO_CHECKSUM_LINE:
            return "no CHK2 line";
        case UM6_NO_NUMBER:
            return "no number in the CHK2 line";
        case UM6_CUT:
            return "the data end inside a value";
        default:
            return "unknown verdict";
    }
}

bool is_text(const char* function, const char* text, int nbytes) {
    if (nbytes >= 0 && (text != nullptr || nbytes == 0)) return true;
    elog_log(0, "%s: no text: %d bytes\n", function, nbytes);
    return false;
}

}  // namespace

extern "C" {

int cm6(const int32_t* samples, int nsamp, char** text, int* nbytes, int* buffer_size) {
    if (nsamp < 0 || !fits_in_int(samples, nsamp)) {
        elog_log(0, "cm6: can't hold the text of %d samples\n", nsamp);
        return -1;
    }
    const auto need = static_cast<int>(std::min<std::int64_t>(text_capacity(nsamp), INT_MAX));
    settle_buffer(text, buffer_size, need, "*compressedp", MORVA_HERE);
    const Encoded encoded = encode_samples(samples, static_cast<std::size_t>(nsamp), *text);
    const int line = std::snprintf(encoded.end, kChecksumLineSize, "\nCHK2 %d\n",
                                   static_cast<int>(checksum_of(encoded.sum)));
    *nbytes = static_cast<int>(encoded.end - *text) + line;
    return 0;
}

int um6(const char* text, int nbytes, int32_t** samples, int* nsamp, int* buffer_size) {
    if (!is_text("um6", text, nbytes)) return -1;
    const std::string_view whole(text, static_cast<std::size_t>(nbytes));
    const MessageParts parts = split_message(whole);
    if (!parts.has_checksum_line) {
        elog_log(0, "um6: no CHK2 line in %d bytes\n", nbytes);
        return -1;
    }
    settle_buffer(samples, buffer_size, nbytes, "*datap", MORVA_HERE);
    Um6_verdict verdict;
    const int count = decode_parts(whole, parts, *samples, &verdict);
    if (verdict.status != UM6_GOOD) {
        char reason[UM6_REASON_SIZE];
        elog_log(0, "um6: %s\n", um6_reason(&verdict, reason));
        return -1;
    }
    return *nsamp = count;
}

int um6_anyway(const char* text, int nbytes, int32_t** samples, int* nsamp, int* buffer_size,
               Um6_verdict* verdict) {
    if (!is_text("um6_anyway", text, nbytes)) return -1;
    const std::string_view whole(text, static_cast<std::size_t>(nbytes));
    const MessageParts parts = split_message(whole);
    settle_buffer(samples, buffer_size, nbytes, "*datap", MORVA_HERE);
    return *nsamp = decode_parts(whole, parts, *samples, verdict);
}

char* um6_reason(const Um6_verdict* verdict, char* reason) {
    constexpr std::size_t kSize = UM6_REASON_SIZE;
    switch (verdict->status) {
        case UM6_MISMATCH:
            std::snprintf(reason, kSize, "CHK2 says %lld, samples give %d",
                          static_cast<long long>(verdict->stored), verdict->computed);
            break;
        case UM6_BAD_CHARACTER:
            std::snprintf(reason, kSize, "bad character at byte %d", verdict->position);
            break;
        default:
            std::snprintf(reason, kSize, "%s", plain_reason(verdict->status));
            break;
    }
    return reason;
}

void stuff(int32_t value, char** cursor) {
    std::uint8_t codes[cm6code::kMaxCharacters];
    const std::uint8_t* end = cm6code::put_codes(value, codes);
    for (const std::uint8_t* code = codes; code < end; ++code)
        *(*cursor)++ = cm6code::Encode[*code];
}

int unstuff(int32_t* value, char** cursor, int* remaining) {
    const char* at = *cursor;
    const Value read = read_value(at, at + std::max(*remaining, 0));
    *value = read.number;
    *remaining -= static_cast<int>(at - *cursor);
    *cursor += at - *cursor;
    return read.errors;
}

constexpr unsigned char kNo = cm6code::kNoCode;
constexpr char Encode[65] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
static_assert(std::string_view(Encode) == cm6code::Encode);

// clang-format off
constexpr unsigned char Decode[128] = {
    kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo,
    kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo,
    kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo,   0, kNo,   1, kNo, kNo,
      2,   3,   4,   5,   6,   7,   8,   9,  10,  11, kNo, kNo, kNo, kNo, kNo, kNo,
    kNo,  12,  13,  14,  15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  26,
     27,  28,  29,  30,  31,  32,  33,  34,  35,  36,  37, kNo, kNo, kNo, kNo, kNo,
    kNo,  38,  39,  40,  41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51,  52,
     53,  54,  55,  56,  57,  58,  59,  60,  61,  62,  63, kNo, kNo, kNo, kNo, kNo};
// clang-format on
static_assert(std::ranges::equal(Decode, cm6code::Decode));

void initDecode(void) {}

}  // extern "C"
