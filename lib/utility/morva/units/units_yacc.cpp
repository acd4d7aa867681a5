// The parser, by hand: a function per rule, one token ahead of the current one.
//
//     line          definition | basic unit | newline | expression
//     definition    NAME "=" expression [ "@" numbers ] newline
//     basic unit    "!" NAME newline
//     expression    numbers | numbers term | term numbers | term
//     numbers       power { ("*" | "/") power }       power    NUMBER { "^" NUMBER }
//     term          factor { [ "*" | "/" ] factor }   factor   { "/" } NAME [ "^" NUMBER ]
//
// A "/" behind numbers belongs to them when another number follows, to the term otherwise: 1/s.
#include "units/units_yacc.hpp"

#include <cmath>
#include <cstdlib>
#include <functional>

namespace morva::units {
namespace {

// By multiplying, so that small powers of exact numbers are exact.
double raised(double base, int power) {
    double result = 1;
    for (int i = 0; i < power; ++i) result *= base;
    for (int i = 0; i > power; --i) result /= base;
    return result;
}

String joined(const char* before, std::string_view name, const char* behind = "'") {
    return String(before).append(name).append(behind);
}

void apply_power(const Term& term, Unit* value) {
    const double factor = raised(term.unit->factor * term.prefix, std::abs(term.power));
    value->factor = term.power < 0 ? value->factor / factor : value->factor * factor;
    // Unsigned: a program's own records may hold anything.
    for (int i = 0; i < UNITS_BASIS; ++i)
        value->exponents[i] = static_cast<int>(static_cast<unsigned>(value->exponents[i]) +
                                               static_cast<unsigned>(term.power) *
                                                   static_cast<unsigned>(term.unit->exponents[i]));
}

// The same without multiplications, for the commonest powers.
void apply(const Term& term, Unit* value) {
    const auto& exponents = term.unit->exponents;
    const auto combine = [&](auto operation) {
        for (int i = 0; i < UNITS_BASIS; ++i)
            value->exponents[i] = static_cast<int>(operation(
                static_cast<unsigned>(value->exponents[i]), static_cast<unsigned>(exponents[i])));
    };
    if (term.power == 1) {
        value->factor *= term.unit->factor * term.prefix;
        combine(std::plus<>());
    } else if (term.power == -1) {
        value->factor /= term.unit->factor * term.prefix;
        combine(std::minus<>());
    } else {
        apply_power(term, value);
    }
}

}  // namespace

bool evaluate(double number, const Term* terms, std::size_t count, Unit* value) {
    value->factor = 1;
    value->offset = 0;
    for (int& exponent : value->exponents) exponent = 0;
    for (std::size_t i = 0; i < count; ++i) apply(terms[i], value);
    value->factor *= number;
    if (count == 1 && number == 1 && terms->power == 1 && terms->prefix == 1)
        value->offset = terms->unit->offset;
    int most = 0;
    for (int exponent : value->exponents) most |= exponent ^ exponent >> 31;
    return std::isfinite(value->factor) && most < 1 << 10;
}

void Parser::advance() {
    now_ = after_;
    after_ = scanner_.next();
}

bool Parser::fail(const Token& at, String text) {
    messages_->push_back({false, at.line, at.column, std::move(text), {}});
    return false;
}

bool Parser::warn(const Token& at, String text) {
    messages_->push_back({true, at.line, at.column, std::move(text), {}});
    return true;
}

// What stands behind "^", together with it.
bool Parser::power(int* n) {
    advance();
    if (now_.kind != Kind::number) return fail(now_, "syntax error");
    if (!(std::fabs(now_.number) <= kMostPower))
        return fail(now_, joined("power '", now_.text, "' is out of range"));
    *n = static_cast<int>(now_.number);
    if (*n != now_.number) return fail(now_, joined("power '", now_.text, "' is no whole number"));
    advance();
    return true;
}

bool Parser::finite_number(double* number) {
    if (now_.kind != Kind::number) return fail(now_, "syntax error");
    *number = now_.number;
    if (!std::isfinite(*number)) return fail(now_, joined("bad number '", now_.text));
    advance();
    return true;
}

bool Parser::powers_of_number(double* number) {
    if (!finite_number(number)) return false;
    for (int n; now_.is('^');) {
        if (!power(&n)) return false;
        *number = raised(*number, n);
    }
    return true;
}

bool Parser::number_expression(double* number) {
    const Token first = now_;
    if (!powers_of_number(number)) return false;
    while (now_.is('*') || (now_.is('/') && after_.kind == Kind::number)) {
        const bool divide = now_.is('/');
        double next;
        advance();
        if (!powers_of_number(&next)) return false;
        *number = divide ? *number / next : *number * next;
    }
    return std::isfinite(*number) || fail(first, "number out of range");
}

// `sign` is -1 behind a division.
bool Parser::factor(int sign, Expression* expression) {
    for (; now_.is('/'); advance()) sign = -sign;
    if (now_.kind != Kind::name) return fail(now_, "syntax error");
    const Token name = now_;
    Found found;
    if (!find_unit(units_.units, name.text, &found)) {
        fail(name, joined("can't find unit '", name.text));
        if (const char* nearest = nearest_name(units_.units, name.text))
            messages_->back().hint = nearest;
        return false;
    }
    advance();
    int n = 1;
    if (now_.is('^') && !power(&n)) return false;
    if (expression->terms.size() == kMostTerms) return fail(name, "memory exhausted");
    expression->terms.push_back({found.unit, found.prefix, sign * n});
    return true;
}

bool Parser::term(Expression* expression) {
    if (!factor(1, expression)) return false;
    while (begins_term() || now_.is('*')) {
        const bool divide = now_.is('/');
        if (now_.kind != Kind::name) advance();
        if (!factor(divide ? -1 : 1, expression)) return false;
    }
    return true;
}

bool Parser::expression(Expression* expression) {
    if (now_.kind == Kind::number) {
        if (!number_expression(&expression->number)) return false;
        return !begins_term() || term(expression);
    }
    if (!term(expression)) return false;
    return now_.kind != Kind::number || number_expression(&expression->number);
}

bool Parser::value_of(const Expression& expression, const Token& at, Unit* value) {
    return evaluate(expression.number, expression.terms.data(), expression.terms.size(), value) ||
           fail(at, "value out of range");
}

bool Parser::origin(Unit* value) {
    if (!now_.is('@')) return true;
    advance();
    return number_expression(&value->offset);
}

bool Parser::basic_unit() {
    advance();
    const Token name = now_;
    if (name.kind != Kind::name) return fail(name, "syntax error");
    advance();
    if (!ends_line()) return fail(now_, "syntax error");
    const int index = units_.basis_count();
    if (index >= UNITS_BASIS)
        return warn(name, joined("too many basic units, ignoring new unit '", name.text));
    bool replacing;
    Unit* unit = units_.add(String(name.text).c_str(), &replacing);
    unit->exponents[index] = 1;
    if (units_.basis == nullptr) units_.basis = newtbl(UNITS_BASIS);
    pushtbl(units_.basis, unit);
    if (replacing) warn(name, joined("replacing definition for ", name.text, ""));
    return true;
}

bool Parser::definition() {
    const Token name = now_;
    Expression meaning;
    Unit value{};
    advance();
    advance();
    if (!expression(&meaning) || !value_of(meaning, name, &value) || !origin(&value)) return false;
    if (!ends_line()) return fail(now_, "syntax error");
    bool replacing;
    copy_basis(units_.add(String(name.text).c_str(), &replacing), &value);
    if (replacing) warn(name, joined("replacing definition for ", name.text, ""));
    return true;
}

Parser::Line Parser::end_of_line(bool good) {
    if (!good) return Line::wrong;
    if (now_.kind == Kind::newline) advance();
    return Line::table;
}

Parser::Line Parser::read_line() {
    if (now_.kind == Kind::end) return Line::end;
    if (now_.kind == Kind::newline) return end_of_line(true);
    if (now_.is('!')) return end_of_line(basic_unit());
    if (now_.kind == Kind::name && after_.is('=')) return end_of_line(definition());
    Expression unused;
    if (!expression(&unused)) return Line::wrong;
    if (!ends_line()) fail(now_, "syntax error");
    return ends_line() ? Line::expression : Line::wrong;
}

void Parser::skip_line() {
    while (!ends_line()) advance();
    if (now_.kind == Kind::newline) advance();
}

bool Parser::read_expression(Expression* read) {
    if (!expression(read)) return false;
    while (now_.kind == Kind::newline) advance();
    if (now_.kind != Kind::end) return fail(now_, "syntax error");
    Unit value;
    return value_of(*read, now_, &value);
}

}  // namespace morva::units
