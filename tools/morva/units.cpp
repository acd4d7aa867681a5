// morva units: values converted, units shown, found and checked.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "command.hpp"
#include "morva.h"
#include "output.hpp"
#include "records.hpp"

namespace tool {

namespace {

// As many digits as a conversion leaves right.
std::string digits(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

std::string json_number(double value) {
    return value - value == 0 ? digits(value) : "null";
}

bool read_number(const std::string& text, double& value) {
    char* end = nullptr;
    value = fix_strtod(text.c_str(), &end);
    if (!text.empty() && *end == '\0') return true;
    elog_complain(0, "'%s' is no number", one_line(text).c_str());
    return false;
}

// "m s^-1": the exponents in words.
std::string dimension(const Unit& unit) {
    std::string text;
    for (long i = 0; i < maxtbl(UnitsBasis_tbl); ++i) {
        const int power = unit.exponents[i];
        if (power == 0) continue;
        text += text.empty() ? "" : " ";
        text += static_cast<const Unit*>(gettbl(UnitsBasis_tbl, i))->name;
        if (power != 1) text += "^" + std::to_string(power);
    }
    return text;
}

void print_unit(const std::string& name, const Unit& unit, bool json) {
    if (json) {
        JsonObject object;
        object.text("units", name).raw("factor", json_number(unit.factor));
        if (unit.offset != 0) object.raw("offset", json_number(unit.offset));
        print(object.text("basis", dimension(unit)).str() + "\n");
        return;
    }
    const std::string meaning = digits(unit.factor) + " " + dimension(unit);
    const std::string offset =
        unit.offset != 0 ? "  (readings: " + digits(unit.offset) + " is added first)" : "";
    print(coloured(Colour::cyan, name) + " = " + meaning + offset + "\n");
}

// Between scales with zeros far apart, digits below the last ones of those zeros are noise.
double without_noise(double reading, const std::string& from, const std::string& to) {
    Unit a{}, b{};
    if (units_parse(from.c_str(), &a) != 0 || units_parse(to.c_str(), &b) != 0) return reading;
    const double shift = a.offset * a.factor / b.factor;
    const double largest = std::max({std::fabs(reading), std::fabs(shift), std::fabs(b.offset)});
    if (shift == b.offset || !(largest < 1e12)) return reading;
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", 13 - std::max(0, std::ilogb(largest) * 3 / 10),
                  reading);
    return std::strtod(text, nullptr) + 0.0;  // no -0
}

int convert(const Arguments& arguments) {
    double value, result;
    if (!read_number(arguments.text("VALUE"), value)) return kUnusable;
    const std::string from = arguments.text("FROM"), to = arguments.text("TO");
    const bool absolute = arguments.has("--absolute");
    const auto converted = absolute ? units_convert_affine : units_convert;
    char* text = nullptr;
    const int status = converted(value, from.c_str(), &result, to.c_str(), &text);
    const std::string difference = owned(text);
    if (status < 0) {
        elog_complain(0, "no such units");
        return finish(kUnusable);
    }
    if (status == 0 && absolute) result = without_noise(result, from, to);
    if (arguments.has("--json")) {
        JsonObject object;
        object.raw("value", json_number(value)).text("from", from).text("to", to);
        status == 0 ? object.raw("result", json_number(result))
                    : object.text("difference", difference);
        print(object.str() + "\n");
        return finish(status);
    }
    if (status == 0)
        print(digits(result) + "\n");
    else
        elog_complain(0, "'%s' and '%s' measure different things: the first has %smore",
                      one_line(from).c_str(), one_line(to).c_str(), difference.c_str());
    return finish(status);
}

int show(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& units : arguments.texts("UNITS")) {
        Unit value{};
        if (units_parse(units.c_str(), &value) == 0) {
            print_unit(units, value, arguments.has("--json"));
            continue;
        }
        elog_complain(0, "no such units: '%s'", one_line(units).c_str());
        status = kFindings;
    }
    return finish(status);
}

int match(const Arguments& arguments) {
    const std::string units = arguments.text("UNITS");
    const Records names(units_match(units.c_str()), std::free);
    if (!names) {
        elog_complain(0, "no such units: '%s'", one_line(units).c_str());
        return kUnusable;
    }
    for (long i = 0; i < names.size(); ++i) {
        const std::string name = names.at<char>(i);
        print(arguments.has("--json") ? json_string(name) + "\n" : name + "\n");
    }
    return finish(names.size() > 0 ? kDone : kFindings);
}

int list(const Arguments& arguments) {
    const bool whole = units_init() == 0;
    if (!whole) elog_complain(0, "the table is read no further");
    const Records names(keysarr(Units_arr), nullptr);
    for (long i = 0; i < names.size(); ++i) {
        const char* name = names.at<char>(i);
        print_unit(name, *static_cast<const Unit*>(getarr(Units_arr, name)),
                   arguments.has("--json"));
    }
    return finish(whole ? kDone : kFindings);
}

void print_finding(const std::string& file, const Units_finding& finding, bool json) {
    const char* severity = finding.warning != 0 ? "warning" : "error";
    if (json) {
        JsonObject object;
        object.text("file", file).number("line", finding.line).number("column", finding.column);
        object.text("severity", severity).text("text", finding.text);
        print(object.str() + "\n");
        return;
    }
    const std::string place =
        file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) + ": ";
    const Colour colour = finding.warning != 0 ? Colour::yellow : Colour::red;
    print(place + coloured(colour, severity) + ": " + one_line(finding.text) + "\n");
}

