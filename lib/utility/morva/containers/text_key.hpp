// A string key together with its first sixteen bytes as two big-endian words, zero bytes behind the
// end. Comparing such words orders strings the way strcmp does, without a call and mostly without a
// second cache line.
#pragma once

#include <algorithm>
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

inline void store_big_endian(char* bytes, std::uint64_t word) {
    if constexpr (std::endian::native != std::endian::big) word = __builtin_bswap64(word);
    std::memcpy(bytes, &word, sizeof word);
}

// `length` (1 to 7) bytes as the upper bytes of a word; reads none beyond them. Bytes in the middle
// may be loaded twice.
inline std::uint64_t load_partial_word(const char* bytes, std::size_t length) {
    const auto byte = [bytes](std::size_t i) {
        return std::uint64_t{static_cast<unsigned char>(bytes[i])} << (56 - 8 * i);
    };
    if (length < 4) return byte(0) | byte(length / 2) | byte(length - 1);
    const std::uint64_t front = load_big_endian<std::uint32_t>(bytes);
    const std::uint64_t back = load_big_endian<std::uint32_t>(bytes + length - 4);
    return front << 32 | back << 8 * (kWordBytes - length);
}

struct TextKey {
    const char* text;  // need not be terminated
    std::size_t length;
    std::uint64_t head;
    std::uint64_t tail;

    explicit TextKey(const char* string) : TextKey({string, std::strlen(string)}) {}
    explicit TextKey(std::string_view string) : text(string.data()), length(string.size()) {
        if (length < kWordBytes) {
            head = length == 0 ? 0 : load_partial_word(text, length);
            tail = 0;
            return;
        }
        head = load_big_endian<std::uint64_t>(text);
        // Of a shorter key, the last eight bytes without those that are in the head.
        tail = length >= kKeyPrefix ? load_big_endian<std::uint64_t>(text + kWordBytes)
                                    : load_big_endian<std::uint64_t>(text + length - kWordBytes)
                                          << 8 * (kKeyPrefix - 1 - length) << 8;
    }

    // A key of at least one byte, where sixteen bytes can be read: without a branch.
    static TextKey from_readable(std::string_view string) {
        const auto kept = [](std::uint64_t word, std::size_t bytes) {
            const std::size_t cut = 8 * (kWordBytes - std::min(bytes, kWordBytes));
            return word >> cut << cut;
        };
        TextKey key;
        key.text = string.data();
        key.length = string.size();
        key.head = kept(load_big_endian<std::uint64_t>(key.text), key.length);
        const std::uint64_t tail = load_big_endian<std::uint64_t>(key.text + kWordBytes);
        key.tail = key.length > kWordBytes ? kept(tail, key.length - kWordBytes) : 0;
        return key;
    }

    // The length as a node keeps it: exact while the words hold the whole string.
    std::uint16_t short_length() const {
        return static_cast<std::uint16_t>(length <= kKeyPrefix ? length : kKeyPrefix + 1);
    }

  private:
    TextKey() = default;
};

}  // namespace morva
