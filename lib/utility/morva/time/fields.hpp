// A time broken down, and its way into text.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "base/memory.hpp"
#include "morva/epoch.h"
#include "time/calendar.hpp"

namespace morva::time {

// The integer part, clamped to what the type holds; 0 for NaN.
template <class Integer = int>
Integer to_integer(double value) {
    constexpr double kMost = static_cast<double>(std::numeric_limits<Integer>::max());
    constexpr double kLeast = static_cast<double>(std::numeric_limits<Integer>::min());
    if (value >= kMost) return std::numeric_limits<Integer>::max();
    if (value <= kLeast) return std::numeric_limits<Integer>::min();
    return std::isnan(value) ? 0 : static_cast<Integer>(value);
}

// floor, for what an int64_t holds.
inline std::int64_t floor_of(double value) {
    const auto whole = static_cast<std::int64_t>(value);
    return whole - (value < static_cast<double>(whole));
}

struct Fields {
    double epoch;
    double second;
    std::string_view zone;  // kLongestAbbreviation at most
    int year;
    int month;
    int day;
    int doy;
    int hour;
    int minute;
    int whole_second;              // of second
    bool may_load_formats = true;  // to learn which of month and day comes first
};

constexpr std::size_t kLongestAbbreviation = 255;

// A time in UTC, as etoh breaks it down.
Fields utc_fields(double epoch);

// A growing text, on the stack while it is short.
class Text {
  public:
    Text() = default;
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    // As long as the text ends before this, there is room for kRoom bytes. Otherwise grow, which
    // returns the end of the text anew.
    const char* limit() const { return end_ - kRoom; }
    char* grow(char* at);
    char* start() { return start_; }
    void finish(char* at) { size_ = static_cast<std::size_t>(at - start_); }
    std::string_view view() const { return {start_, size_}; }
    // A copy from malloc.
    char* copy() const;

    // The longest text of one code: %E of the largest double.
    static constexpr std::size_t kRoom = 400;

  private:
    char first_[1024 + kRoom];
    char* start_ = first_;
    char* end_ = first_ + sizeof first_;
    std::size_t size_ = 0;
    malloced<char> larger_;
};

// Writes the time as a format says.
void put_time(Text& text, const char* format, const Fields& fields);

// As put_time, for an epoch time in a zone that zepoch2str would be given. Holds no lock meanwhile.
void put_time_in(const char* zone, Text& text, const char* format, double epoch);

// A number as "%width.precisionf" and "%width.precisiong" show it in the "C" locale. They write at
// most Text::kRoom bytes and return the end.
char* put_fixed(char* at, double value, int width, int precision);
char* put_general(char* at, double value, int width, int precision);

}  // namespace morva::time
