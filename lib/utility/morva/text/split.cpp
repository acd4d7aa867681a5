// Splitting in place: runs of separators count as one, empty fields never appear.
//
// Eight characters are looked at together: a word with the top bit set in each byte that holds a
// separator tells where fields begin and end.
#include <bit>
#include <cstdint>
#include <cstring>

#include "containers/tbl.hpp"
#include "morva/strings.h"
#include "text/strings.hpp"

namespace {

using Word = std::uint64_t;

constexpr long kFirstItems = 5;
constexpr Word kOnes = 0x0101010101010101;
constexpr Word kTops = 0x80 * kOnes;

// Marks the bytes that are equal to `c`.
constexpr Word equal_bytes(Word word, unsigned char c) {
    const Word difference = word ^ (c * kOnes);
    return ~(((difference & ~kTops) + ~kTops) | difference) & kTops;
}
static_assert(equal_bytes(0x2c2b00ac2c2d2c2c, ',') == 0x8000000080008080);

// The word as memory order has it: byte 0 in the low bits.
Word in_memory_order(Word word) {
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

Word load(const char* p) {
    Word word;
    std::memcpy(&word, p, sizeof word);
    return in_memory_order(word);
}

void store(char* p, Word word) {
    word = in_memory_order(word);
    std::memcpy(p, &word, sizeof word);
}

// Appends to a new list of pointers, whose count is set at the end.
class Fields {
  public:
    Fields() : tbl_(newtbl(kFirstItems)) {}
    void add(char* field) {
        if (count_ == tbl_->alloc_end) [[unlikely]]
            grow();
        morva::tbl_pointers<char>(tbl_).data()[count_++] = field;
    }
    Tbl* finish() {
        tbl_->count = count_;
        return tbl_;
    }

  private:
    void grow() {
        tbl_->count = count_;
        right_growtbl(tbl_, 1);
    }
    Tbl* tbl_;
    int64_t count_ = 0;
};

// `is_separator` tells of one character, `separators` marks those of a word.
template <class IsSeparator, class Separators>
Tbl* split_at(char* s, IsSeparator is_separator, Separators separators) {
    Fields fields;
    char* const end = s + std::strlen(s);
    Word before = 0x80;  // whether the character before this one is a separator
    char* p = s;
    for (; end - p >= 8; p += 8) {
        const Word word = load(p);
        const Word found = separators(word);
        const Word shifted = found << 8 | before;
        before = found >> 56;
        for (Word starts = shifted & ~found & kTops; starts != 0; starts &= starts - 1)
            fields.add(p + (std::countr_zero(starts) >> 3));
        const Word ends = found & ~shifted;
        if (ends != 0) store(p, word & ~((ends << 1) - (ends >> 7)));
    }
    bool behind_separator = before != 0;
    for (; p < end; ++p) {
        const bool separator = is_separator(*p);
        if (separator && !behind_separator) *p = '\0';
        if (!separator && behind_separator) fields.add(p);
        behind_separator = separator;
    }
    return fields.finish();
}

}  // namespace

extern "C" {

Tbl* split(char* s, char c) {
    return split_at(
        s, [c](char candidate) { return candidate == c; },
        [c](Word word) { return equal_bytes(word, static_cast<unsigned char>(c)); });
}

Tbl* splitws(char* s) {
    return split_at(s, morva::is_blank, [](Word word) {
        return equal_bytes(word, ' ') | equal_bytes(word, '\t') | equal_bytes(word, '\n');
    });
}

}  // extern "C"
