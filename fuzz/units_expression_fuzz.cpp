// Unit expressions: whatever the text, it is refused with a reason or has a value, the same at the
// second reading; written out in basic units, the value is read as itself, and converting an
// expression to itself changes nothing.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva/elog.h"
#include "morva/units.h"

namespace {

constexpr char kTable[] =
    "! m\n! s\n! kg\nkm = 1000 m\nhour = 3600 s\ninch = .0254 m\njoule = kg m^2/s^2\n"
    "glass = 2 m\n%g = 9.8 m/s^2\ndegC = s @ 273.15\n";

void require(bool holds) {
    if (!holds) std::abort();
}

bool read_table() {
    char path[] = "/tmp/units-fuzz-XXXXXX";
    const int fd = ::mkstemp(path);
    require(::write(fd, kTable, sizeof kTable - 1) == sizeof kTable - 1 && ::close(fd) == 0);
    ::setenv("UNITS", path, 1);
    require(units_init() == 0);
    return ::unlink(path) == 0;
}

std::string written(const Unit& unit) {
    char text[128];
    std::snprintf(text, sizeof text, "%.17g m^%d s^%d kg^%d", unit.factor, unit.exponents[0],
                  unit.exponents[1], unit.exponents[2]);
    return text;
}

bool equal(const Unit& a, const Unit& b) {
    return a.factor == b.factor && std::memcmp(a.exponents, b.exponents, sizeof a.exponents) == 0;
}

bool is_writable(const Unit& unit) {
    for (const int power : unit.exponents)
        if (std::abs(power) > 1000) return false;
    return unit.factor == 0 || std::isnormal(unit.factor);
}

void check(const char* text, const Unit& value) {
    Unit again{};
    require(std::isfinite(value.factor) && units_parse(text, &again) == 0 && equal(value, again));
    if (is_writable(value))
        require(units_parse(written(value).c_str(), &again) == 0 && equal(value, again));
    double result = 0;
    const int status = units_convert(1, text, &result, text, nullptr);
    require(value.factor == 0 ? status == -1 : status == 0 && result == 1);
    Tbl* names = units_match(text);
    require(names != nullptr);
    freetbl(names, std::free);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = read_table();
    require(ready);
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int mark = elog_mark();
    Unit value{};
    if (units_parse(text.c_str(), &value) == 0)
        check(text.c_str(), value);
    else
        require(elog_mark() > mark);
    elog_clear_register(0);
    return 0;
}
