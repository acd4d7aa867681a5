// morva time: what a time string means, and an epoch time in every form.
#include <cstdlib>
#include <iostream>
#include <utility>

#include "command.hpp"
#include "morva.h"
#include "output.hpp"
#include "records.hpp"

namespace tool {

namespace {

struct Form {
    const char* label;
    const char* key;
    std::string text;
};

std::string in_zone(const char* format, const std::string& zone, double epoch) {
    return owned(zepoch2str(format, zone.c_str(), epoch));
}

// The house's formats in UTC and in a zone, the process's own for "".
std::vector<Form> forms_of(double epoch, const std::string& zone) {
    std::string distance = owned(strtdelta(epoch - str2epoch("now")));
    distance.erase(0, distance.find_first_not_of(' '));
    distance.erase(distance.find_last_not_of(' ') + 1);
    return {
        {"epoch", "epoch", owned(epoch2str("%E", epoch))},
        {"time", "time", owned(strtime(epoch))},
        {"year and day", "ydtime", owned(strydtime(epoch))},
        {"date", "date", owned(strdate(epoch))},
        {"ISO", "iso", owned(epoch2str("%Y-%m-%d %H:%M:%S.%s", epoch))},
        {"weekday", "weekday", owned(epoch2str("%A", epoch))},
        {"zone's time", "zone_time", in_zone(ZStrtime_format, zone, epoch)},
        {"zone's year and day", "zone_ydtime", in_zone(ZStrydtime_format, zone, epoch)},
        {"zone's date", "zone_date", in_zone(ZStrdate_format, zone, epoch)},
        {"zone's ISO", "zone_iso", in_zone("%Y-%m-%d %H:%M:%S.%s %z", zone, epoch)},
        {"from now", "from_now", distance},
    };
}

std::string stripped(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\n") + 1 - first);
}

class Steps {
  public:
    explicit Steps(const std::string& text)
        : text_(text), steps_(str2epoch_explain(text.c_str(), nullptr, nullptr), free_epoch_step) {}

    void print_lines() const {
        for (long i = 0; i < steps_.size(); ++i) {
            const auto* step = steps_.at<Epoch_step>(i);
            if (step->rule == 0)
                print("    " + one_line(step->said) + "\n");
            else
                print("    " + place(*step) + ": '" + one_line(token(*step)) +
                      "': " + one_line(step->said) + "\n");
        }
    }
    std::string json() const {
        JsonList list;
        for (long i = 0; i < steps_.size(); ++i) {
            const auto* step = steps_.at<Epoch_step>(i);
            JsonObject object;
            if (step->rule != 0)
                object.number("rule", step->rule)
                    .number("first", step->first)
                    .number("last", step->last);
            list.add(object.text("said", step->said).str());
        }
        return list.str();
    }

  private:
    std::string token(const Epoch_step& step) const {
        return text_.substr(static_cast<std::size_t>(step.first - 1),
                            static_cast<std::size_t>(step.last - step.first + 1));
    }
    static std::string place(const Epoch_step& step) {
        std::string columns = std::to_string(step.first);
        if (step.last != step.first) columns += "-" + std::to_string(step.last);
        return "columns " + columns + ", rule " + std::to_string(step.rule);
    }

    const std::string& text_;
    Records steps_;
};

class Teller {
  public:
    explicit Teller(const Arguments& arguments)
        : format_(arguments.text("--format")),
          zone_(arguments.text("--zone")),
          json_(arguments.has("--json")),
          strict_(arguments.has("--strict")),
          verbose_(arguments.has("--verbose")) {}

    // Registers a message when there is no such zone.
    bool knows_zone() const {
        const int mark = elog_mark();
        in_zone("", zone_, 0);
        return elog_mark() == mark;
    }

    // Prints what the text means. False, with the reason, when it does not parse.
    bool tell(const std::string& text) const {
        const int mark = elog_mark();
        double epoch = 0;
        const int result = (strict_ ? str2epoch_strict : zstr2epoch)(text.c_str(), &epoch);
        const std::string reason = result == 0 ? "" : reason_since(mark);
        json_ ? print_json(text, epoch, reason) : print_text(text, epoch, result == 0);
        if (result != 0) elog_complain(0, "'%s' is no time", one_line(text).c_str());
        return result == 0;
    }

