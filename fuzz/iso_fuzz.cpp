// ISO 8601 times: of any bytes, and of any number of nanoseconds.
//
// Properties: a text is either refused, with one message and nothing stored, or read alike whatever
// is asked for; what is read, written to the nanosecond, reads back the same, and cannot be read
// with a blank behind it. The first eight bytes, taken as nanoseconds, come back cut to as many
// digits as were written.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva/elog.h"
#include "morva/iso.h"

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

std::string written(std::int64_t ns, int digits) {
    char* text = epoch2iso(ns, digits);
    const std::string copy(text);
    std::free(text);
    return copy;
}

std::int64_t read_back(std::int64_t ns, int digits) {
    std::int64_t back = ~ns;
    check(iso2epoch(written(ns, digits).c_str(), nullptr, &back) == 0);
    return back;
}

void check_text(const std::string& text) {
    const int mark = elog_mark();
    double epoch = -7, alone = -7;
    std::int64_t ns = -7;
    const bool read = iso2epoch(text.c_str(), &alone, nullptr) == 0;
    check(elog_mark() == mark + (read ? 0 : 1) && (read || alone == -7));
    const bool held = iso2epoch(text.c_str(), &epoch, &ns) == 0;
    check(held ? read && epoch == alone : epoch == -7 && ns == -7);
    check(held || !read || std::fabs(alone) >= 9.2e9);
    if (held) {
        check(std::fabs(epoch - static_cast<double>(ns) / 1e9) <= 4e-6);
        check(read_back(ns, 9) == ns);
    }
    if (read) check(iso2epoch((text.c_str() + std::string(" ")).c_str(), &epoch, &ns) == -1);
    elog_flush(0, mark);
}

void check_number(std::int64_t ns, int digits) {
    std::int64_t unit = 1;
    for (int i = digits; i < 9; ++i) unit *= 10;
    const std::int64_t over = (ns % unit + unit) % unit;
    if (ns < INT64_MIN + unit) return;  // cut, it would be beyond what 64 bits hold
    check(read_back(ns, digits) == ns - over);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(std::string(reinterpret_cast<const char*>(data), size));
    std::int64_t ns = 0;
    if (size < sizeof ns) return 0;
    std::memcpy(&ns, data, sizeof ns);
    check_number(ns, static_cast<int>(size % 10));
    return 0;
}
