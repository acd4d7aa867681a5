// Numbers and times in texts.
#include "numbers.hpp"

#include <cmath>
#include <cstdio>

#include "output.hpp"
#include "records.hpp"

namespace tool {

bool read_number(const std::string& text, double& value) {
    char* end = nullptr;
    value = fix_strtod(text.c_str(), &end);
    if (!text.empty() && *end == '\0') return true;
    elog_complain(0, "'%s' is no number", one_line(text).c_str());
    return false;
}

bool read_time(const std::string& text, double& epoch) {
    const int mark = elog_mark();
    char* end = nullptr;
    if (zstr2epoch(text.c_str(), &epoch) == 0) return true;
    // 0 is no text of a time, but the time of a point all the same.
    epoch = fix_strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0') {
        elog_complain(0, "'%s' is no time", one_line(text).c_str());
        return false;
    }
    elog_flush(0, mark);
    return true;
}

std::string number_text(double value) {
    char text[32];
    for (const int digits : {6, 15, 17}) {
        std::snprintf(text, sizeof text, "%.*g", digits, value);
        if (fix_strtod(text, nullptr) == value) break;
    }
    return text;
}

std::string number_json(double value) {
    return std::isfinite(value) ? number_text(value) : "null";
}

std::string iso_time(double epoch) {
    // Rounded first: the format cuts the seconds, and rounds their thousandths.
    return owned(epoch2str("%Y-%m-%dT%H:%M:%S.%sZ", std::floor(epoch * 1000 + 0.5) / 1000));
}

}  // namespace tool
