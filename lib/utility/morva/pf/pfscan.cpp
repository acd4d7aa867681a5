// What the scanner meets less often: escapes, functions, literals, end markers.
#include "pf/pfscan.hpp"

#include <algorithm>
#include <cstdint>

namespace morva::pf {
namespace scanning {

long count_newlines(const char* at, const char* end) {
    return std::count(at, end, '\n');
}

const char* escape_end(const char* at, const char* end, int ends) {
    const char* first = at + 1;
    if (first == end) return end;
    if (!is(*first, kDigit)) return first + 1;
    const char* last = end - first > 3 ? first + 3 : end;
    return std::find_if(first, last, [=](char c) { return is(c, ends); });
}

namespace {

// The byte whose octal value up to three characters spell. They may end with anything: what is not
// an octal digit ends the number.
char octal(const char* at, const char* end) {
    unsigned value = 0;
    for (; at != end && *at >= '0' && *at <= '7'; ++at) value = 8 * value + (*at - '0');
    return static_cast<char>(value);
}

char escaped_byte(const char* escape, const char* end) {
    if (end - escape < 2) return '\\';
    switch (const char c = escape[1]) {
        case 'b':
            return '\b';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return is(c, kDigit) ? octal(escape + 1, end) : c;
    }
}

}  // namespace

std::size_t resolve(std::string_view raw, int ends, char* out, std::size_t room) {
    const char* at = raw.data();
    const char* end = at + raw.size();
    std::size_t length = 0;
    while (at != end && length < room) {
        const char* next = *at == '\\' ? escape_end(at, end, ends) : at + 1;
        const char byte = *at == '\\' ? escaped_byte(at, next) : *at;
        if (byte == '\0') break;
        out[length++] = byte;
        at = next;
    }
    return length;
}

const char* plain_key_end(const char* at, const char* end) {
    while (at != end && !is(*at, kBlank | kNewline | kHash))
        at = *at == '\\' ? escape_end(at, end, kBlank | kNewline) : at + 1;
    return at;
}

namespace {

// True when nothing but blanks and a comment stands between `at` and the end of its line.
bool ends_line(const char* at, const char* end) {
    at = skip_blanks(at, end);
    return at == end || *at == '#';
}

}  // namespace

const char* function_end(const char* at, const char* end) {
    const char* name = at + 1;
    if (name == end || !is(*name, kNameStart)) return nullptr;
    const char* open = std::find_if(name, end, [](char c) { return !is(c, kNameStart | kDigit); });
    if (open == end || *open != '(') return nullptr;
    const char* line_end = find(open, end, '\n');
    const char* close = line_end;
    while (close != open && !(close[-1] == ')' && ends_line(close, line_end))) --close;
    return close == open || find(at, close, '\0') != close ? nullptr : close;
}

bool is_end_marker(const char* at, const char* end) {
    for (std::string_view word : {"__END__", "__DATA__", "__EOF__"}) {
        if (!begins_with(at, end, word)) continue;
        const char* behind = skip_blanks(at + word.size(), end);
        return behind == end || *behind == '\n';
    }
    return false;
}

namespace {

// The line behind the one in which `at` stands; end when there is none.
const char* next_line(const char* at, const char* end) {
    at = find(at, end, '\n');
    return at == end ? end : at + 1;
}

LiteralParts up_to_word(const char* quote, const char* end) {
    constexpr std::size_t kLongestWord = 127;
    const char* line_end = find(quote, end, '\n');
    const auto length = static_cast<std::size_t>(line_end - quote);
    const std::string_view terminator{quote, std::min(length, 1 + kLongestWord)};
    const char* text = next_line(line_end, end);
    const std::string_view rest{text, static_cast<std::size_t>(end - text)};
    const std::size_t found = rest.find(terminator);
    if (found == rest.npos) return {text, end, nullptr};
    return {text, text + found, text + found + terminator.size()};
}

// Each character of the row is closed by the next one, so that openers are closed by their
// partners; nothing closes the last one.
constexpr std::string_view kDelimiters = "{}()[]<>`'";

LiteralParts up_to_balance(const char* delimiter, const char* end) {
    const std::size_t i = kDelimiters.find(*delimiter);
    const bool listed = i != kDelimiters.npos;
    const char* closer = listed ? kDelimiters.data() + i + 1 : delimiter + 1;
    const bool endless = listed ? i + 1 == kDelimiters.size() : closer == end;
    if (endless) return {end, end, nullptr};
    const char open = *delimiter, close = *closer;
    // The character that closes may be the newline that ends the opening line.
    const char* text = listed ? next_line(delimiter, end) : next_line(closer, end);
    int64_t depth = 1;
    for (const char* at = text; at != end; ++at) {
        if (*at == close && --depth == 0) return {text, at, at + 1};
        depth += *at == open && open != close;
    }
    return {text, end, nullptr};
}

}  // namespace

LiteralParts split_literal(const char* at, const char* end) {
    return *at == '"' ? up_to_word(at, end) : up_to_balance(at, end);
}

}  // namespace scanning

using namespace scanning;

std::string_view value_text(const Value& value, char* out) {
    const std::string_view raw = value.where.text();
    std::size_t length = raw.size();
    if (value.escaped)
        length = resolve(raw, kNewline, out, raw.size());
    else if (length > 0)
        std::memcpy(out, raw.data(), length);
    std::string_view text{out, length};
    if (!value.escaped) return text;
    constexpr std::string_view kWhite = " \t\n";
    text.remove_prefix(std::min(text.find_first_not_of(kWhite), text.size()));
    return text.substr(0, text.find_last_not_of(kWhite) + 1);
}

String value_text(const Value& value) {
    String room(value.where.text().size(), '\0');
    return String(value_text(value, room.data()));
}

long column_of(std::string_view text, const char* byte) {
    const std::string_view before{text.data(), static_cast<std::size_t>(byte - text.data())};
    return static_cast<long>(before.size() - (before.rfind('\n') + 1)) + 1;
}

}  // namespace morva::pf
