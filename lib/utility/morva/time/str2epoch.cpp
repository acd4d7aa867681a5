// Time strings: the calls, and the report of how a text was read.
#include "morva/str2epoch.h"

#include <cstring>

#include "base/diagnostics.hpp"
#include "morva/epoch.h"
#include "time/reading.hpp"

namespace morva::time {
namespace {

struct Field {
    const char* name;
    double (*value)(const Parts&);
};
constexpr Field kFields[] = {
    {"year", [](const Parts& p) -> double { return p.year; }},
    {"month", [](const Parts& p) -> double { return p.month; }},
    {"day", [](const Parts& p) -> double { return p.day; }},
    {"day of the year", [](const Parts& p) -> double { return p.doy; }},
    {"hour", [](const Parts& p) -> double { return p.hour; }},
    {"minute", [](const Parts& p) -> double { return p.minute; }},
    {"second", [](const Parts& p) { return p.second; }},
    {"epoch", [](const Parts& p) { return p.etime; }},
    {"first number", [](const Parts& p) { return p.x1; }},
    {"second number", [](const Parts& p) { return p.x2; }},
};

// Makes a list of what it hears.
class Reporter : public Listener {
  public:
    explicit Reporter(const char* text) : text_(text), steps_(newtbl(8)) {}

    void token(const Rule& rule, std::string_view text, const Parts& before,
               const Parts& after) override {
        if (rule.meaning == nullptr) return;
        String said(rule.meaning);
        const char* separator = ": ";
        for (const Field& field : kFields) {
            if (field.value(before) == field.value(after)) continue;
            char value[Text::kRoom];
            char* end = put_general(value, field.value(after), 0, 17);
            ((said += separator) += field.name) += ' ';
            said.append(value, end);
            separator = ", ";
        }
        if (!fault_.empty()) said += "; error: " + fault_;
        fault_.clear();
        const long first = text.data() - text_ + 1;
        add(rule.number, first, first + static_cast<long>(text.size()) - 1, said.c_str());
    }
    // The token follows in which it was found; those of the whole text are told as they come.
    void fault(const char* reason) override {
        if (scanning_)
            fault_ = reason;
        else
            add(0, 0, 0, reason);
        while (!fault_.empty() && fault_.back() == '\n') fault_.pop_back();
    }
    void concluded(const char* what) override { add(0, 0, 0, what); }

    void scanned() { scanning_ = false; }
    Tbl* steps() const { return steps_; }

  private:
    void add(int rule, long first, long last, const char* said) {
        auto* step = must_alloc<Epoch_step>(1, "step", MORVA_HERE);
        step->rule = rule;
        step->first = first;
        step->last = last;
        step->said = must_strdup(said, "step", MORVA_HERE);
        if (char* newline = std::strchr(step->said, '\n'); newline != nullptr) *newline = '\0';
        pushtbl(steps_, step);
    }

    const char* text_;
    Tbl* steps_;
    String fault_;
    bool scanning_ = true;
};

// What the same text means when days and months change places.
void tell_other_order(const char* text, Reporter& reporter) {
    Reading other;
    other.order = is_month_first() != 0 ? DateOrder::kDayFirst : DateOrder::kMonthFirst;
    const malloced<char> when(epoch2str("%Y-%m-%d %H:%M:%S.%s", read_time(text, other)));
    String said("could also be ");
    said += other.errors == 0 ? when.get() : "an error";
    said += other.order == DateOrder::kDayFirst ? ", with the day first" : ", with the month first";
    reporter.concluded(said.c_str());
}

int read_logging(const char* text, double* epoch) {
    Reading reading;
    reading.log = true;
    *epoch = read_time(text, reading);
    return -reading.errors;
}

}  // namespace
}  // namespace morva::time

using namespace morva::time;

extern "C" {

double str2epoch(const char* text) {
    Reading reading;
    return read_time(text, reading);
}

int zstr2epoch(const char* text, double* epoch) {
    return read_logging(text, epoch);
}

int is_epoch_string(const char* text, double* epoch) {
    Reading reading;
    *epoch = read_time(text, reading);
    return reading.errors == 0;
}

int time_string2epoch(const char* text, double* epoch) {
    *epoch = str2epoch(text);
    return 1;
}

int str2epoch_strict(const char* text, double* epoch) {
    Reading reading;
    reading.log = true;
    const double read = read_time(text, reading);
    if (reading.errors == 0 && reading.ambiguous) {
        elog_log(0, "str2epoch: which is the month in '%s'?", text);
        return -1;
    }
    if (reading.errors == 0) *epoch = read;
    return -reading.errors;
}

Tbl* str2epoch_explain(const char* text, double* epoch, int* errors) {
    if (text == nullptr) text = "";
    Reporter reporter(text);
    Reading reading;
    reading.listener = &reporter;
    scan(text, reading);
    reporter.scanned();
    const double read = combine(reading);
    if (reading.ambiguous) tell_other_order(text, reporter);
    if (epoch != nullptr) *epoch = read;
    if (errors != nullptr) *errors = reading.errors;
    return reporter.steps();
}

void free_epoch_step(void* step) {
    if (step == nullptr) return;
    std::free(static_cast<Epoch_step*>(step)->said);
    std::free(step);
}

}  // extern "C"
