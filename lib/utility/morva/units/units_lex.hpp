// Tokens of unit expressions and of the units table.
#pragma once

#include <string_view>

namespace morva::units {

enum class Kind { end, newline, number, name, other };

struct Token {
    Kind kind;
    std::string_view text;
    double number;  // of a number; not finite for one that no double holds, or with two points
    int line, column;

    bool is(char c) const { return kind == Kind::other && text.front() == c; }
};

// Takes a text apart, the longest match first. The text must outlive the tokens.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : text_(text) {}
    Token next();

  private:
    void skip_blanks();
    std::size_t number_length() const;
    Token token(Kind kind, std::size_t length);

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t line_start_ = 0;
    int line_ = 1;
};

}  // namespace morva::units
