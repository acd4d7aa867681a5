// morva: the command-line companion of the library. Each group of subcommands is a table in a
// source file of its own; this file makes the parser from the tables.
#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "command.hpp"
#include "morva.h"

namespace tool {

std::span<const Group* const> groups() {
    static constexpr const Group* kGroups[] = {
        // one a line, in the order of the help
        &acl_group,       //
        &codec_group,     //
        &dc_group,        //
        &grave_group,     //
        &heap_group,      //
        &morph_group,     //
        &pf_group,        //
        &port_group,      //
        &ring_group,      //
        &snoop_group,     //
        &sum_group,       //
        &time_group,      //
        &units_group,     //
        &generate_group,  //
    };
    return kGroups;
}

}  // namespace tool

namespace {

using tool::Given;
using tool::Takes;

constexpr const char* kFooter =
    "Ends with 0 when all is well, 1 when something was not found or something is to be reported,\n"
    "and 2 when the command line or a file could not be used. Output is coloured on a terminal "
    "only,\n"
    "and never when NO_COLOR is set. morva GROUP --help tells more.";

// The command that was parsed, with what it was given.
struct Chosen {
    const tool::Command* command = nullptr;
    std::vector<std::pair<const tool::Parameter*, CLI::Option*>> options;
};

std::string check_seconds(const std::string& text) {
    char* end = nullptr;
    const double seconds = fix_strtod(text.c_str(), &end);
    const bool is_good = !text.empty() && *end == '\0' && std::isfinite(seconds) && seconds > 0;
    return is_good ? "" : "'" + text + "' is no number of seconds above 0";
}

void restrict(CLI::Option* option, const tool::Parameter& parameter) {
    if (parameter.takes == Takes::seconds) option->check(check_seconds, "");
    if (parameter.takes == Takes::count) option->check(CLI::Range(1, 1000000000));
    if (parameter.takes == Takes::choice)
        option->check(CLI::IsMember(CLI::detail::split(parameter.value, '|')));
    if (parameter.given == Given::many) option->expected(1, 1000000)->allow_extra_args();
    if (parameter.is_option()) return;
    option->required(parameter.given != Given::optional)->type_name("");
}

CLI::Option* add_parameter(CLI::App& app, const tool::Parameter& parameter) {
    if (parameter.takes == Takes::nothing) return app.add_flag(parameter.spelling, parameter.help);
    // The texts are taken from the parser afterwards; nothing is converted here.
    CLI::Option* option = app.add_option(
        parameter.spelling, [](const CLI::results_t&) { return true; }, parameter.help);
    option->type_name(parameter.value);
    restrict(option, parameter);
    return option;
}

void add_command(CLI::App& parent, const char* name, const tool::Command& command, Chosen& chosen) {
    CLI::App* app = parent.add_subcommand(name, command.summary);
    app->footer(command.details);
    std::vector<std::pair<const tool::Parameter*, CLI::Option*>> options;
    for (const tool::Parameter& parameter : command.parameters)
        options.emplace_back(&parameter, add_parameter(*app, parameter));
    app->callback([&chosen, &command, options] { chosen = {&command, options}; });
}

void add_group(CLI::App& morva, const tool::Group& group, Chosen& chosen) {
    if (group.is_command()) return add_command(morva, group.name, group.commands.front(), chosen);
    CLI::App* app = morva.add_subcommand(group.name, group.summary);
    app->footer(group.details);
    app->require_subcommand(1);
    for (const tool::Command& command : group.commands)
        add_command(*app, command.name, command, chosen);
}

tool::Arguments arguments_of(const Chosen& chosen) {
    tool::Arguments arguments;
    for (const auto& [parameter, option] : chosen.options)
        if (option->count() > 0) arguments.set(parameter->name(), option->results());
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    CLI::App morva{"morva: the companion of the library for people and scripts"};
    morva.name("morva")->footer(kFooter)->require_subcommand(1);
    morva.set_version_flag("--version", "morva " MORVA_VERSION);
    Chosen chosen;
    for (const tool::Group* group : tool::groups()) add_group(morva, *group, chosen);
    try {
        morva.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return morva.exit(error) == 0 ? tool::kDone : tool::kUnusable;
    }
    return chosen.command->run(arguments_of(chosen));
}
