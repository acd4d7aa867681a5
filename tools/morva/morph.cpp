// morva morph: names rewritten by the rules of a file.
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

#include "command.hpp"
#include "morva.h"
#include "output.hpp"
#include "records.hpp"

namespace tool {

namespace {

// The rules of a file, each with the number of its line.
class Rules {
  public:
    Rules() = default;
    ~Rules() { freemorphtbl(table_); }
    Rules(const Rules&) = delete;
    Rules& operator=(const Rules&) = delete;

    // False when the file can't be read.
    bool read(const std::string& path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line); ++line_count_) take(line);
        return file.eof() && !file.bad();
    }

    // Returns the number of rules that can't be used, after telling about them.
    long compile() {
        Tbl* lines = newtbl(10);
        for (std::string& text : texts_) pushtbl(lines, text.data());
        const int mark = elog_mark();
        const long bad = newmorphtbl(lines, &table_);
        elog_flush(1, mark);
        freetbl(lines, nullptr);
        return bad;
    }

    Tbl* table() const { return table_; }
    long line_of(const Morph_rule& rule) const {
        return numbers_[static_cast<std::size_t>(rule.line)];
    }

  private:
    void take(std::string line) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.find_first_not_of(" \t") == line.npos || line.front() == '#') return;
        texts_.push_back(std::move(line));
        numbers_.push_back(line_count_ + 1);
    }

    long line_count_ = 0;
    std::vector<std::string> texts_;
    std::vector<long> numbers_;
    Tbl* table_ = nullptr;
};

class Renamer {
  public:
    Renamer(const Rules& rules, const Arguments& arguments)
        : rules_(rules),
          flags_((arguments.has("--partial") ? MORPH_PARTIAL : 0) |
                 (arguments.has("--all") ? MORPH_ALL : 0)),
          json_(arguments.has("--json")),
          quiet_(arguments.has("--quiet")) {}

    // Prints what becomes of a name. False when no rule counted.
    bool rename(const std::string& name) const {
        Tbl* applied = nullptr;
        const std::string result =
            owned(morphtbl_str(name.c_str(), rules_.table(), flags_, &applied));
        const bool renamed = maxtbl(applied) > 0;
        if (json_)
            print_json(name, result, applied);
        else if (quiet_)
            print(result + "\n");
        else
            print_text(name, result, applied);
        freetbl(applied, nullptr);
        return renamed;
    }

  private:
    void print_text(const std::string& name, const std::string& result, Tbl* applied) const {
        std::string line =
            padded(name) + " " +
            coloured(maxtbl(applied) > 0 ? Colour::green : Colour::plain, padded(result));
        for (long i = 0; i < maxtbl(applied); ++i) {
            const auto* rule = static_cast<const Morph_rule*>(gettbl(applied, i));
            line += (i == 0 ? "  line " : ", line ") + std::to_string(rules_.line_of(*rule)) +
                    ": " + one_line(rule->pattern) + " -> " + one_line(rule->replacement);
        }
        if (maxtbl(applied) == 0) line += "  no rule";
        print(line + "\n");
    }

    void print_json(const std::string& name, const std::string& result, Tbl* applied) const {
        JsonList list;
        for (long i = 0; i < maxtbl(applied); ++i) {
            const auto* rule = static_cast<const Morph_rule*>(gettbl(applied, i));
            list.add(JsonObject()
                         .number("line", rules_.line_of(*rule))
                         .text("pattern", rule->pattern)
                         .text("replacement", rule->replacement)
                         .str());
        }
        print(
            JsonObject().text("name", name).text("result", result).raw("rules", list.str()).str() +
            "\n");
    }

    static std::string padded(const std::string& name) {
        std::string text = one_line(name);
        if (text.size() < 8) text.resize(8, ' ');
        return text;
    }

    const Rules& rules_;
    int flags_;
    bool json_, quiet_;
};

bool rename_all(const Renamer& renamer, const std::vector<std::string>& names) {
    bool all = true;
    if (names.size() == 1 && names.front() == "-")
        for (std::string line; std::getline(std::cin, line);) all &= renamer.rename(line);
    else
        for (const std::string& name : names) all &= renamer.rename(name);
    return all;
}

int morph_names(const Arguments& arguments) {
    const std::string path = arguments.text("RULES-FILE");
    Rules rules;
    if (!rules.read(path)) {
        elog_complain(1, "can't read %s", path.c_str());
        return kUnusable;
    }
    const long bad = rules.compile();
    if (bad > 0)
        elog_complain(0, "%s: %ld %s can't be used", path.c_str(), bad,
                      bad == 1 ? "rule" : "rules");
    const bool all = rename_all(Renamer(rules, arguments), arguments.texts("NAME"));
    return finish(all && bad == 0 ? kDone : kFindings);
}

constexpr Parameter kMorph[] = {
    {"RULES-FILE", Takes::file, "the rules, one a line"},
    {"NAME", Takes::text, "a name; - reads one from each line of standard input", "", Given::many},
    {"-p,--partial", Takes::nothing, "a rule may match a part of the name"},
    {"-a,--all", Takes::nothing, "apply every rule in turn, not just the first that matches"},
    {"-q,--quiet", Takes::nothing, "print the results alone"},
    {"--json", Takes::nothing, "print JSON, an object a line"}};

constexpr Command kCommands[] = {
    {"", "rewrite names by the rules of a file",
     "A rule is /PATTERN/REPLACEMENT/ or two words; quotes may stand for the slashes. $1 in the\n"
     "replacement is what the first group of the pattern matched. Empty lines and those that "
     "begin\n"
     "with # are left out. Ends with 1 when a rule can't be used or no rule matches a name.\n\n"
     "    morva morph channels.rules BHZ BHN\n"
     "    cut -f2 channels | morva morph --json channels.rules -",
     kMorph, morph_names}};

}  // namespace

const Group morph_group = {"morph", "names rewritten by rules", "", kCommands};

}  // namespace tool
