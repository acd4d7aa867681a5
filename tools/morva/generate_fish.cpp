// The completion for fish: a line for each group, command and parameter.
#include "generate.hpp"
#include "output.hpp"

namespace tool {

namespace {

constexpr const char* kHead = R"(# fish completion for morva, made by "morva generate fish".

function __morva_at # GROUP [COMMAND [PLACE]]: what is being typed belongs there
    set -l words (commandline -opc)
    test (count $words) -ge (count $argv[1..2]) || return 1
    test "$words[2..3]" = "$argv[1..2]" || return 1
    set -q argv[3] || return 0
    set -l given (__morva_given)
    test (count $given) -eq $argv[3] || test "$argv[4]" = many
end

function __morva_group # GROUP: its command is being typed
    set -l words (commandline -opc)
    test (count $words) -eq 2 && test "$words[2]" = $argv[1]
end

function __morva_given # the arguments that are no options, nor values of such
    set -l skip no
    for word in (commandline -opc)[4..]
        if test $skip = yes
            set skip no
        else if contains -- $word $__morva_valued
            set skip yes
        else if not string match -q -- '-*' $word
            echo $word
        end
    end
end

function __morva_paths
    set -l given (__morva_given)
    morva pf keys --all $given[1] 2>/dev/null
end

function __morva_controls
    set -l given (__morva_given)
    morva dc list --names $given[1] 2>/dev/null
end

complete -c morva -f
complete -c morva -l help -d 'show the help'
)";

std::string line(const std::string& condition, const std::string& rest, const char* help) {
    return "complete -c morva -n " + fish_quoted(condition) + " " + rest + " -d " +
           fish_quoted(help) + "\n";
}

std::string option_line(const std::string& at, const Parameter& parameter) {
    const std::string spelling = parameter.spelling;
    std::string rest = "-l " + parameter.name().substr(2);
    if (spelling.find(',') != std::string::npos)
        rest = std::string("-s ") + spelling[1] + " " + rest;
    if (parameter.takes == Takes::file) rest += " -r -F";
    if (parameter.takes == Takes::choice)
        rest += " -x -a " + fish_quoted(words_of(parameter.value, " "));
    else if (parameter.takes != Takes::nothing && parameter.takes != Takes::file)
        rest += " -x";
    return line(at, rest, parameter.help);
}

std::string place_line(const std::string& at, const Parameter& parameter, int place) {
    const std::string here =
        at + " " + std::to_string(place) + (parameter.given == Given::many ? " many" : "");
    switch (parameter.takes) {
        case Takes::name:
            return line(here, "-F -a '(morva pf files 2>/dev/null)'", parameter.help);
        case Takes::file:
            return line(here, "-F", parameter.help);
        case Takes::path:
            return line(here, "-a '(__morva_paths)'", parameter.help);
        case Takes::program:
            return line(here, "-a '(morva dc list --names 2>/dev/null)'", parameter.help);
        case Takes::control:
            return line(here, "-a '(__morva_controls)'", parameter.help);
        case Takes::port:
            return line(here, "-a '(morva port list --names 2>/dev/null)'", parameter.help);
        default:
            return "";
    }
}

std::string rows(const Group& group, const Command& command) {
    const std::string at = group.is_command()
                               ? std::string("__fish_seen_subcommand_from ") + group.name
                               : "__morva_at " + full_name(group, command);
    std::string text;
    if (!group.is_command())
        text = line(std::string("__morva_group ") + group.name, std::string("-a ") + command.name,
                    command.summary);
    int place = 0;
    for (const Parameter& parameter : command.parameters)
        text +=
            parameter.is_option() ? option_line(at, parameter) : place_line(at, parameter, place++);
    return text;
}

}  // namespace

int generate_fish(const Arguments&) {
    std::string text = std::string(kHead) + "set -g __morva_valued " + valued_options() + "\n";
    for (const Group* group : groups())
        text += line("__fish_use_subcommand", std::string("-a ") + group->name, group->summary);
    each_command([&](const Group& group, const Command& command) { text += rows(group, command); });
    print(text);
    return finish(kDone);
}

}  // namespace tool
