// morva pf check and explain: the findings and places of the library, for people and programs.
#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

std::string place_of(const char* file, long line, long column) {
    return one_line(file) + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string finding_json(const Pffinding& finding) {
    return JsonObject()
        .text("file", finding.file)
        .number("line", finding.line)
        .number("column", finding.column)
        .text("severity", finding.severity == PFERROR ? "error" : "warning")
        .text("text", finding.text)
        .str();
}

std::string finding_text(const Pffinding& finding) {
    const bool error = finding.severity == PFERROR;
    return coloured(Colour::bold, place_of(finding.file, finding.line, finding.column) + ":") +
           " " + coloured(error ? Colour::red : Colour::yellow, error ? "error:" : "warning:") +
           " " + finding.text + "\n";
}

const char* role_of(const Pfplace& place, bool decides) {
    if (place.type == PFINVALID) return "removes";
    return decides ? "decides" : "overridden";
}

std::string value_of(const Pfplace& place) {
    switch (place.type) {
        case PFINVALID:
            return "";
        case PFTBL:
            return "&Tbl{}";
        case PFARR:
            return "&Arr{}";
        default:
            return place.text;
    }
}

std::string place_json(const Pfplace& place, bool decides) {
    JsonObject object;
    object.text("file", place.file)
        .number("line", place.line)
        .number("column", place.column)
        .text("role", role_of(place, decides));
    if (place.text != nullptr) object.text("value", place.text);
    if (place.type == PFTBL || place.type == PFARR)
        object.text("block", place.type == PFTBL ? "list" : "array");
    return object.str();
}

std::string place_text(const Pfplace& place, bool decides) {
    std::string text =
        coloured(Colour::bold, place_of(place.file, place.line, place.column) + ":") + " " +
        coloured(decides ? Colour::green : Colour::plain, role_of(place, decides));
    if (place.type != PFINVALID) text += ": " + one_line(value_of(place));
    return text + "\n";
}

}  // namespace

int pf_check(const Arguments& arguments) {
    const bool json = arguments.has("--json");
    int status = kDone;
    JsonList list;
    for (const std::string& name : arguments.texts("NAME")) {
        const Records findings(pfcheck(name.c_str()), freepffinding);
        if (!findings) {
            elog_complain(0, "can't check %s", name.c_str());
            status = kUnusable;
            continue;
        }
        for (long i = 0; i < findings.size(); ++i) {
            const Pffinding& finding = *findings.at<Pffinding>(i);
            json ? list.add(finding_json(finding)) : print(finding_text(finding));
        }
        if (findings.size() > 0 && status == kDone) status = kFindings;
    }
    if (json) print(list.str() + "\n");
    return finish(status);
}

int pf_explain(const Arguments& arguments) {
    const std::string name = arguments.text("NAME"), path = arguments.text("PATH");
    const Records places(pfwhere(name.c_str(), path.c_str()), freepfplace);
    if (!places) {
        elog_complain(0, "can't explain %s of %s", path.c_str(), name.c_str());
        return kUnusable;
    }
    const bool json = arguments.has("--json");
    JsonList list;
    for (long i = 0; i < places.size(); ++i) {
        const Pfplace& place = *places.at<Pfplace>(i);
        json ? list.add(place_json(place, i == 0)) : print(place_text(place, i == 0));
    }
    if (json) print(list.str() + "\n");
    if (places.size() == 0 && !json)
        elog_complain(0, "no '%s' in parameter file %s", path.c_str(), name.c_str());
    const bool there = places.size() > 0 && places.at<Pfplace>(0)->type != PFINVALID;
    return finish(there ? kDone : kFindings);
}

}  // namespace tool
