// morva dc: the controls of running programs, looked at and changed.
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <map>

#include "command.hpp"
#include "numbers.hpp"
#include "output.hpp"
#include "records.hpp"
#include "skerrows.h"

namespace tool {

namespace {

constexpr const char* kFile = ".dynamic_controls";
constexpr const char* kCommon = "#common";

// A control of the selected set.
struct Control {
    char type;  // 'b', 'i', 'f' or 's'
    int index;
    std::string name;  // empty: it has none

    std::string code() const { return type + std::to_string(index); }
    std::string title() const { return name.empty() ? code() : name; }
};

std::string text_of(const Control& control) {
    switch (control.type) {
        case 'b':
            return std::to_string(dcgetb(control.index));
        case 'i':
            return std::to_string(dcgeti(control.index));
        case 'f':
            return number_text(dcgetf(control.index));
        default:
            return owned(dcgets(control.index));
    }
}

std::string json_of(const Control& control, const std::string& text) {
    if (control.type == 's') return json_string(text);
    const bool is_number = control.type != 'f' || std::strpbrk(text.c_str(), "ni") == nullptr;
    return is_number ? text : "null";
}

// Every control of the selected set, those with names first.
std::vector<Control> all_controls() {
    std::map<std::string, std::string> names;
    Arr* arr = dcnames();
    Tbl* keys = keysarr(arr);
    for (long i = 0; i < maxtbl(keys); ++i) {
        const char* key = static_cast<char*>(gettbl(keys, i));
        names[static_cast<char*>(getarr(arr, key))] = key;
    }
    freetbl(keys, nullptr);
    freearr(arr, std::free);
    std::vector<Control> named, others;
    const std::pair<char, int> kinds[] = {
        {'b', DC_BYTES}, {'i', DC_INTEGERS}, {'f', DC_FLOATS}, {'s', DC_STRINGS}};
    for (const auto& [type, count] : kinds)
        for (int index = count - 1; index >= 0; --index) {
            Control control{type, index, ""};
            const auto found = names.find(control.code());
            if (found != names.end()) control.name = found->second;
            (found != names.end() ? named : others).push_back(control);
        }
    named.insert(named.end(), others.rbegin(), others.rend());
    return named;
}

// What there is to see: named controls, and others that hold something.
bool is_shown(const Control& control) {
    const std::string text = text_of(control);
    return !control.name.empty() || !(text.empty() || text == "0");
}

// By name or by code. False, with a complaint, when there is none.
bool find_control(const std::string& wanted, Control& control) {
    const std::vector<Control> controls = all_controls();
    for (const bool by_name : {true, false})
        for (const Control& candidate : controls)
            if ((by_name ? candidate.name : candidate.code()) == wanted)
                return control = candidate, true;
    elog_complain(0, "there is no control '%s' here", one_line(wanted).c_str());
    return false;
}

// ---- where the controls are

bool enter_folder(const Arguments& arguments) {
    const std::string folder = arguments.text("--folder", ".");
    // Whatever this command's own controls should be, the file's are meant here.
    ::unsetenv("NO_DYNAMIC_CONTROLS");
    if (::chdir(folder.c_str()) == 0) return true;
    elog_complain(1, "can't use the folder %s", folder.c_str());
    return false;
}

bool open_file(const Arguments& arguments) {
    if (!enter_folder(arguments)) return false;
    std::error_code error;
    const auto size = std::filesystem::file_size(kFile, error);
    if (!error && size >= sizeof(Dcset) && ::access(kFile, R_OK | W_OK) == 0) return dcopen(0) == 0;
    elog_complain(0, "there is no %s to work with in %s: see morva dc create", kFile,
                  arguments.text("--folder", ".").c_str());
    return false;
}

bool select_program(const std::string& program) {
    if (program == kCommon) return true;  // selected when the file is opened
    if (dcexists(program.c_str()) != 0 && !program.empty()) return dcselect(program.c_str()) == 0;
    elog_complain(0, "no program '%s' has controls here", one_line(program).c_str());
    return false;
}

// kDone with the program's set selected and the control found.
int find(const Arguments& arguments, Control& control) {
    if (!open_file(arguments)) return kUnusable;
    const bool found = select_program(arguments.text("PROGRAM")) &&
                       find_control(arguments.text("CONTROL"), control);
    return found ? kDone : kFindings;
}

std::vector<std::string> programs() {
    std::vector<std::string> names;
    Tbl* tbl = dcprograms();
    for (long i = 0; i < maxtbl(tbl); ++i) names.emplace_back(static_cast<char*>(gettbl(tbl, i)));
    freetbl(tbl, nullptr);
    return names;
}

// ---- list

void print_set(const std::string& program) {
    const double time = dctimestamp();
    print(coloured(Colour::bold, one_line(program)) + "  " + std::to_string(dcchanged()) +
          " changes" + (time < 0 ? "" : ", the last one " + iso_time(time)) + "\n");
    for (const Control& control : all_controls()) {
        if (!is_shown(control)) continue;
        std::string label = one_line(control.name), code = control.code();
        label.resize(std::max<std::size_t>(label.size() + 1, 24), ' ');
        code.resize(4, ' ');
        print("  " + coloured(Colour::cyan, label) + code + "  " + one_line(text_of(control)) +
              "\n");
    }
}

std::string set_json(const std::string& program) {
    JsonList list;
    for (const Control& control : all_controls())
        if (is_shown(control))
            list.add(JsonObject()
                         .text("control", control.title())
                         .text("code", control.code())
                         .raw("value", json_of(control, text_of(control)))
                         .str());
    JsonObject object;
    object.text("program", program).number("changes", dcchanged());
    const double time = dctimestamp();
    object.raw("time", time < 0 ? "null" : number_json(time));
    if (time >= 0) object.text("iso", iso_time(time));
    return object.raw("controls", list.str()).str() + "\n";
}

void print_names(const std::string& program) {
    if (program.empty())
        for (const std::string& name : programs()) print(name + "\n");
    else
        for (const Control& control : all_controls())
            if (is_shown(control)) print(control.title() + "\n");
}

int list_controls(const Arguments& arguments) {
    if (!open_file(arguments)) return kUnusable;
    const std::string wanted = arguments.text("PROGRAM");
    if (!wanted.empty() && !select_program(wanted)) return kFindings;
    if (arguments.has("--names")) {
        print_names(wanted);
        return finish(kDone);
    }
    for (const std::string& program : wanted.empty() ? programs() : std::vector{wanted}) {
        if (!select_program(program)) continue;
        arguments.has("--json") ? print(set_json(program)) : print_set(program);
    }
    return finish(kDone);
}

// ---- get, set, trigger

int get_control(const Arguments& arguments) {
    Control control;
    if (const int status = find(arguments, control); status != kDone) return status;
    const std::string text = text_of(control);
    print((arguments.has("--json") ? json_of(control, text) : text) + "\n");
    return finish(kDone);
}

// A change, as set, trigger and watch tell it.
void print_change(const Arguments& arguments, const Control& control, const std::string& before,
                  const std::string& now) {
    const std::string program = arguments.text("PROGRAM");
    const double time = std_now();
    if (arguments.has("--json"))
        print(JsonObject()
                  .raw("time", number_json(time))
                  .text("iso", iso_time(time))
                  .text("program", program)
                  .text("control", control.title())
                  .raw("old", json_of(control, before))
                  .raw("new", json_of(control, now))
                  .str() +
              "\n");
    else
        print(coloured(Colour::cyan, iso_time(time)) + "  " + one_line(control.title()) + "  " +
              one_line(before) + " -> " + coloured(Colour::bold, one_line(now)) + "\n");
}

bool read_integer(const std::string& text, long least, long most, long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0' && errno == 0 && value >= least && value <= most) return true;
    elog_complain(0, "'%s' is no whole number from %ld to %ld", one_line(text).c_str(), least,
                  most);
    return false;
}

// False, with a complaint, when the control can't hold the text.
bool change_control(const Control& control, const std::string& text) {
    long integer = 0;
    double number = 0;
    switch (control.type) {
        case 'b':
            return read_integer(text, 0, 255, integer) &&
                   dcsetb(control.index, static_cast<int>(integer)) == 0;
        case 'i':
            return read_integer(text, LONG_MIN, LONG_MAX, integer) &&
                   dcseti(control.index, integer) == 0;
        case 'f':
            return read_number(text, number) && dcsetf(control.index, number) == 0;
        default:
            if (text.size() < DC_STRING_SIZE) return dcsets(control.index, text.c_str()) == 0;
            elog_complain(0, "'%s' is longer than %d bytes", one_line(text).c_str(),
                          DC_STRING_SIZE - 1);
            return false;
    }
}

int change(const Arguments& arguments, const Control& control, const std::string& text) {
    const std::string before = text_of(control);
    if (!change_control(control, text)) return kUnusable;
    print_change(arguments, control, before, text_of(control));
    return finish(kDone);
}

int set_control(const Arguments& arguments) {
    Control control;
    const int status = find(arguments, control);
    return status == kDone ? change(arguments, control, arguments.text("VALUE")) : status;
}

int trigger_control(const Arguments& arguments) {
    Control control;
    if (const int status = find(arguments, control); status != kDone) return status;
    if (control.type == 'b') return change(arguments, control, "1");
    elog_complain(0, "'%s' is no byte control", one_line(control.title()).c_str());
    return kFindings;
}

// ---- watch

class Watch {
  public:
    explicit Watch(const Arguments& arguments) : arguments_(arguments) { look(0); }

