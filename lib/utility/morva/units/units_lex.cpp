// The scanner: blanks and comments are passed over, everything else is a token.
#include "units/units_lex.hpp"

#include <charconv>
#include <limits>

namespace morva::units {
namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_name(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '%' || c == '$';
}

template <class Belongs>
std::size_t run_length(std::string_view text, Belongs belongs) {
    std::size_t length = 0;
    while (length < text.size() && belongs(text[length])) ++length;
    return length;
}

// "e-3", when an exponent is what follows.
std::size_t exponent_length(std::string_view text) {
    if (text.empty() || (text.front() != 'e' && text.front() != 'E')) return 0;
    const std::size_t sign = text.size() > 1 && (text[1] == '-' || text[1] == '+') ? 1 : 0;
    const std::size_t digits = run_length(text.substr(1 + sign), is_digit);
    return digits > 0 ? 1 + sign + digits : 0;
}

double value_of(std::string_view number) {
    double value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    const bool whole = error == std::errc() && end == number.data() + number.size();
    return whole ? value : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

void Scanner::skip_blanks() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t')) ++at_;
    if (at_ < text_.size() && text_[at_] == '#')
        at_ = std::min(text_.find('\n', at_), text_.size());
}

// 0 when no number stands here. A lone point is none.
std::size_t Scanner::number_length() const {
    const std::string_view rest = text_.substr(at_);
    const std::size_t sign = rest.front() == '-' ? 1 : 0;
    const std::size_t digits =
        run_length(rest.substr(sign), [](char c) { return is_digit(c) || c == '.'; });
    if (rest.substr(sign, digits).find_first_not_of('.') == rest.npos || digits == 0) return 0;
    return sign + digits + exponent_length(rest.substr(sign + digits));
}

Token Scanner::token(Kind kind, std::size_t length) {
    const Token made = {kind, text_.substr(at_, length), 0, line_,
                        static_cast<int>(at_ - line_start_) + 1};
    at_ += length;
    return made;
}

Token Scanner::next() {
    skip_blanks();
    if (at_ == text_.size()) return token(Kind::end, 0);
    if (text_[at_] == '\n') {
        const Token newline = token(Kind::newline, 1);
        ++line_;
        line_start_ = at_;
        return newline;
    }
    if (const std::size_t length = run_length(text_.substr(at_), is_name); length > 0)
        return token(Kind::name, length);
    if (const std::size_t length = number_length(); length > 0) {
        Token number = token(Kind::number, length);
        number.number = value_of(number.text);
        return number;
    }
    return token(Kind::other, 1);
}

}  // namespace morva::units
