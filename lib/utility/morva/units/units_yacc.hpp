// The grammar of unit expressions and of the units table.
#pragma once

#include "units/units.hpp"
#include "units/units_lex.hpp"

namespace morva::units {

// A name in an expression, found. A negative power divides.
struct Term {
    const Unit* unit;
    double prefix;
    int power;
};

// A parsed expression: records are looked at when it is evaluated.
struct Expression {
    double number = 1;
    Vector<Term> terms;
};

// The value of an expression, without the name. False when it is out of range.
bool evaluate(double number, const Term* terms, std::size_t count, Unit* value);

// Reads a text line by line. Table lines add to the dictionary; what is wrong is appended to the
// messages.
class Parser {
  public:
    Parser(const Dictionary& units, std::string_view text, Messages* messages)
        : units_(units), scanner_(text), messages_(messages) {
        advance();
        advance();
    }

    enum class Line { end, table, expression, wrong };
    Line read_line();
    int line() const { return now_.line; }
    // Goes on behind a line that was wrong.
    void skip_line();

    // The text as one expression.
    bool read_expression(Expression* expression);

  private:
    void advance();
    bool fail(const Token& at, String text);
    bool warn(const Token& at, String text);
    bool ends_line() const { return now_.kind == Kind::newline || now_.kind == Kind::end; }
    bool begins_term() const { return now_.kind == Kind::name || now_.is('/'); }

    bool power(int* n);
    bool finite_number(double* number);
    bool powers_of_number(double* number);
    bool number_expression(double* number);
    bool factor(int sign, Expression* expression);
    bool term(Expression* expression);
    bool expression(Expression* expression);
    bool value_of(const Expression& expression, const Token& at, Unit* value);
    bool origin(Unit* value);

    Line end_of_line(bool good);
    bool basic_unit();
    bool definition();

    Dictionary units_;
    Scanner scanner_;
    Messages* messages_;
    Token now_{}, after_{};
};

}  // namespace morva::units
