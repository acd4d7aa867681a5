// References to the environment, beside a plain reading of the rules.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "morva.h"

namespace {

const std::map<std::string, std::string>& variables() {
    static const std::map<std::string, std::string> made = [] {
        std::map<std::string, std::string> all = {{"A", "1"},
                                                  {"B9", "$A"},
                                                  {"C_D", ""},
                                                  {std::string(1023, 'x'), std::string(2500, 'y')}};
        for (const auto& [name, value] : all) ::setenv(name.c_str(), value.c_str(), 1);
        return all;
    }();
    return made;
}

std::string value_or(const std::string& name, const std::string& otherwise) {
    const std::string cut = name.substr(0, 1023);
    const auto found = variables().find(cut);
    if (found != variables().end()) return found->second;
    const char* other = name.empty() ? nullptr : ::getenv(cut.c_str());
    return other != nullptr ? other : otherwise;
}

std::string expanded(const std::string& text) {
    std::string result;
    for (std::size_t i = 0, end; i < text.size(); i = end) {
        end = i + 1;
        if (text[i] != '$') {
            result += text[i];
            continue;
        }
        const bool braces = text.compare(end, 1, "{") == 0;
        const std::size_t start = end += braces;
        while (end < text.size() && (braces ? text[end] != '}' : std::isalnum(text[end] & 0xff)))
            ++end;
        const std::string name = text.substr(start, end - start);
        end = std::min(end + braces, text.size());
        result += value_or(name, text.substr(i, end - i));
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    variables();
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    char* result = expand_env(text.c_str());
    if (expanded(text) != result) std::abort();
    std::free(result);
    return 0;
}
