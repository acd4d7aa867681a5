// How the commands write: colours for people, JSON for programs.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace tool {

// Colours, used on a terminal only and never when NO_COLOR is set to something.
enum class Colour { plain, bold, red, green, yellow, cyan };

// The text in a colour, or as it is when standard output does not show colours.
std::string coloured(Colour colour, std::string_view text);

// The text on one line, as a terminal may show it: control characters as in C ("\n", "\033").
std::string one_line(std::string_view text);

// The text as UTF-8 without control characters: a question mark stands for every other byte.
std::string plain_utf8(std::string_view text);

// Writes to standard output. What cannot be written (a full disk, a closed pipe) shows when
// the program finishes; see finish.
void print(std::string_view text);

// Flushes standard output: `status`, or kUnusable with a complaint when output was lost.
int finish(int status);

// The text as a JSON string, quotes included. Bytes that are no UTF-8 appear as \u0080 to \u00ff.
std::string json_string(std::string_view text);

// Builds an object: {"file":"a.pf","line":3}.
class JsonObject {
  public:
    JsonObject& text(std::string_view key, std::string_view value) {
        return raw(key, json_string(value));
    }
    JsonObject& number(std::string_view key, long value) { return raw(key, std::to_string(value)); }
    JsonObject& boolean(std::string_view key, bool value) {
        return raw(key, value ? "true" : "false");
    }
    JsonObject& raw(std::string_view key, std::string_view json);
    std::string str() const { return body_ + "}"; }

  private:
    std::string body_ = "{";
};

// Builds a list of JSON values.
class JsonList {
  public:
    void add(std::string_view json);
    std::string str() const { return body_ + "]"; }

  private:
    std::string body_ = "[";
};

}  // namespace tool
