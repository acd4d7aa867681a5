// Selection lists against a plain reading of their rules through the C library. The first line is
// the station, the second the channel, the rest the list.
#include <regex.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/pattern_guard.hpp"
#include "morva.h"

namespace {

// Set when a pattern is too much for the C library.
bool beyond_reference;

bool plain_match(const std::string& pattern, const std::string& string) {
    if (pattern.empty() || pattern == "*") return !pattern.empty();
    const std::string anchored =
        (pattern.front() == '^' ? "" : "^") + pattern + (pattern.back() == '$' ? "" : "$");
    regex_t regex;
    beyond_reference |= morva::over_ceiling(anchored.c_str()) != nullptr;
    if (beyond_reference) return false;
    if (regcomp(&regex, anchored.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
    const bool matched = regexec(&regex, string.c_str(), 0, nullptr, 0) == 0;
    regfree(&regex);
    return matched;
}

int plain_stachans(std::string list, const std::string& station, const std::string& channel) {
    std::erase_if(list, [](char c) { return c == ' ' || c == '\t' || c == '\n'; });
    if (list.empty()) return 0;
    list += ',';
    for (int position = 1; !list.empty(); ++position) {
        const std::string entry = list.substr(0, list.find(','));
        list.erase(0, entry.size() + 1);
        const size_t colon = entry.find(':');
        if (entry.empty()) continue;
        if (colon != entry.npos && !plain_match(entry.substr(colon + 1), channel)) continue;
        if (plain_match(entry.substr(0, colon), station)) return position;
    }
    return 0;
}

int drop(int, char*, Tbl*) {
    return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Complaints are dropped before they are printed.
    static const int quiet = elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(drop));
    (void)quiet;
    std::string text(reinterpret_cast<const char*>(data), size);
    for (char& c : text)
        if (c == '\0') c = ',';
    const size_t first = std::min(text.find('\n'), size);
    const size_t second = std::min(text.find('\n', first + 1), size);
    const std::string station = text.substr(0, first);
    const std::string channel = first < size ? text.substr(first + 1, second - first - 1) : "";
    const std::string list = second < size ? text.substr(second + 1) : "";
    beyond_reference = false;
    const int expected = plain_stachans(list, station, channel);
    for (int i = 0; i < 2; ++i) {
        const int position = match_stachans(list.c_str(), station.c_str(), channel.c_str());
        if (position != expected && !beyond_reference) abort();
    }
    elog_clear();
    return 0;
}