int check(const Arguments& arguments) {
    const std::string file =
        arguments.has("FILE") ? arguments.text("FILE") : owned(datafile("UNITS", "units"));
    const Records findings(units_check(file.empty() ? nullptr : file.c_str()), free_units_finding);
    if (!findings) {
        elog_complain(0, "nothing was checked");
        return kUnusable;
    }
    for (long i = 0; i < findings.size(); ++i)
        print_finding(file, *findings.at<Units_finding>(i), arguments.has("--json"));
    return finish(findings.size() > 0 ? kFindings : kDone);
}

constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};
constexpr Parameter kUnits = {"UNITS", Takes::text, "an expression such as kg*m/s^2"};

constexpr Parameter kConvert[] = {
    {"VALUE", Takes::text, "a number; a negative one comes behind --"},
    {"FROM", Takes::text, "the units of the number"},
    {"TO", Takes::text, "the units to convert to"},
    {"-a,--absolute", Takes::nothing, "the number is a reading, of a thermometer for example"},
    kJson};
constexpr Parameter kMatch[] = {kUnits, kJson};
constexpr Parameter kShow[] = {
    {"UNITS", Takes::text, "expressions such as kg*m/s^2", "", Given::many}, kJson};
constexpr Parameter kList[] = {kJson};
constexpr Parameter kCheck[] = {
    {"FILE", Takes::file, "a units table; without one, that which programs use", "",
     Given::optional},
    kJson};

constexpr Command kCommands[] = {
    {"convert", "convert a number",
     "Ends with 1 when the units measure different things.\n\n"
     "    morva units convert 90 km/h m/s\n"
     "    morva units convert --absolute -- -40 degF degC",
     kConvert, convert},
    {"match", "name the units that measure the same", "    morva units match m/s^2", kMatch, match},
    {"show", "show what units are in basic units", "    morva units show nm/s hPa counts/V", kShow,
     show},
    {"list", "show all units of the table", "", kList, list},
    {"check", "check a table of units",
     "Prints FILE:LINE:COLUMN: SEVERITY: TEXT for each finding. At an error, programs stop "
     "reading.",
     kCheck, check}};

}  // namespace

const Group units_group = {"units", "units: conversions, and the table of units",
                           "The table is the file `units` along $UNITS or the data path.",
                           kCommands};

}  // namespace tool
