// References to the environment, beside a reading of the rules a character at a time.
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

std::string expanded(const std::string& text) {
    std::string result, whole, name;
    char state = ' ';  // or '$' in a plain name, '{' in one with braces
    const auto end_name = [&] {
        const auto found = variables().find(name.substr(0, 1023));
        const char* other = name.empty() ? nullptr : ::getenv(name.substr(0, 1023).c_str());
        result += found != variables().end() ? found->second : other != nullptr ? other : whole;
        whole.clear();
        name.clear();
        state = ' ';
    };
    for (const char c : text) {
        if (state == '$' && whole == "$" && c == '{') {
            state = '{';
            whole += c;
            continue;
        }
        if (state == '{') {
            whole += c;
            if (c == '}')
                end_name();
            else
                name += c;
            continue;
        }
        if (state == '$' && std::isalnum(static_cast<unsigned char>(c)) && (c & 0x80) == 0) {
            whole += c;
            name += c;
            continue;
        }
        if (state == '$') end_name();
        if (c == '$')
            state = '$', whole = "$";
        else
            result += c;
    }
    if (state != ' ') end_name();
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
