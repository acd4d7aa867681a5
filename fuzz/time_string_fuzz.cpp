// Time strings of any bytes.
//
// Properties: the calls agree on the time and on the number of errors; a message is registered
// exactly when there is an error that has one; the steps of an explanation cover the text's tokens
// in their order. What depends on the clock is compared with some patience.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva/elog.h"
#include "morva/epoch.h"
#include "morva/str2epoch.h"

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

// Up to a day: midnight may pass between two calls that count from today.
bool same(double a, double b) {
    return a == b || std::abs(a - b) <= 86401;
}

void check_steps(Tbl* steps, long length, int errors) {
    long end = 0;
    bool concluding = false, wrong = false;
    for (long i = 0; i < maxtbl(steps); ++i) {
        const auto* step = static_cast<const Epoch_step*>(gettbl(steps, i));
        check(step->said != nullptr && *step->said != '\0');
        wrong |= std::strstr(step->said, "str2epoch: ") != nullptr;
        wrong |= std::strcmp(step->said, "nothing is set") == 0;
        concluding |= step->rule == 0;
        check(concluding == (step->rule == 0));
        if (concluding) continue;
        check(step->rule <= 65 && step->first > end && step->last >= step->first);
        end = step->last;
    }
    check(end <= length && wrong == (errors > 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int mark = elog_mark();
    is_month_first();
    Month_first = size % 2 == 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    double logged = 0, asked = 0, explained = 0, strict = -7;
    int errors = -1;
    const double read = str2epoch(text.c_str());
    const int ok = is_epoch_string(text.c_str(), &asked);
    Tbl* steps = str2epoch_explain(text.c_str(), &explained, &errors);
    check(elog_mark() == mark);
    const int result = zstr2epoch(text.c_str(), &logged);
    check(result <= 0 && result == -errors && (ok != 0) == (result == 0));
    check(same(read, logged) && same(read, asked) && same(read, explained));
    check(elog_mark() == mark || result < 0);
    check_steps(steps, static_cast<long>(std::strlen(text.c_str())), errors);
    freetbl(steps, free_epoch_step);
    const int refused = str2epoch_strict(text.c_str(), &strict);
    check(refused == result || (refused == -1 && result == 0));
    check(refused == 0 ? same(strict, read) : strict == -7);
    elog_flush(0, mark);
    return 0;
}
