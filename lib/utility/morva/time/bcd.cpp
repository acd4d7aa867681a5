// The BCD clock: twelve decimal digits in six bytes, DDDHHMMSShhh with hundredths of a second.
#include <cmath>

#include "morva/epoch.h"
#include "skerrows.h"
#include "time/fields.hpp"

namespace {

constexpr int kDigits = 12;

using Digits = int[kDigits];

// Puts a number into `count` digits that end before `end`.
void put_digits(int* end, int count, int value) {
    for (; count > 0; --count, value /= 10) *--end = value >= 0 ? value % 10 : 0;
}

int number(const int* digits, int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) value = 10 * value + digits[i];
    return value;
}

}  // namespace

extern "C" {

void epoch2bcd(unsigned char* bcd, double epoch) {
    const auto fields = morva::time::utc_fields(epoch);
    const int second = morva::time::to_integer(fields.second);
    Digits digits;
    put_digits(digits + 3, 3, fields.doy);
    put_digits(digits + 5, 2, fields.hour);
    put_digits(digits + 7, 2, fields.minute);
    put_digits(digits + 9, 2, second);
    put_digits(digits + 12, 3, morva::time::to_integer((fields.second - second) * 100));
    for (int i = 0; i < kDigits; i += 2)
        bcd[i / 2] = static_cast<unsigned char>(digits[i] << 4 | digits[i + 1]);
}

void bcdtime(const unsigned char* bcd, DateTime* time) {
    Digits digits;
    for (int i = 0; i < kDigits; i += 2) {
        digits[i] = bcd[i / 2] >> 4;
        digits[i + 1] = bcd[i / 2] & 15;
    }
    time->year = todaysdate() / 1000;
    time->doy = number(digits, 3);
    time->hour = number(digits + 3, 2);
    time->minute = number(digits + 5, 2);
    time->second = number(digits + 7, 2) + number(digits + 9, 3) / 100.0;
    time->date = 1000 * static_cast<long>(time->year) + time->doy;
    htoe(time);
}

}  // extern "C"