  private:
    static std::string reason_since(int mark) {
        const std::string reason = stripped(owned(elog_string(mark)));
        const std::size_t start = reason.find("str2epoch: ");
        return start == std::string::npos ? "nothing is set" : reason.substr(start);
    }

    std::string formatted(double epoch) const {
        return zone_.empty() ? owned(epoch2str(format_.c_str(), epoch))
                             : in_zone(format_.c_str(), zone_, epoch);
    }

    void print_text(const std::string& text, double epoch, bool good) const {
        if (good && !format_.empty()) print(formatted(epoch) + "\n");
        if (good && format_.empty())
            for (const Form& form : forms_of(epoch, zone_)) {
                std::string label = form.label;
                label.resize(21, ' ');
                print(coloured(Colour::cyan, label) + stripped(form.text) + "\n");
            }
        if (verbose_) Steps(text).print_lines();
    }

    void print_json(const std::string& text, double epoch, const std::string& reason) const {
        JsonObject object;
        object.text("text", text);
        if (!reason.empty()) {
            object.text("error", reason);
        } else if (!format_.empty()) {
            object.text("formatted", formatted(epoch));
        } else {
            for (const Form& form : forms_of(epoch, zone_))
                form.key == std::string("epoch") ? object.raw(form.key, json_number(epoch))
                                                 : object.text(form.key, stripped(form.text));
        }
        if (verbose_) object.raw("steps", Steps(text).json());
        print(object.str() + "\n");
    }

    static std::string json_number(double value) {
        if (!(value - value == 0)) return "null";
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", value);
        return std::string(text);
    }

    std::string format_, zone_;
    bool json_, strict_, verbose_;
};

int tell_lines(const Teller& teller, bool apart) {
    int status = kDone;
    bool first = true;
    for (std::string line; std::getline(std::cin, line);) {
        if (stripped(line).empty()) continue;
        if (apart && !std::exchange(first, false)) print("\n");
        if (!teller.tell(line)) status = kFindings;
        std::fflush(stdout);
    }
    return status;
}

int tell_time(const Arguments& arguments) {
    const Teller teller(arguments);
    if (!teller.knows_zone()) {
        elog_complain(0, "--zone must be one of the zone database or a POSIX zone text");
        return kUnusable;
    }
    const std::vector<std::string>& words = arguments.texts("TEXT");
    if (words.size() == 1 && words.front() == "-")
        return finish(tell_lines(teller, !arguments.has("--json") && !arguments.has("--format")));
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return finish(teller.tell(text) ? kDone : kFindings);
}

constexpr Parameter kTime[] = {
    {"TEXT", Takes::text, "a time; - reads one from each line of standard input", "", Given::many},
    {"-f,--format", Takes::text, "print this format alone, with the codes of epoch2str", "FORMAT"},
    {"-z,--zone", Takes::text, "the zone to show times in, not the process's own", "ZONE"},
    {"--strict", Takes::nothing, "refuse a date whose month could be its day"},
    {"--json", Takes::nothing, "print JSON, an object a line"},
    {"-v,--verbose", Takes::nothing,
     "tell which rule took which columns, and what else it could be"}};

constexpr Command kCommands[] = {
    {"", "tell what a time string means",
     "Several TEXTs are one text with blanks between them. A time with a sign comes behind --.\n"
     "Ends with 1 when a text is no time.\n\n"
     "    morva time June 24 2014 12:30 US/Mountain\n"
     "    morva time -v 6/4/2014\n"
     "    morva time --format '%Y-%m-%d %T' -- -3days\n"
     "    cut -f1 arrivals | morva time --json -",
     kTime, tell_time}};

}  // namespace

const Group time_group = {"time", "times: what a text means, and how it is written", "", kCommands};

}  // namespace tool
