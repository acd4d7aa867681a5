// The completion for zsh: a list of descriptions for each level, then _arguments for each command.
#include "generate.hpp"
#include "output.hpp"

namespace tool {

namespace {

constexpr const char* kHead = R"zsh(#compdef morva
# zsh completion for morva, made by "morva generate zsh".

local -a _morva_valued=(VALUED)

_morva_names() {
    local -a names
    names=(${(f)"$(_call_program names morva pf files 2>/dev/null)"})
    _alternative 'names:parameter file:compadd -a names' 'files:file:_files'
}

_morva_first() { # sets name to the first argument
    local word skip
    for word in $words[2,-1]; do
        if [[ -n $skip ]]; then
            skip=
        elif ((${_morva_valued[(Ie)$word]})); then
            skip=yes
        elif [[ $word != -* ]]; then
            name=$word
            break
        fi
    done
}

_morva_paths() {
    local -a paths
    local name
    _morva_first
    paths=(${(f)"$(_call_program paths morva pf keys --all ${(q)${(Q)name}} 2>/dev/null)"})
    compadd -a paths
}

_morva_programs() {
    compadd -- ${(f)"$(_call_program programs morva dc list --names 2>/dev/null)"}
}

_morva_controls() {
    local name
    _morva_first
    compadd -- ${(f)"$(_call_program controls morva dc list --names ${(q)${(Q)name}} 2>/dev/null)"}
}

_morva_ports() {
    compadd -- ${(f)"$(_call_program ports morva port list --names 2>/dev/null)"}
}

_morva() {
    local -a entries
    if ((CURRENT == 2)); then
)zsh";

// Colons and brackets mean something in descriptions.
std::string described(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == ':' || c == '[' || c == ']' || c == '\\') result += '\\';
        result += c;
    }
    return result;
}

std::string entry(const char* name, const char* summary) {
    return quoted(std::string(name) + ":" + described(summary)) + " ";
}

std::string options_entries(const Command& command) {
    std::string result;
    for (const Parameter& parameter : command.parameters)
        if (parameter.is_option()) result += entry(parameter.name().c_str(), parameter.help);
    return result;
}

const char* action_of(const Parameter& parameter) {
    switch (parameter.takes) {
        case Takes::name:
            return "_morva_names";
        case Takes::file:
            return "_files";
        case Takes::path:
            return "_morva_paths";
        case Takes::program:
            return "_morva_programs";
        case Takes::control:
            return "_morva_controls";
        case Takes::port:
            return "_morva_ports";
        default:
            return "";
    }
}

std::string argument(const Parameter& parameter) {
    if (!parameter.is_option()) {
        const std::string place = parameter.given == Given::many       ? "*:"
                                  : parameter.given == Given::optional ? "::"
                                                                       : ":";
        return quoted(place + parameter.name() + ":" + action_of(parameter));
    }
    std::string spellings = parameter.spelling, tail = "[" + described(parameter.help) + "]";
    if (parameter.takes == Takes::choice)
        tail += ":" + std::string("value:(") + words_of(parameter.value, " ") + ")";
    else if (parameter.takes != Takes::nothing)
        tail += ":" + described(parameter.value) + ":" + action_of(parameter);
    const auto comma = spellings.find(',');
    if (comma == std::string::npos) return quoted(spellings + tail);
    const std::string apart = "(" + spellings.substr(0, comma) + " " + parameter.name() + ")";
    return quoted(apart) + "{" + spellings + "}" + quoted(tail);
}

std::string row(const Group& group, const Command& command) {
    const std::string pattern = group.is_command() ? quoted(std::string(group.name) + " ") + "*"
                                                   : quoted(full_name(group, command));
    std::string text =
        "        " + pattern + ")\n            _arguments -s '--help[show the help]'";
    for (const Parameter& parameter : command.parameters)
        text += " \\\n                " + argument(parameter);
    return text + " ;;\n";
}

}  // namespace

int generate_zsh(const Arguments&) {
    std::string text = kHead;
    text.replace(text.find("VALUED"), 6, valued_options());
    text += "        entries=(";
    std::string second = "        case $words[2] in\n", rest;
    for (const Group* group : groups()) {
        text += entry(group->name, group->summary);
        second += std::string("        ") + group->name + ") entries=(";
        for (const Command& command : group->commands)
            second += group->is_command() ? options_entries(command)
                                          : entry(command.name, command.summary);
        second += ") ;;\n";
    }
    each_command([&](const Group& group, const Command& command) { rest += row(group, command); });
    print(text + ")\n        _describe 'group' entries\n    elif ((CURRENT == 3)); then\n" +
          second +
          "        esac\n        _describe 'command' entries\n    else\n"
          "        local chosen=\"$words[2] $words[3]\"\n"
          "        shift 2 words\n        ((CURRENT -= 2))\n        case $chosen in\n" +
          rest + "        esac\n    fi\n}\n\n_morva \"$@\"\n");
    return finish(kDone);
}

}  // namespace tool
