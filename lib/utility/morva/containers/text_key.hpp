// A string key together with its first sixteen bytes as two big-endian words, zero bytes behind the
// end. Comparing such words orders strings the way strcmp does, without a call and mostly without a
// second cache line.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace morva {

inline constexpr std::size_t kWordBytes = 8;
inline constexpr std::size_t kKeyPrefix = 2 * kWordBytes;

template <class Word>
Word load_big_endian(const char* bytes) {
    static_assert(sizeof(Word) == 2 || sizeof(Word) == 4 || sizeof(Word) == 8);
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) return word;
    if constexpr (sizeof word == 2) return __builtin_bswap16(word);
    if constexpr (sizeof word == 4) return __builtin_bswap32(word);
    return static_cast<Word>(__builtin_bswap64(word));
}

// `length` (below 8) bytes as the upper bytes of a word; reads none beyond them.
inline std::uint64_t load_partial_word(const char* bytes, std::size_t length) {
    if (length == 0) return 0;
    std::uint64_t word = 0;
    if (length & 4) {
        word = load_big_endian<std::uint32_t>(bytes);
        bytes += 4;
    }
    if (length & 2) {
        word = word << 16 | load_big_endian<std::uint16_t>(bytes);
        bytes += 2;
    }
    if (length & 1) word = word << 8 | static_cast<unsigned char>(*bytes);
    return word << 8 * (kWordBytes - length);
}

struct TextKey {
    const char* text;  // need not be terminated
    std::size_t length;
    std::uint64_t head;
    std::uint64_t tail;

    explicit TextKey(const char* string) : TextKey({string, std::strlen(string)}) {}
    explicit TextKey(std::string_view string) : text(string.data()), length(string.size()) {
        if (length < kWordBytes) {
            head = load_partial_word(text, length);
            tail = 0;
            return;
        }
        head = load_big_endian<std::uint64_t>(text);
        tail = length < kKeyPrefix ? load_partial_word(text + kWordBytes, length - kWordBytes)
                                   : load_big_endian<std::uint64_t>(text + kWordBytes);
    }

    // The length as a node keeps it: exact while the words hold the whole string.
    std::uint16_t short_length() const {
        return static_cast<std::uint16_t>(length <= kKeyPrefix ? length : kKeyPrefix + 1);
    }
};

}  // namespace morva
