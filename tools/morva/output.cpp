// Colours, JSON texts, and the end of the output.
#include "output.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "command.hpp"
#include "morva.h"

namespace tool {

namespace {

bool colours_wanted() {
    static const bool wanted = [] {
        const char* refused = std::getenv("NO_COLOR");
        const char* terminal = std::getenv("TERM");
        return ::isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0') &&
               (terminal == nullptr || std::string_view(terminal) != "dumb");
    }();
    return wanted;
}

// Length of the UTF-8 character that the text begins with, or 0 when that is none.
std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (length == 0 || lead > 0xf4 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xc0) != 0x80) return 0;
    const unsigned char next = byte(1);
    const bool overlong = (lead == 0xe0 && next < 0xa0) || (lead == 0xf0 && next < 0x90);
    const bool outside = (lead == 0xed && next > 0x9f) || (lead == 0xf4 && next > 0x8f);
    return overlong || outside ? 0 : length;
}

// Adds the character at the front of the text and tells how many bytes it took.
std::size_t append_json(std::string& json, std::string_view text) {
    const auto c = static_cast<unsigned char>(text[0]);
    if (c >= 0x80) {
        if (const std::size_t length = utf8_length(text); length > 0) {
            json.append(text.substr(0, length));
            return length;
        }
    } else if (c >= 0x20 && c != 0x7f) {
        if (c == '"' || c == '\\') json += '\\';
        json += static_cast<char>(c);
        return 1;
    } else if (c == '\n' || c == '\t') {
        json += c == '\n' ? "\\n" : "\\t";
        return 1;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
    json += escape;
    return 1;
}

}  // namespace

std::string coloured(Colour colour, std::string_view text) {
    static constexpr const char* kCodes[] = {"", "1", "1;31", "32", "1;33", "36"};
    if (colour == Colour::plain || !colours_wanted()) return std::string(text);
    return std::string("\033[") + kCodes[static_cast<int>(colour)] + "m" + std::string(text) +
           "\033[0m";
}

std::string one_line(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escape[8] = {c, '\0'};
        if (c == '\n')
            std::snprintf(escape, sizeof escape, "\\n");
        else if (c == '\t')
            std::snprintf(escape, sizeof escape, "\\t");
        else if (byte < 0x20 || byte == 0x7f)
            std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(byte));
        line += escape;
    }
    return line;
}

std::string plain_utf8(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        const std::size_t length = byte < 0x80 ? byte >= 0x20 && byte != 0x7f : utf8_length(text);
        plain += length == 0 ? "?" : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return plain;
}

void print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

int finish(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    elog_complain(1, "can't write the output");
    return kUnusable;
}

std::string json_string(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) text.remove_prefix(append_json(json, text));
    return json + '"';
}

JsonObject& JsonObject::raw(std::string_view key, std::string_view json) {
    if (body_.size() > 1) body_ += ',';
    body_ += json_string(key);
    body_ += ':';
    body_ += json;
    return *this;
}

void JsonList::add(std::string_view json) {
    if (body_.size() > 1) body_ += ',';
    body_ += json;
}

}  // namespace tool
