// Pieces shared by the generators of completions and of the manual page.
#pragma once

#include <string>

#include "command.hpp"

namespace tool {

int generate_bash(const Arguments&);
int generate_zsh(const Arguments&);
int generate_fish(const Arguments&);
int generate_man(const Arguments&);

// The words of "a|b" with `separator` between them.
std::string words_of(const char* choice, const char* separator);

// Every spelling of the options that take a value, with blanks between them.
std::string valued_options();

// The text in single quotes, as shells take it; fish escapes them in another way.
std::string quoted(const std::string& text);
std::string fish_quoted(const std::string& text);

// "pf get", or the name alone of a group that is a command.
std::string full_name(const Group& group, const Command& command);

// Every option of a command, with blanks between them.
std::string options_of(const Command& command);

// Calls `visit(group, command)` for every command.
template <class Visit>
void each_command(Visit visit) {
    for (const Group* group : groups())
        for (const Command& command : group->commands) visit(*group, command);
}

}  // namespace tool
