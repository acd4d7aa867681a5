// What a subcommand tells about itself: a row of a table from which the parser, the help, the
// completions and the manual page are made. A group of subcommands is one table in one source file.
#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

namespace tool {

// What every command ends with.
enum Status { kDone = 0, kFindings = 1, kUnusable = 2 };

// What a parameter takes; the completions offer words that fit.
enum class Takes {
    nothing,
    text,
    file,
    name,     // of a parameter file
    path,     // of a value in it
    program,  // one that has controls
    control,  // one of its controls
    port,     // a name of a port
    seconds,
    count,
    choice
};

enum class Given { required, optional, many };

// An option ("-i,--in-place") or, without a dash, an argument that is known by its place ("NAME").
struct Parameter {
    const char* spelling;
    Takes takes;
    const char* help;
    const char* value = "";  // what the help calls the value; of a choice, its words: "a|b"
    Given given = Given::required;

    bool is_option() const { return spelling[0] == '-'; }
    // The name that a command asks for: "--in-place" or "NAME".
    std::string name() const {
        const std::string text = spelling;
        const std::size_t comma = text.rfind(',');
        return comma == std::string::npos ? text : text.substr(comma + 1);
    }
};

// What was given on the command line, by the parameters' names.
class Arguments {
  public:
    bool has(const std::string& name) const { return values_.count(name) > 0; }
    std::string text(const std::string& name, const std::string& otherwise = "") const {
        const auto found = values_.find(name);
        return found == values_.end() || found->second.empty() ? otherwise : found->second.front();
    }
    const std::vector<std::string>& texts(const std::string& name) const {
        static const std::vector<std::string> none;
        const auto found = values_.find(name);
        return found == values_.end() ? none : found->second;
    }
    void set(const std::string& name, std::vector<std::string> values) {
        values_[name] = std::move(values);
    }

  private:
    std::map<std::string, std::vector<std::string>> values_;
};

struct Command {
    const char* name;
    const char* summary;
    const char* details;  // paragraphs below the options of the help
    std::span<const Parameter> parameters;
    int (*run)(const Arguments&);
};

// A group whose only command has no name is a command itself.
struct Group {
    const char* name;
    const char* summary;
    const char* details;
    std::span<const Command> commands;

    bool is_command() const { return *commands.front().name == '\0'; }
};

// Every group; a new one is a source file and a row here (main.cpp).
std::span<const Group* const> groups();

extern const Group acl_group;
extern const Group codec_group;
extern const Group dc_group;
extern const Group grave_group;
extern const Group heap_group;
extern const Group morph_group;
extern const Group pf_group;
extern const Group port_group;
extern const Group ring_group;
extern const Group snoop_group;
extern const Group sum_group;
extern const Group time_group;
extern const Group units_group;
extern const Group generate_group;

}  // namespace tool
