// gencompress and genuncompress: blocks of samples or differences, each of its own width.
//
// This file settles arguments and buffers; gencompress_encode and gencompress_decode do the work on
// values. What the values need is known from the keys, so everything is checked before decoding.
#include "morva/gencompress.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "base/diagnostics.hpp"
#include "codec/big_endian.hpp"
#include "codec/gencompress_code.hpp"
#include "codec/gencompress_decode.hpp"
#include "codec/gencompress_encode.hpp"
#include "codec/growable.hpp"

using namespace morva;
using namespace morva::gen;

namespace {

// Room for the longest result: keys, and values of 32 bits.
std::int64_t capacity_of(std::size_t count, std::size_t block) {
    return static_cast<std::int64_t>(kHeader + blocks_of(count, block) + 4 * count + kSpare);
}

// What compressed bytes say of themselves.
struct Header {
    std::size_t count;
    std::int32_t first;
    std::size_t block;
};

Header read_header(const std::uint8_t* bytes, std::size_t size) {
    Header header{};
    header.count = load_big_endian<std::uint32_t>(bytes);
    if (size >= kShortHeader)
        header.first = static_cast<std::int32_t>(load_big_endian<std::uint32_t>(bytes + 4));
    if (size >= kHeader) header.block = std::size_t{1} + bytes[kShortHeader];
    return header;
}

// By fault.
constexpr const char* kReasons[] = {"good",
                                    "no header",
                                    "more samples than an int can count",
                                    "cut in the header",
                                    "cut in the keys",
                                    "not a key",
                                    "cut in the data",
                                    "bytes behind the data"};

// Whether these bytes are a whole result of gencompress.
int fault_of(const std::uint8_t* bytes, std::size_t size) {
    if (bytes == nullptr || size < 4) return GENUNCOMPRESS_NO_HEADER;
    const Header header = read_header(bytes, size);
    if (header.count > INT_MAX) return GENUNCOMPRESS_BAD_COUNT;
    const std::size_t least = header.count == 0 ? 4 : header.count == 1 ? kShortHeader : kHeader;
    if (size < least) return GENUNCOMPRESS_CUT_HEADER;
    std::uint64_t left = size - least;
    if (header.count > 1) {
        const std::size_t keys = blocks_of(header.count, header.block);
        if (keys > left) return GENUNCOMPRESS_CUT_KEYS;
        const std::uint64_t data = data_size(bytes + kHeader, header.count, header.block);
        if (data == kNoSize) return GENUNCOMPRESS_BAD_KEY;
        if (data > left - keys) return GENUNCOMPRESS_CUT_DATA;
        left -= keys + data;
    }
    return left > 0 ? GENUNCOMPRESS_SPARE_BYTES : GENUNCOMPRESS_GOOD;
}

// The samples that can be decoded in spite of a fault.
std::size_t samples_within(const std::uint8_t* bytes, std::size_t size, int fault) {
    if (size < kShortHeader) return 0;
    const Header header = read_header(bytes, size);
    if (header.count < 2 || fault == GENUNCOMPRESS_GOOD) return header.count;
    if (fault < GENUNCOMPRESS_BAD_KEY) return 1;
    const std::size_t keys = blocks_of(header.count, header.block);
    return 1 + values_within(bytes + kHeader, header.count, header.block, size - kHeader - keys);
}

// Decodes so many samples, all or fewer than all.
void decode_first(const std::uint8_t* bytes, std::size_t size, std::size_t count,
                  std::int32_t* samples) {
    const Header header = read_header(bytes, size);
    if (count == 1) samples[0] = header.first;
    if (count < 2) return;
    const std::uint8_t* const keys = bytes + kHeader;
    decode({keys, keys + blocks_of(header.count, header.block), bytes + size, count, header.block,
            header.first},
           samples);
}

// Bytes to ask for: a buffer that is made may serve longer data next time.
std::int64_t room_for(std::size_t count, const std::int32_t* samples, int buffer_size, int nbytes) {
    const auto need = static_cast<std::int64_t>(4 * count);
    if (samples != nullptr && buffer_size > 0) return need;
    return std::max(need, std::min(std::int64_t{5} * nbytes, std::int64_t{INT_MAX}));
}

}  // namespace

extern "C" {

int gencompress(unsigned char** buffer, int* nbytes, int* buffer_size, const int32_t* samples,
                int nsamp, int block) {
    if (nsamp < 0) {
        elog_log(0, "gencompress: can't compress %d samples\n", nsamp);
        return -1;
    }
    const auto count = static_cast<std::size_t>(nsamp);
    const auto size =
        static_cast<std::size_t>(block < 1 ? kDefaultBlock : std::min(block, kLargestBlock));
    if (!grow_buffer(buffer, buffer_size, capacity_of(count, size),
                     "gencompress: malloc() error.\n", "gencompress: realloc() error.\n"))
        return -1;
    std::uint8_t* const start = *buffer;
    std::uint8_t* end = start + 4;
    store_big_endian(start, static_cast<std::uint32_t>(nsamp));
    if (count > 0) {
        store_big_endian(end, static_cast<std::uint32_t>(samples[0]));
        end += 4;
    }
    if (count > 1) {
        *end++ = static_cast<std::uint8_t>(size - 1);
        end = encode({samples, count, size}, end, end + blocks_of(count, size));
    }
    *nbytes = static_cast<int>(end - start);
    return 0;
}

int genuncompress(int32_t** samples, int* nsamp, int* buffer_size, const unsigned char* compressed,
                  int nbytes) {
    const auto size = static_cast<std::size_t>(std::max(nbytes, 0));
    if (const int fault = fault_of(compressed, size); fault != GENUNCOMPRESS_GOOD) {
        elog_log(0, "genuncompress: illegal input data: %s\n", kReasons[fault]);
        return -1;
    }
    const std::size_t count = read_header(compressed, size).count;
    if (!grow_buffer(samples, buffer_size, room_for(count, *samples, *buffer_size, nbytes),
                     "genuncompress: malloc() error.\n", "genuncompress: malloc() error.\n"))
        return -1;
    decode_first(compressed, size, count, *samples);
    *nsamp = static_cast<int>(count);
    return 0;
}

int genuncompress_anyway(int32_t** samples, int* nsamp, int* buffer_size,
                         const unsigned char* compressed, int nbytes, int* fault) {
    if (compressed == nullptr || nbytes < 0) {
        elog_log(0, "genuncompress_anyway: no data: %d bytes\n", nbytes);
        return -1;
    }
    const auto size = static_cast<std::size_t>(nbytes);
    const int found = fault_of(compressed, size);
    const std::size_t count = samples_within(compressed, size, found);
    if (count > 0) {
        if (!grow_buffer(samples, buffer_size, room_for(count, *samples, *buffer_size, nbytes),
                         "genuncompress_anyway: malloc() error.\n",
                         "genuncompress_anyway: malloc() error.\n"))
            return -1;
        decode_first(compressed, size, count, *samples);
    }
    *fault = found;
    return *nsamp = static_cast<int>(count);
}

const char* genuncompress_reason(int fault) {
    return fault >= 0 && fault < static_cast<int>(std::size(kReasons)) ? kReasons[fault]
                                                                       : "unknown fault";
}

}  // extern "C"
