// The forms in which a string stands in parameter text, and the buffer that the text grows in.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "text/strings.hpp"

namespace morva::pf {

// Sixteen bytes that are looked at together.
using Bytes = std::uint8_t __attribute__((vector_size(16)));

inline Bytes load_bytes(const char* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

// The bytes that two big-endian words hold.
inline Bytes load_words(std::uint64_t head, std::uint64_t tail) {
    if constexpr (std::endian::native == std::endian::little) {
        head = __builtin_bswap64(head);
        tail = __builtin_bswap64(tail);
    }
    using Words = std::uint64_t __attribute__((vector_size(16)));
    return std::bit_cast<Bytes>(Words{head, tail});
}

inline bool any(Bytes mask) {
    std::uint64_t halves[2];
    std::memcpy(halves, &mask, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

// Text that grows. Behind its end are always kSlack bytes that may be written over.
class Output {
  public:
    static constexpr std::size_t kSlack = 32;

    // The place that is named when memory runs out.
    explicit Output(Site site) : site_(site) {}
    ~Output() { std::free(start_); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    std::string_view text() const { return {start_, size()}; }
    std::size_t size() const { return static_cast<std::size_t>(end_ - start_); }
    void cut(std::size_t size) { end_ = start_ + size; }

    // The end of the text, with room for n bytes and the slack; what is written there becomes part
    // of it with extend.
    char* room(std::size_t n) {
        if (static_cast<std::size_t>(limit_ - end_) < n + kSlack) grow(n);
        return end_;
    }
    void extend(std::size_t n) { end_ += n; }

    void put(char c) {
        *room(1) = c;
        extend(1);
    }
    void put(std::string_view text) {
        copy_text(room(text.size()), text.data(), text.size());
        extend(text.size());
    }

    // The text as a string from malloc.
    char* release();

  private:
    void grow(std::size_t n);

    char* start_ = nullptr;
    char* end_ = nullptr;
    char* limit_ = nullptr;
    Site site_;
};

// Every byte of a text of less than sixteen, some of them twice, and zeros.
inline Bytes short_bytes(std::string_view text) {
    const std::size_t n = text.size();
    std::uint64_t words[2] = {0, 0};
    const auto both_ends = [&](std::size_t width) {
        std::memcpy(&words[0], text.data(), width);
        std::memcpy(&words[1], text.data() + n - width, width);
    };
    if (n >= 8)
        both_ends(8);
    else if (n >= 4)
        both_ends(4);
    else if (n >= 2)
        both_ends(2);
    else if (n == 1)
        both_ends(1);
    return std::bit_cast<Bytes>(words);
}

// True when one of the bytes has a meaning to the reader in a value: "#", "}", backslash, newline.
inline bool has_special(std::string_view text) {
    constexpr std::size_t kStep = sizeof(Bytes);
    const auto special = [](Bytes b) -> Bytes {
        return static_cast<Bytes>((b == '#') | (b == '}') | (b == '\\') | (b == '\n'));
    };
    if (text.size() < kStep) return any(special(short_bytes(text)));
    const std::size_t last = text.size() - kStep;
    Bytes found = special(load_bytes(text.data() + last));
    for (std::size_t i = 0; i < last; i += kStep) found |= special(load_bytes(text.data() + i));
    return any(found);
}

// True for text that the reader would trim.
inline bool has_outer_blank(std::string_view text) {
    const auto trimmed = [](char c) { return c == ' ' || c == '\t'; };
    return !text.empty() && (trimmed(text.front()) || trimmed(text.back()));
}

// As pfescape_special_chars and pfoutput_literal with a mode other than 1, into an output.
void put_escaped(Output& out, std::string_view text);
void put_literal(Output& out, std::string_view text);

// A string value that is not written as it stands.
void put_protected(Output& out, std::string_view text);

// A string value in its form.
inline void put_value(Output& out, std::string_view text) {
    if (has_outer_blank(text) || has_special(text)) return put_protected(out, text);
    out.put(text);
}

}  // namespace morva::pf
