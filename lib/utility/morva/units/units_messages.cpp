// What is said of texts that are wrong.
#include "base/diagnostics.hpp"
#include "units/units.hpp"

namespace morva::units {
namespace {

// The error routine of scanner and parser.
void register_error(const Message& message) {
    elog_log(0, "%s : %s near line #%d\n", "xunits", message.text.c_str(), message.line);
}

String hint(const Message& message) {
    if (message.hint.empty()) return {};
    return String(", the nearest known name is '").append(message.hint).append("'");
}

}  // namespace

void tell(const Messages& messages, std::string_view expression) {
    constexpr std::size_t kShown = 200;
    const int shown = static_cast<int>(std::min(expression.size(), kShown));
    for (const Message& message : messages) {
        register_error(message);
        elog_log(0, "in the units '%.*s' at character %d%s\n", shown, expression.data(),
                 message.column, hint(message).c_str());
    }
}

void tell_of_table(const Messages& messages, const char* path) {
    for (const Message& message : messages) {
        if (message.warning) {
            elog_complain(0, "%s", message.text.c_str());
            continue;
        }
        register_error(message);
        elog_log(0, "in the units table %s at character %d%s\n", path, message.column,
                 hint(message).c_str());
    }
}

}  // namespace morva::units
