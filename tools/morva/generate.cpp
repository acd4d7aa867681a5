// morva generate: completions and the manual page, made from the same tables as the parser, so that
// they cannot disagree with the help.
#include "generate.hpp"

#include <set>

#include "output.hpp"

namespace tool {

namespace {

constexpr const char* kUse =
    "They are installed below share/; these commands are for shells that look elsewhere:\n\n"
    "    source <(morva generate bash)";

constexpr Command kCommands[] = {
    {"bash", "print the completion for bash", "", {}, generate_bash},
    {"zsh", "print the completion for zsh", "", {}, generate_zsh},
    {"fish", "print the completion for fish", "", {}, generate_fish},
    {"man", "print the manual page", "", {}, generate_man},
};

std::string with_quotes_as(const std::string& text, const char* escaped) {
    std::string result = "'";
    for (const char c : text) c == '\'' ? result += escaped : result += c;
    return result + "'";
}

}  // namespace

const Group generate_group = {"generate", "completions for shells, and the manual page", kUse,
                              kCommands};

std::string words_of(const char* choice, const char* separator) {
    std::string result;
    for (const char* c = choice; *c != '\0'; ++c) *c == '|' ? result += separator : result += *c;
    return result;
}

std::string valued_options() {
    std::set<std::string> spellings;
    each_command([&](const Group&, const Command& command) {
        for (const Parameter& parameter : command.parameters) {
            if (!parameter.is_option() || parameter.takes == Takes::nothing) continue;
            spellings.insert(parameter.name());
            const std::string all = parameter.spelling;
            if (all != parameter.name()) spellings.insert(all.substr(0, all.find(',')));
        }
    });
    std::string result;
    for (const std::string& spelling : spellings) result += (result.empty() ? "" : " ") + spelling;
    return result;
}

std::string full_name(const Group& group, const Command& command) {
    return group.name + (group.is_command() ? "" : std::string(" ") + command.name);
}

std::string options_of(const Command& command) {
    std::string result;
    for (const Parameter& parameter : command.parameters)
        if (parameter.is_option()) result += (result.empty() ? "" : " ") + parameter.name();
    return result;
}

std::string quoted(const std::string& text) {
    return with_quotes_as(text, "'\\''");
}
std::string fish_quoted(const std::string& text) {
    return with_quotes_as(text, "\\'");
}

}  // namespace tool
