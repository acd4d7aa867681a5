// Streams among their own sources.
#pragma once

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "morva/bns.h"

namespace morva::stream {

inline constexpr int kItemSizes[] = {1, 2, 4, 8, 4, 8};
inline constexpr int kTypes = 6;
inline constexpr int64_t kLargestItem = 8;

// Most calls move one item, which takes about as long as the call itself: integers, the most
// frequent, by code in one line of the cache, others by a table. The positions are read once there,
// since the compiler takes the bytes stored for a part of the record.
inline constexpr int kLine = 64;

// Bytes of `count` items; -1 with the reason registered when there can be no such items.
int64_t bytes_of(int type, int count);

// Both directions are the same: bytes are reversed on a machine of the other order.
void convert(const char* from, void* to, int type, int count);

template <class Word>
void convert_word(const char* from, char* to) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        if constexpr (sizeof word == 2) word = __builtin_bswap16(word);
        if constexpr (sizeof word == 4) word = __builtin_bswap32(word);
        if constexpr (sizeof word == 8) word = __builtin_bswap64(word);
    }
    std::memcpy(to, &word, sizeof word);
}

inline int64_t unread(const Bns* bns) {
    return bns->lp - bns->fp;
}

// Notes a failed call and its errno; returns -1.
inline int failed(Bns* bns) {
    ++bns->err;
    bns->syserrno = errno;
    return -1;
}

// Moves what is kept, or else what is unread, to the start of the buffer.
void compact(Bns* bns, int64_t from);

// The routines that a new stream has.
ssize_t plain_read(int fd, void* buffer, size_t length, int flags);
ssize_t plain_write(int fd, void* buffer, size_t length, int flags);

// Follows the control "bnssnoop", and then, while there is a snoop file, notes a transfer of
// `count` bytes of which the first `available` are at `bytes`.
enum class Direction { in, out };
void snoop(Bns* bns, Direction direction, const char* bytes, int64_t available, int64_t count);

}  // namespace morva::stream
