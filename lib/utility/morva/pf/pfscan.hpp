// The scanner of parameter text: one pass over the bytes, one call on a sink for each token. What a
// token means to a tree, a checker or an editor is the sink's business; what is legal where, and
// how deep, is known here alone.
//
//     struct CountKeys : morva::pf::SilentSink {
//         long keys = 0;
//         void key(const Key&) { ++keys; }
//     };
//     CountKeys sink;
//     morva::pf::scan(text, sink);
//
// Tokens come in the order of the text. In an array a key is followed by what it gets: a value,
// literal, function, undef or open; only close and the end of the text may come in between, and
// then the key gets nothing. Comments, blank lines and what is ignored behind a token are not told.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"

namespace morva::pf {

inline constexpr int kDeepest = 11;               // open blocks
inline constexpr std::size_t kLongestKey = 1023;  // bytes

// Where a token stands: its bytes in the text, without the white space around it, and the line of
// the first of them, counted from 1. The column is left to those who want it: column_of.
struct Span {
    const char* begin;
    const char* end;
    long line;
    std::string_view text() const { return {begin, static_cast<std::size_t>(end - begin)}; }
};

enum class Block { kArray, kList };

// A key. `text` is what it stands for, at most kLongestKey bytes without a zero byte: part of the
// text where it could be, else valid during the call.
struct Key {
    Span where;  // with its quotes
    std::string_view text;
    bool quoted;
};

// An ordinary value, perhaps empty: then `where` is the place where it would begin.
struct Value {
    Span where;
    bool escaped;    // differs from the bytes of `where`: see value_text
    bool ampersand;  // holds "&", as all do that could hold an opener
};

// A literal, from "&Literal" up to and including what closes it.
struct Literal {
    Span where;
    std::string_view text;
};

// How a scan ended.
struct Ending {
    bool clean;  // without a token that stops it
    int level;   // open blocks; 1 for a literal without end
    long line;   // of the last byte that was read, a newline counting for the line behind it
};

// Every event, ignored. A sink derives from it and hides the events that it wants.
struct SilentSink {
    void key(const Key&) {}
    void value(const Value&) {}
    void literal(const Literal&) {}
    void function(const Span&) {}         // from "&" to ")"
    void undef(const Span&) {}            // the last item or the entry of the key goes
    void open(const Span&, Block) {}      // one level deeper from here on
    void close(const Span&) {}            // the innermost block ends
    void end_marker(const Span&) {}       // the rest of the text is not read
    void too_deep(const Span&, Block) {}  // an opener instead of open; the scan stops
    void stray_close(const Span&) {}      // a closing brace with nothing open; the scan stops
    void endless(const Span&) {}          // the opening line of a literal without end
};

// The text that a value stands for: escapes resolved, cut at a zero byte, white space around it
// removed. `out` has room for where.end - where.begin bytes; returns what it holds then.
std::string_view value_text(const Value& value, char* out);
String value_text(const Value& value);

// The column of a byte of `text`, in bytes and counted from 1.
long column_of(std::string_view text, const char* byte);

namespace scanning {

// The bytes that matter to a scan, as bits of a table.
enum : std::uint8_t {
    kBlank = 1,  // space, tab
    kNewline = 2,
    kHash = 4,
    kBackslash = 8,
    kZero = 16,
    kDigit = 32,
    kNameStart = 64,  // letter, underscore
    kAmpersand = 128,
};
struct Classes {
    std::uint8_t of[256] = {};
    constexpr Classes() {
        using namespace std::string_view_literals;
        set(" \t"sv, kBlank);
        set("\n"sv, kNewline);
        set("#"sv, kHash);
        set("\\"sv, kBackslash);
        set("\0"sv, kZero);
        set("&"sv, kAmpersand);
        set("0123456789"sv, kDigit);
        set("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_"sv, kNameStart);
    }

