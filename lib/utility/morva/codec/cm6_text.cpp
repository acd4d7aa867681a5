#include "codec/cm6_text.hpp"

#include <algorithm>

namespace morva {
namespace {

constexpr std::string_view kChecksumLine = "\nCHK2 ";
constexpr std::string_view kHeaders[] = {"WID2 ", "STA2 ", "EID2 ", "BEA2 "};

// A data line may begin with the letters DAT2, so the line must end there or go on with a blank.
// Nor are they a header right before the checksum line: they are all the data then.
bool is_data_header(std::string_view text) {
    if (text.size() < 5 || !text.starts_with("DAT2")) return false;
    const auto rest = text.substr(4);
    if (rest.starts_with("\nCHK2 ") || rest.starts_with("\r\nCHK2 ")) return false;
    return rest[0] == ' ' || rest[0] == '\r' || rest[0] == '\n';
}

bool is_header(std::string_view text) {
    return is_data_header(text) ||
           std::any_of(std::begin(kHeaders), std::end(kHeaders),
                       [&](std::string_view header) { return text.starts_with(header); });
}

std::string_view skip_headers(std::string_view text) {
    while (is_header(text)) {
        const auto newline = text.find('\n');
        text.remove_prefix(newline == text.npos ? text.size() : newline + 1);
    }
    return text;
}

// Data hold no blanks but for the padding of a line, so the blank behind the word is what to look
// for: the search passes over the data at the speed of memchr.
std::size_t find_checksum_line(std::string_view text) {
    constexpr std::size_t kBlank = kChecksumLine.size() - 1;
    for (auto at = text.find(' ', kBlank); at != text.npos; at = text.find(' ', at + 1))
        if (text.substr(at - kBlank, kChecksumLine.size()) == kChecksumLine) return at - kBlank;
    return text.npos;
}

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Reads a decimal integer behind blanks. Digits beyond 64 bits leave the number at the limit.
void read_number(std::string_view text, MessageParts& parts) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    parts.has_number = !text.empty() && is_digit(text.front());
    for (; !text.empty() && is_digit(text.front()); text.remove_prefix(1)) {
        const int digit = text.front() - '0';
        if (__builtin_mul_overflow(parts.stored, 10, &parts.stored) ||
            __builtin_add_overflow(parts.stored, digit, &parts.stored)) {
            parts.stored = INT64_MAX;
            break;
        }
    }
    if (negative) parts.stored = -parts.stored;
}

}  // namespace

MessageParts split_message(std::string_view text) {
    MessageParts parts;
    parts.data = skip_headers(text);
    const auto end = find_checksum_line(parts.data);
    if (end == parts.data.npos) return parts;
    parts.has_checksum_line = true;
    read_number(parts.data.substr(end + kChecksumLine.size()), parts);
    parts.data = parts.data.substr(0, end);
    return parts;
}

}  // namespace morva
