// Checking a table of units, with a dictionary of its own.
#include "base/diagnostics.hpp"
#include "morva/paths.h"
#include "units/units_yacc.hpp"

namespace morva::units {
namespace {

// The units of the table; those that another definition replaced are freed with them.
class Scratch {
  public:
    ~Scratch() {
        freetbl(basis_, nullptr);
        freetbl(replaced_, free_unit);
        freearr(units_, free_unit);
    }
    Dictionary dictionary() { return {units_, basis_, replaced_}; }

  private:
    Arr* units_ = nullptr;
    Tbl* basis_ = nullptr;
    Tbl* replaced_ = nullptr;
};

void add_finding(Tbl* findings, const Message& message) {
    auto* finding = must_alloc<Units_finding>(1, "units", MORVA_HERE);
    finding->line = message.line;
    finding->column = message.column;
    finding->warning = message.warning;
    String text = message.text;
    if (!message.hint.empty())
        text.append(", the nearest known name is '").append(message.hint).append("'");
    finding->text = must_strdup(text.c_str(), "units", MORVA_HERE);
    pushtbl(findings, finding);
}

// Lines that define nothing are read over, which seldom is what was meant.
Messages check(std::string_view text) {
    Scratch scratch;
    Messages messages;
    Parser parser(scratch.dictionary(), text, &messages);
    for (;;) {
        const int line_number = parser.line();
        const Parser::Line line = parser.read_line();
        if (line == Parser::Line::end) return messages;
        if (line == Parser::Line::expression)
            messages.push_back({true, line_number, 1, "this line defines nothing", {}});
        if (line != Parser::Line::table) parser.skip_line();
    }
}

}  // namespace
}  // namespace morva::units

using namespace morva::units;

extern "C" {

Tbl* units_check(const char* path) {
    const morva::malloced<char> found(path == nullptr ? datafile("UNITS", "units") : nullptr);
    if (path == nullptr) path = found.get();
    if (path == nullptr) {
        elog_log(0, "Can't find units table\n");
        return nullptr;
    }
    morva::String text;
    if (!read_table_file(path, &text)) {
        elog_log(0, "can't check the units table %s\n", path);
        return nullptr;
    }
    Tbl* findings = newtbl(0);
    for (const Message& message : check(text)) add_finding(findings, message);
    return findings;
}

void free_units_finding(void* finding) {
    if (finding == nullptr) return;
    std::free(static_cast<Units_finding*>(finding)->text);
    std::free(finding);
}

}  // extern "C"
