// morva grave: state files, in which programs keep values from one run to the next.
#include <fcntl.h>

#include <cmath>

#include "command.hpp"
#include "numbers.hpp"
#include "output.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// The file that is open, as a tree; null with a complaint when it cannot be read.
Tree read_state(FILE* file, const std::string& path) {
    Pf* pf = nullptr;
    const int result = file != nullptr ? pfin(file, &pf) : -1;
    Tree tree(pf);
    if (result >= 0 && pf != nullptr) return tree;
    elog_complain(file == nullptr, "can't read the state file %s", path.c_str());
    return nullptr;
}

Tree read_state(const std::string& path) {
    const File file(std::fopen(path.c_str(), "re"));
    return read_state(file.get(), path);
}

// The process that holds the file's lock; 0: none.
long holder_of(FILE* file) {
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(::fileno(file), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

// A value that was kept as a time: its epoch seconds stand in front, then day and date.
bool is_time(const std::string& text, double& epoch) {
    char* end = nullptr;
    epoch = fix_strtod(text.c_str(), &end);
    const std::string rest = end;
    return end != text.c_str() && std::isfinite(epoch) && rest.size() > 8 &&
           rest.compare(0, 2, " (") == 0 && rest.compare(5, 2, ") ") == 0;
}

std::string value_json(const std::string& text) {
    double number = 0;
    if (is_time(text, number))
        return JsonObject().raw("time", number_json(number)).text("iso", iso_time(number)).str();
    char* end = nullptr;
    number = fix_strtod(text.c_str(), &end);
    const bool is_number = !text.empty() && *end == '\0' && std::isfinite(number) &&
                           text.find_first_not_of("+-.0123456789eE") == std::string::npos;
    return is_number ? number_json(number) : json_string(text);
}

void print_state(const Leaf& leaf, std::size_t width) {
    std::string name = one_line(leaf.path);
    name.resize(std::max(name.size(), width), ' ');
    double epoch = 0;
    const bool timed = is_time(leaf.text, epoch);
    print(coloured(Colour::cyan, name) + "  " + (timed ? iso_time(epoch) : one_line(leaf.text)) +
          "\n");
}

int show_state(const Arguments& arguments) {
    const std::string path = arguments.text("FILE");
    const File file(std::fopen(path.c_str(), "re"));
    const Tree tree = read_state(file.get(), path);
    if (tree == nullptr) return kUnusable;
    const long holder = holder_of(file.get());
    std::size_t width = 0;
    JsonObject values;
    const std::vector<Leaf> leaves = leaves_of(tree.get());
    for (const Leaf& leaf : leaves) {
        width = std::max(width, one_line(leaf.path).size());
        values.raw(leaf.path, value_json(leaf.text));
    }
    if (arguments.has("--json")) {
        print(JsonObject()
                  .text("file", path)
                  .raw("process", holder > 0 ? std::to_string(holder) : "null")
                  .raw("values", values.str())
                  .str() +
              "\n");
        return finish(kDone);
    }
    for (const Leaf& leaf : leaves) print_state(leaf, width);
    if (holder > 0) print("in use by process " + std::to_string(holder) + "\n");
    return finish(kDone);
}

int diff_states(const Arguments& arguments) {
    return tell_difference(read_state(arguments.text("A")), read_state(arguments.text("B")),
                           arguments.has("--json"));
}

constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON"};
constexpr Parameter kShow[] = {{"FILE", Takes::file, "a state file"}, kJson};
constexpr Parameter kDiff[] = {
    {"A", Takes::file, "a state file"}, {"B", Takes::file, "another, or a later copy"}, kJson};

constexpr Command kCommands[] = {
    {"show", "print what a program keeps, and whether one uses the file",
     "    morva grave show state/wfserver", kShow, show_state},
    {"diff", "compare two state files", "    morva grave diff state/wfserver.old state/wfserver",
     kDiff, diff_states}};

}  // namespace

const Group grave_group = {"grave", "state files: what programs keep from run to run", "",
                           kCommands};

}  // namespace tool