  private:
    constexpr void set(std::string_view characters, std::uint8_t bit) {
        for (const char c : characters) of[static_cast<unsigned char>(c)] = bit;
    }
};
inline constexpr Classes kClasses;

inline bool is(char c, int classes) {
    return (kClasses.of[static_cast<unsigned char>(c)] & classes) != 0;
}

// The place in memory of the first byte of a word that is not zero.
inline int first_byte(std::uint64_t word) {
    const bool little = std::endian::native == std::endian::little;
    return (little ? std::countr_zero(word) : std::countl_zero(word)) / 8;
}

using Bytes [[gnu::vector_size(16)]] = unsigned char;

// The first byte of [at, end) of the classes; `hits` tells it for sixteen bytes at once. end when
// there is none.
template <class Hits>
const char* find_class(const char* at, const char* end, int classes, Hits hits) {
    for (; end - at >= 16; at += 16) {
        Bytes block;
        std::memcpy(&block, at, sizeof block);
        const auto found = hits(block);
        std::uint64_t halves[2];
        std::memcpy(halves, &found, sizeof halves);
        if (halves[0] != 0) return at + first_byte(halves[0]);
        if (halves[1] != 0) return at + 8 + first_byte(halves[1]);
    }
    while (at != end && !is(*at, classes)) ++at;
    return at;
}

// What can end or change a value.
inline const char* find_special(const char* at, const char* end) {
    return find_class(at, end, kNewline | kHash | kBackslash | kZero | kAmpersand, [](Bytes b) {
        return (b == '\n') | (b == '#') | (b == '&') | (b == '\\') | (b == '\0');
    });
}

// What can end or change a plain key.
inline const char* find_key_end(const char* at, const char* end) {
    return find_class(at, end, kBlank | kNewline | kHash | kBackslash | kZero, [](Bytes b) {
        return (b == ' ') | (b == '\t') | (b == '\n') | (b == '#') | (b == '\\') | (b == '\0');
    });
}

inline const char* find(const char* at, const char* end, char c) {
    const void* found =
        at == end ? nullptr : std::memchr(at, c, static_cast<std::size_t>(end - at));
    return found == nullptr ? end : static_cast<const char*>(found);
}

inline const char* skip_blanks(const char* at, const char* end) {
    while (at != end && is(*at, kBlank)) ++at;
    return at;
}

// The end of [begin, end) without the blanks that it ends with.
inline const char* without_blanks(const char* begin, const char* end) {
    while (end != begin && is(end[-1], kBlank)) --end;
    return end;
}

inline bool begins_with(const char* at, const char* end, std::string_view word) {
    return static_cast<std::size_t>(end - at) >= word.size() &&
           std::memcmp(at, word.data(), word.size()) == 0;
}

long count_newlines(const char* at, const char* end);

// The end of the escape at `at`, a backslash; `ends` are the classes that cut its digits short.
const char* escape_end(const char* at, const char* end, int ends);

// Resolves the escapes of `raw` into `out`, at most `room` bytes, up to a zero byte. Returns the
// bytes written.
std::size_t resolve(std::string_view raw, int ends, char* out, std::size_t room);

// The end of a plain key: a blank or newline that is not escaped, or "#".
const char* plain_key_end(const char* at, const char* end);

// The end of the function at `at`, "&"; null when the line holds none.
const char* function_end(const char* at, const char* end);

// True when the line at `at` is one of the words that end a text.
bool is_end_marker(const char* at, const char* end);

// What stands behind "&Literal", of which `at` is the end: where its text begins and ends, and
// where its closing token ends. `closed` is null when there is none.
struct LiteralParts {
    const char* text;
    const char* text_end;
    const char* closed;
};
LiteralParts split_literal(const char* at, const char* end);

template <class Sink>
class Scanner {
  public:
    Scanner(std::string_view text, Sink& sink)
        : sink_(sink), at_(text.data()), end_(text.data() + text.size()) {}

    Ending run() {
        while (in_list() ? item_line() : entry()) {
        }
        return {clean_, level_, line_};
    }

  private:
    bool in_list() const { return (lists_ >> level_ & 1) != 0; }

    Span span(const char* begin, const char* end) const { return {begin, end, line_}; }

    // Moves behind the newline of the line in which `from` stands.
    void skip_line(const char* from) {
        at_ = find(from, end_, '\n');
        newline();
    }

    // Moves behind the newline at the cursor, unless it is the end of the text.
    void newline() {
        if (at_ == end_) return;
        ++at_;
        ++line_;
    }

    // An entry of an array, or a line without one. False ends the scan.
    bool entry() {
        at_ = skip_blanks(at_, end_);
        if (at_ == end_) return false;
        switch (*at_) {
            case '\n':
                newline();
                return true;
            case '#':
                skip_line(at_);
                return true;
            case '}':
                return close();
            case '"':
            case '\'':
                if (quoted_key()) break;
                plain_key();
                break;
            case '_':
                if (is_end_marker(at_, end_)) {
                    sink_.end_marker(span(at_, find(at_, end_, '\n')));
                    return false;
                }
                [[fallthrough]];
            default:
                plain_key();
        }
        at_ = skip_blanks(at_, end_);
        return value();
    }

    // A line of a list.
    bool item_line() {
        if (at_ == end_) return false;
        if (*at_ == '#') {
            skip_line(at_);
            return true;
        }
        at_ = skip_blanks(at_, end_);
        return at_ != end_ && value();
    }

    // A quoted key at the cursor. A quote of which no second one follows is looked for only once.
    bool quoted_key() {
        const char quote = *at_;
        bool& missing = missing_quote_[quote == '"'];
        if (missing || at_ + 1 == end_ || at_[1] == quote) return false;
        const char* begin = at_ + 1;
        const char* close = find(begin, end_, quote);
        missing = close == end_;
        if (missing) return false;
        std::size_t length = static_cast<std::size_t>(find(begin, close, '\0') - begin);
        if (length > kLongestKey) length = kLongestKey;
        sink_.key(Key{span(at_, close + 1), {begin, length}, true});
        line_ += count_newlines(begin, close);
        at_ = close + 1;
        return true;
    }

