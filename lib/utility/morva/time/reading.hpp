// What a time string has said so far, and what it all means together.
#pragma once

#include <cstdint>
#include <string_view>

#include "time/zones.hpp"

namespace morva::time {

// The fields that the parts of a text set.
struct Parts {
    static constexpr double kNotSet = 1e-9;  // of etime

    int year = 1970;
    int month = -1;
    int day = -1;
    int doy = 0;
    int hour = 0;
    int minute = 0;
    double second = 0;
    int weekday = -1;  // read and not used
    int am = -1;       // 1 am, 0 pm
    double etime = kNotSet;
    double x1 = 0;  // bare numbers in their order
    double x2 = 0;
    bool has_zone = false;

    bool operator==(const Parts&) const = default;
};

enum class DateOrder : std::uint8_t { kHouse, kMonthFirst, kDayFirst };

struct Rule;

// Somebody who wants to know how a text is read.
class Listener {
  public:
    virtual void token(const Rule& rule, std::string_view text, const Parts& before,
                       const Parts& after) = 0;
    virtual void fault(const char* reason) = 0;
    virtual void concluded(const char* what) = 0;

  protected:
    ~Listener() = default;
};

struct Reading {
    Reading() noexcept {}  // of members one by one, which is faster than of the whole at once

    Parts parts;
    ZoneRef zone;
    int errors = 0;
    bool log = false;
    bool ambiguous = false;  // which of two numbers is the month?
    DateOrder order = DateOrder::kHouse;
    Listener* listener = nullptr;

    // Counts an error; the first is registered when the caller wants that.
    void fault(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void conclude(const char* what) {
        if (listener != nullptr) listener->concluded(what);
    }
};

// Cuts the text into tokens and lets each do its work.
void scan(const char* text, Reading& reading);

// The epoch time that the parts make. What is wrong with them is counted on top.
double combine(Reading& reading);

// scan and combine.
double read_time(const char* text, Reading& reading);

// A row of the table of tokens.
struct Token {
    std::string_view text;
    int value;  // the rule's
};
struct Rule {
    int number;  // as documented; of the first of several that share a row
    const char* shape;
    void (*take)(Reading&, const Token&);
    const char* meaning;
    int value = 0;  // a month, a day of the week
};

}  // namespace morva::time
