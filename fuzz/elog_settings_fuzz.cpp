// The texts of ELOG_DELIVER, ELOG_TAG and ELOG_DEBUG, as a hostile parent would set them.
//
// Properties: the settings are those of a plain model of the grammar, and keep at most 48
// characters; a tag of any text expands to at most 1023 characters.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "log/elog.hpp"

namespace {

std::string g_text;

const char* environment(const char* name) {
    const bool asked = !std::strcmp(name, "ELOG_TAG") || !std::strcmp(name, "ELOG_DEBUG");
    return asked ? g_text.c_str() : nullptr;
}

void check(bool holds) {
    if (!holds) std::abort();
}

// The grammar a character at a time, for debugger commands.
class Model {
  public:
    explicit Model(const std::string& text) : settings(ELOG_NSEVERITY, "keep") {
        for (const char c : text)
            if (!take(c)) return;
        if (escaped_) value_ += '\\';
        if (!in_letters_ && !(value_.empty()))
            settings.assign(ELOG_NSEVERITY, value_.substr(0, 48));
    }
    std::vector<std::string> settings;

  private:
    bool take(char c) {
        if (in_letters_) return take_letter(c);
        if (std::exchange(escaped_, !escaped_ && c == '\\'))
            value_ += c;
        else if (c == '@')
            in_letters_ = true;
        else if (c != '\\')
            value_ += c;
        return true;
    }
    bool take_letter(char c) {
        const std::size_t severity = std::string("lDnacdf").find(c);
        if (c == ' ' || c == '@') {
            in_letters_ = false;
            value_.clear();
            return true;
        }
        if (severity == std::string::npos) return false;
        settings[severity] = !value_.empty()        ? value_.substr(0, 48)
                             : severity >= ELOG_DIE ? "gdb %r %p"
                                                    : "";
        return true;
    }
    std::string value_;
    bool in_letters_ = false, escaped_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    morva::log::state().environment = environment;
    g_text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    for (auto& severity : morva::log::state().severities) std::strcpy(severity.debug, "keep");
    morva::log::load_configuration(false);
    const Model model(g_text);
    for (int i = 0; i < ELOG_NSEVERITY; ++i) {
        const auto& severity = morva::log::state().severities[i];
        check(model.settings[i] == severity.debug);
        check(strnlen(severity.tag, 49) <= 48);
        char tag[morva::log::kTagLength + 1];
        check(morva::log::expand(severity.tag, tag, sizeof tag, morva::log::Purpose::kTag) ==
              strnlen(tag, sizeof tag));
    }
    return 0;
}