    // Prints what differs from the last look, `most` at most; tells how many.
    long look(long most) {
        long told = 0;
        for (const Control& control : all_controls()) {
            const std::string now = text_of(control);
            std::string& before = texts_[control.code()];
            if (told < most && before != now) {
                print_change(arguments_, control, before, now);
                ++told;
            }
            before = now;
        }
        std::fflush(stdout);
        return told;
    }

  private:
    const Arguments& arguments_;
    std::map<std::string, std::string> texts_;
};

int watch_controls(const Arguments& arguments) {
    constexpr int kSlice = 500;  // milliseconds: a program that takes a trigger does not wake us
    if (!open_file(arguments)) return kUnusable;
    const std::string program = arguments.text("PROGRAM");
    if (!select_program(program)) return kFindings;
    long seen = dcchanged();
    Watch watch(arguments);
    long left = std::strtol(arguments.text("--count", "1000000000").c_str(), nullptr, 10);
    while (left > 0 && std::ferror(stdout) == 0) {
        dcwait(seen, kSlice);
        if (std::strncmp(dcselected()->program, program.c_str(), DC_NAME_SIZE - 1) != 0) {
            elog_complain(0, "the controls of '%s' were removed", one_line(program).c_str());
            return finish(kFindings);
        }
        seen = dcchanged();
        left -= watch.look(left);
    }
    return finish(kDone);
}

// ---- create, rm

int create_file(const Arguments& arguments) {
    if (!enter_folder(arguments)) return kUnusable;
    if (dcexists(nullptr) != 0) {
        elog_complain(0, "there is a %s already", kFile);
        return kUnusable;
    }
    if (dccreate() == 0) return kDone;
    elog_complain(0, "can't make %s", kFile);
    return kUnusable;
}

int remove_program(const Arguments& arguments) {
    if (!open_file(arguments)) return kUnusable;
    const std::string program = arguments.text("PROGRAM");
    if (!program.empty() && dcremove(program.c_str()) == 0) return kDone;
    elog_complain(0, "no program '%s' has controls here", one_line(program).c_str());
    return kFindings;
}

constexpr Parameter kProgram = {"PROGRAM", Takes::program,
                                "a program, or #common for the controls of all"};
constexpr Parameter kControl = {"CONTROL", Takes::control,
                                "name of a control, or its type and index, such as b0 or f15"};
constexpr Parameter kFolder = {"-C,--folder", Takes::file,
                               "the folder that the programs run in, this one if not given",
                               "FOLDER"};
constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};

constexpr Parameter kList[] = {
    {"PROGRAM", Takes::program, "only this one", "", Given::optional},
    {"--names", Takes::nothing, "print only the names, of programs or of the one's controls"},
    kFolder,
    kJson};
constexpr Parameter kGet[] = {kProgram, kControl, kFolder, kJson};
constexpr Parameter kSet[] = {
    kProgram,
    kControl,
    {"VALUE", Takes::text, "a number, or a text of 31 bytes at most for a string control"},
    kFolder,
    kJson};
constexpr Parameter kTrigger[] = {kProgram, kControl, kFolder, kJson};
constexpr Parameter kWatch[] = {
    kProgram, {"--count", Takes::count, "end after so many changes", "N"}, kFolder, kJson};
constexpr Parameter kCreate[] = {kFolder};
constexpr Parameter kRemove[] = {kProgram, kFolder};

constexpr Command kCommands[] = {
    {"list", "show programs and their controls",
     "Controls without a name are shown when they hold something.\n\n"
     "    morva dc list\n"
     "    morva dc list --folder /run/archive wfserver",
     kList, list_controls},
    {"get", "print the value of a control", "    morva dc get wfserver threshold", kGet,
     get_control},
    {"set", "change a control",
     "Prints the old value and the new one. A value below zero comes behind --.\n\n"
     "    morva dc set wfserver bnssnoop 1\n"
     "    morva dc set wfserver offset -- -2.5",
     kSet, set_control},
    {"trigger", "set a byte control that the program takes back when it has seen it",
     "    morva dc trigger wfserver rotate", kTrigger, trigger_control},
    {"watch", "print changes of a program's controls, with the old and the new value",
     "    morva dc watch wfserver", kWatch, watch_controls},
    {"create", "make the file of controls, which programs use from their next start on",
     "The parameter file dynamic_controls_config says for how many programs.\n\n"
     "    morva dc create --folder /run/archive",
     kCreate, create_file},
    {"rm", "give a program's controls up", "    morva dc rm wfserver", kRemove, remove_program}};

}  // namespace

const Group dc_group = {"dc", "controls of running programs: look, change, watch",
                        "Programs share their controls through the file .dynamic_controls of the "
                        "folder they run in.",
                        kCommands};

}  // namespace tool
