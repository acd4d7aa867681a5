// The manual page, morva(1).
#include "generate.hpp"
#include "output.hpp"

namespace tool {

namespace {

// Text as roff takes it: no line begins with a control character, dashes and backslashes are plain.
std::string roff(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if ((i == 0 || text[i - 1] == '\n') && (c == '.' || c == '\'')) result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

// Paragraphs; the lines of one that is indented are an example.
std::string paragraphs(const std::string& text) {
    std::string result;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = text.find("\n\n", start);
        if (end == std::string::npos) end = text.size();
        const std::string part = text.substr(start, end - start);
        const bool example = part.rfind("    ", 0) == 0;
        result += example ? ".PP\n.nf\n" + roff(part) + "\n.fi\n" : ".PP\n" + roff(part) + "\n";
        start = end + 2;
    }
    return result;
}

std::string synopsis(const Group& group, const Command& command) {
    std::string text = "morva " + full_name(group, command);
    bool options = false;
    for (const Parameter& parameter : command.parameters) options |= parameter.is_option();
    if (options) text += " [OPTION...]";
    for (const Parameter& parameter : command.parameters) {
        if (parameter.is_option()) continue;
        const std::string dots = parameter.given == Given::many ? "..." : "";
        const bool optional = parameter.given == Given::optional;
        text += (optional ? " [" : " ") + parameter.name() + dots + (optional ? "]" : "");
    }
    return text;
}

std::string section(const Group& group, const Command& command) {
    std::string text =
        ".SS " + roff(synopsis(group, command)) + "\n" + roff(command.summary) + "\n";
    for (const Parameter& parameter : command.parameters) {
        std::string spelling = parameter.spelling;
        if (const auto comma = spelling.find(','); comma != std::string::npos)
            spelling.insert(comma + 1, " ");
        if (parameter.is_option() && *parameter.value != '\0')
            spelling += std::string(" ") + parameter.value;
        text += ".TP\n.B " + roff(spelling) + "\n" + roff(parameter.help) + "\n";
    }
    return text + paragraphs(command.details);
}

}  // namespace

int generate_man(const Arguments&) {
    std::string text =
        ".TH MORVA 1 \"\" \"morva " MORVA_VERSION
        "\" \"User Commands\"\n.SH NAME\nmorva \\- the companion of libmorva for people and "
        "scripts\n"
        ".SH SYNOPSIS\n.B morva\n.I GROUP COMMAND\n[\\fIOPTION\\fR...] [\\fIARGUMENT\\fR...]\n";
    for (const Group* group : groups()) {
        text += std::string(".SH MORVA ") + group->name + "\n" + roff(group->summary) + ".\n" +
                (group->is_command() ? "" : paragraphs(group->details));
        for (const Command& command : group->commands) text += section(*group, command);
    }
    text +=
        ".SH EXIT STATUS\n0 when all is well, 1 when something was not found or there is something "
        "to\n"
        "report, 2 when the command line or a file could not be used.\n"
        ".SH ENVIRONMENT\n.TP\n.B PFPATH\nfolders of parameter files, separated by colons\n"
        ".TP\n.B KORVALIN\nthe installation root\n"
        ".TP\n.B NO_COLOR\nwhen set, output is never coloured\n";
    print(text);
    return finish(kDone);
}

}  // namespace tool
