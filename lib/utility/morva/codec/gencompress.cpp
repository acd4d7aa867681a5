// gencompress and genuncompress: blocks of samples or differences, each of its own width.
//
// This file settles arguments and buffers; gencompress_encode and gencompress_decode do the work on
// values. What the values need is known from the keys, so everything is checked before decoding.
#include "morva/gencompress.h"

#include <algorithm>
#include <climits>
#include <cstring>

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

// Why these bytes are not a whole result of gencompress; null when they are one.
const char* fault_of(const std::uint8_t* bytes, std::size_t size) {
    if (bytes == nullptr || size < 4) return "no header";
    const Header header = read_header(bytes, size);
    if (header.count > INT_MAX) return "more samples than an int can count";
    if (header.count == 0) return size == 4 ? nullptr : "bytes behind the data";
    if (size < kShortHeader || (header.count > 1 && size < kHeader)) return "cut in the header";
    if (header.count == 1) return size == kShortHeader ? nullptr : "bytes behind the data";
    const std::size_t keys = blocks_of(header.count, header.block);
    if (keys > size - kHeader) return "cut in the keys";
    const std::uint64_t data = data_size(bytes + kHeader, header.count, header.block);
    if (data == kNoSize) return "not a key";
    const std::size_t left = size - kHeader - keys;
    return data > left ? "cut in the data" : data < left ? "bytes behind the data" : nullptr;
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
    if (const char* fault = fault_of(compressed, size); fault != nullptr) {
        elog_log(0, "genuncompress: illegal input data: %s\n", fault);
        return -1;
    }
    const Header header = read_header(compressed, size);
    auto need = static_cast<std::int64_t>(4 * header.count);
    if (*samples == nullptr || *buffer_size <= 0)
        need = std::max(need, std::min(std::int64_t{5} * nbytes, std::int64_t{INT_MAX}));
    if (!grow_buffer(samples, buffer_size, need, "genuncompress: malloc() error.\n",
                     "genuncompress: malloc() error.\n"))
        return -1;
    if (header.count == 1) (*samples)[0] = header.first;
    if (header.count > 1) {
        const std::uint8_t* const keys = compressed + kHeader;
        decode({keys, keys + blocks_of(header.count, header.block), compressed + size, header.count,
                header.block, header.first},
               *samples);
    }
    *nsamp = static_cast<int>(header.count);
    return 0;
}

}  // extern "C"
