// Bytes made readable for people.
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "morva/files.h"

namespace {

constexpr int kBytesALine = 16;
constexpr int kHexColumn = 10;                                 // behind the offset
constexpr int kTextColumn = kHexColumn + 3 * kBytesALine + 2;  // behind the hex, which has a gap
constexpr int kLongestLine = kTextColumn + kBytesALine + 3;    // two bars and the newline
constexpr char kDigits[] = "0123456789abcdef";

constexpr bool is_printable(unsigned char c) {
    return c >= 0x20 && c < 0x7f;
}

// Writes the line of up to sixteen bytes at `offset`; returns its length.
int format_line(const unsigned char* bytes, int n, unsigned offset, char* line) {
    std::memset(line, ' ', kTextColumn);
    for (int i = 7; i >= 0; --i, offset >>= 4) line[i] = kDigits[offset & 0xf];
    char* text = line + kTextColumn;
    *text++ = '|';
    for (int i = 0; i < n; ++i) {
        char* hex = line + kHexColumn + 3 * i + (i >= kBytesALine / 2);
        hex[0] = kDigits[bytes[i] >> 4];
        hex[1] = kDigits[bytes[i] & 0xf];
        *text++ = is_printable(bytes[i]) ? static_cast<char>(bytes[i]) : '.';
    }
    *text++ = '|';
    *text++ = '\n';
    return static_cast<int>(text - line);
}

// Hands each line to `take(text, length)`.
template <class Take>
void for_each_line(const void* bytes, int n, Take take) {
    const auto* from = static_cast<const unsigned char*>(bytes);
    char line[kLongestLine];
    for (long at = 0; at < n; at += kBytesALine) {
        const int count = n - at < kBytesALine ? static_cast<int>(n - at) : kBytesALine;
        take(line, static_cast<std::size_t>(
                       format_line(from + at, count, static_cast<unsigned>(at), line)));
    }
}

struct Escape {
    unsigned char byte;
    char letter;
};
constexpr Escape kEscapes[] = {{'\n', 'n'}, {'\t', 't'}, {'\r', 'r'}, {'\\', '\\'},
                               {'\a', 'a'}, {'\b', 'b'}, {'\f', 'f'}, {'\v', 'v'}};

// Writes one byte's printable form; returns its length, at most four.
int format_byte(unsigned char byte, char* form) {
    form[0] = '\\';
    for (const Escape& row : kEscapes)
        if (row.byte == byte) {
            form[1] = row.letter;
            return 2;
        }
    if (is_printable(byte)) {
        form[0] = static_cast<char>(byte);
        return 1;
    }
    for (int i = 0; i < 3; ++i) form[1 + i] = static_cast<char>('0' + (byte >> (6 - 3 * i) & 7));
    return 4;
}

}  // namespace

extern "C" {

void hexdump(FILE* stream, const void* bytes, int n) {
    if (stream == nullptr) return;
    ::flockfile(stream);
    for_each_line(bytes, n, [stream](const char* line, std::size_t length) {
        std::fwrite(line, 1, length, stream);
    });
    ::funlockfile(stream);
}

char* hexdump_string(const char* prefix, const void* bytes, int n) {
    const std::string_view first(prefix != nullptr ? prefix : "");
    const std::size_t lines =
        n > 0 ? (static_cast<std::size_t>(n) + kBytesALine - 1) / kBytesALine : 0;
    auto* result = static_cast<char*>(
        morva::must_malloc(lines * (first.size() + kLongestLine) + 1, "result", MORVA_HERE));
    char* end = result;
    for_each_line(bytes, n, [&](const char* line, std::size_t length) {
        end += first.copy(end, first.size());
        std::memcpy(end, line, length);
        end += length;
    });
    *end = '\0';
    return result;
}

char* printable_string(const void* bytes, int n, char* result, int size) {
    if (result == nullptr || size <= 0) return result;
    const auto* from = static_cast<const unsigned char*>(bytes);
    char* end = result;
    int left = size - 1;
    for (int i = 0; i < n; ++i) {
        char form[4];
        const int length = format_byte(from[i], form);
        if (length > left) break;
        std::memcpy(end, form, static_cast<std::size_t>(length));
        end += length;
        left -= length;
    }
    *end = '\0';
    return result;
}

}  // extern "C"