    void plain_key() {
        const char* begin = at_;
        at_ = find_key_end(at_, end_);
        const bool simple = at_ == end_ || is(*at_, kBlank | kNewline | kHash);
        if (simple && at_ - begin <= static_cast<long>(kLongestKey)) [[likely]]
            return sink_.key(Key{span(begin, at_), span(begin, at_).text(), false});
        resolved_key(begin);
    }

    [[gnu::noinline]] void resolved_key(const char* begin) {
        at_ = plain_key_end(at_, end_);
        const Span where = span(begin, at_);
        char key[kLongestKey];
        const std::size_t length = resolve(where.text(), kBlank | kNewline, key, sizeof key);
        sink_.key(Key{where, {key, length}, false});
        line_ += count_newlines(begin, at_);
    }

    // What stands at the cursor in value position, which is not a blank.
    bool value() {
        if (at_ != end_) {
            if (*at_ == '}') return close();
            if (*at_ == '&') return special_value();
        }
        ordinary_value();
        return true;
    }

    void ordinary_value() {
        const char* begin = at_;
        const char* stop = find_special(begin, end_);
        if (stop == end_ || *stop == '\n') [[likely]] {
            sink_.value(Value{span(begin, without_blanks(begin, stop)), false, false});
            at_ = stop;
            return newline();
        }
        marked_value(begin, stop);
    }

    // An ordinary value with a comment behind it, or that holds more than plain characters.
    [[gnu::noinline]] void marked_value(const char* begin, const char* stop) {
        Value found{span(begin, begin), false, false};
        const char* escaped = begin;  // the end of the last escape
        for (; stop != end_ && !is(*stop, kNewline | kHash); stop = find_special(stop, end_)) {
            found.ampersand |= *stop == '&';
            found.escaped |= *stop != '&';
            if (*stop == '\\')
                escaped = stop = escape_end(stop, end_, kNewline);
            else
                ++stop;
        }
        found.where.end = without_blanks(escaped, stop);
        sink_.value(found);
        if (found.escaped) line_ += count_newlines(begin, escaped);
        skip_line(stop);
    }

    // A value that begins with "&".
    bool special_value() {
        constexpr std::string_view kList = "&Tbl{", kArray = "&Arr{", kUndef = "&Undef{}",
                                   kLiteral = "&Literal";
        if (begins_with(at_, end_, kList)) return open(Block::kList, kList.size());
        if (begins_with(at_, end_, kArray)) return open(Block::kArray, kArray.size());
        if (begins_with(at_, end_, kUndef)) {
            sink_.undef(span(at_, at_ + kUndef.size()));
            skip_line(at_);
            return true;
        }
        const char* behind = at_ + kLiteral.size();
        if (begins_with(at_, end_, kLiteral) && behind != end_ && *behind != '\n')
            return literal(behind);
        if (const char* function = function_end(at_, end_)) {
            sink_.function(span(at_, function));
            skip_line(function);
            return true;
        }
        ordinary_value();
        return true;
    }

    bool literal(const char* behind) {
        const LiteralParts parts = split_literal(behind, end_);
        const char* begin = at_;
        if (parts.closed == nullptr) {
            sink_.endless(span(begin, find(begin, end_, '\n')));
            line_ += count_newlines(begin, end_);
            level_ = 1;
            return false;
        }
        const char* text_end = find(parts.text, parts.text_end, '\0');
        const std::string_view text{parts.text, static_cast<std::size_t>(text_end - parts.text)};
        sink_.literal(Literal{span(begin, parts.closed), text});
        line_ += count_newlines(begin, parts.closed);
        at_ = parts.closed;
        if (at_[-1] != '\n') skip_line(at_);  // a newline may be what closes
        return true;
    }

    bool open(Block block, std::size_t length) {
        const Span where = span(at_, at_ + length);
        if (level_ == kDeepest) {
            sink_.too_deep(where, block);
            return clean_ = false;
        }
        sink_.open(where, block);
        ++level_;
        lists_ = (lists_ & ~(1u << level_)) | static_cast<unsigned>(block == Block::kList)
                                                  << level_;
        skip_line(at_);
        return true;
    }

    bool close() {
        const Span where = span(at_, at_ + 1);
        if (level_ == 0) {
            sink_.stray_close(where);
            return clean_ = false;
        }
        --level_;
        sink_.close(where);
        skip_line(at_);
        return true;
    }

    Sink& sink_;
    const char* at_;
    const char* end_;
    long line_ = 1;
    int level_ = 0;
    unsigned lists_ = 0;  // bit n: the block at level n is a list
    bool clean_ = true;
    bool missing_quote_[2] = {};
};

}  // namespace scanning

template <class Sink>
Ending scan(std::string_view text, Sink& sink) {
    return scanning::Scanner<Sink>(text, sink).run();
}

}  // namespace morva::pf
