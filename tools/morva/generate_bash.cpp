// The completion for bash: one function, and a table of what each command takes.
#include "generate.hpp"
#include "output.hpp"

namespace tool {

namespace {

// Keys and names are offered only when they are plain: the shell must not act on what a file says.
constexpr const char* kHead = R"(# bash completion for morva, made by "morva generate bash".

_morva_offer() {
    local word
    while IFS= read -r word; do
        [[ $word == "$current"* && $word =~ ^[][A-Za-z0-9_{}.:/+@%-]+$ ]] && COMPREPLY+=("$word")
    done
}

_morva() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}
    local words= options= valued= name= takes word i
    local -a places=()
    COMPREPLY=()
    case $COMP_CWORD in
)";

constexpr const char* kTail = R"(    esac
    if ((COMP_CWORD < 3)); then
        COMPREPLY=($(compgen -W "$words" -- "$current"))
        return
    fi
    [[ " $valued " == *" $before "* ]] && return
    for ((i = 3; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ " $valued " == *" $word "* ]]; then
            ((i++))
        elif [[ $word != -* ]]; then
            [[ -n $name ]] || name=$word
            [[ ${places[0]} == *+ ]] || places=("${places[@]:1}")
        fi
    done
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$options --help" -- "$current"))
        return
    fi
    case ${places[0]} in
    name*) _morva_offer < <(morva pf files 2>/dev/null) ;;&
    name* | file*) compopt -o filenames; COMPREPLY+=($(compgen -f -- "$current")) ;;
    path*) _morva_offer < <(morva pf keys --all "$name" 2>/dev/null) ;;
    program*) _morva_offer < <(morva dc list --names 2>/dev/null) ;;
    control*) _morva_offer < <(morva dc list --names "$name" 2>/dev/null) ;;
    port*) _morva_offer < <(morva port list --names 2>/dev/null) ;;
    esac
}
complete -F _morva morva
)";

const char* place_of(const Parameter& parameter) {
    switch (parameter.takes) {
        case Takes::name:
            return "name";
        case Takes::file:
            return "file";
        case Takes::path:
            return "path";
        case Takes::program:
            return "program";
        case Takes::control:
            return "control";
        case Takes::port:
            return "port";
        default:
            return "text";
    }
}

std::string row(const Group& group, const Command& command) {
    std::string valued, places;
    for (const Parameter& parameter : command.parameters) {
        if (!parameter.is_option()) {
            places += std::string(places.empty() ? "" : " ") + place_of(parameter) +
                      (parameter.given == Given::many ? "+" : "");
            continue;
        }
        if (parameter.takes == Takes::nothing) continue;
        std::string both = parameter.spelling;
        if (const auto comma = both.find(','); comma != std::string::npos) both[comma] = ' ';
        valued += (valued.empty() ? "" : " ") + both;
    }
    const std::string rest = group.is_command() ? " \"*" : "\"";
    return "        \"" + full_name(group, command) + rest + ") options='" + options_of(command) +
           "' valued='" + valued + "' places=(" + places + ") ;;\n";
}

}  // namespace

int generate_bash(const Arguments&) {
    std::string first = "    1) words='", second = "    2)\n        case ${COMP_WORDS[1]} in\n";
    for (const Group* group : groups()) {
        first += std::string(group->name) + " ";
        second += std::string("        ") + group->name + ") words='";
        for (const Command& command : group->commands)
            second += (group->is_command() ? options_of(command) : command.name) + " ";
        second += "--help' ;;\n";
    }
    std::string rest = "    *)\n        case \"${COMP_WORDS[1]} ${COMP_WORDS[2]}\" in\n";
    each_command([&](const Group& group, const Command& command) { rest += row(group, command); });
    print(kHead + first + "--help --version' ;;\n" + second + "        esac\n        ;;\n" + rest +
          "        esac\n        ;;\n" + kTail);
    return finish(kDone);
}

}  // namespace tool
