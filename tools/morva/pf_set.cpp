// morva pf set: one value changed in the file that decides it.
#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

std::string with_suffix(const std::string& name) {
    const bool has = name.size() >= 3 && name.compare(name.size() - 3, 3, ".pf") == 0;
    return has ? name : name + ".pf";
}

// The key at the root that a path begins with.
std::string root_key_of(const std::string& path) {
    if (path.empty() || path[0] == '{') return path.substr(0, path.find('}') + 1);
    return path.substr(0, path.find_first_of("{["));
}

// The file of the place that decides `path`; "" when nothing does.
std::string decider_of(const std::string& name, const std::string& path) {
    const int mark = elog_mark();
    const Records places(pfwhere(name.c_str(), path.c_str()), freepfplace);
    if (!places) elog_flush(0, mark);
    return places && places.size() > 0 ? places.at<Pfplace>(0)->file : "";
}

// The file that a change belongs in: where the value or the array that it is in is decided now, or
// else the last one that is read. "" when there is none.
std::string file_to_change(const std::string& name, const std::string& path) {
    if (name.find('/') != std::string::npos) return with_suffix(name);
    for (const std::string& part : {path, root_key_of(path)})
        if (const std::string file = decider_of(name, part); !file.empty()) return file;
    const Records files(pffiles(name.c_str(), 0), std::free);
    if (files.size() > 0) return files.at<char>(files.size() - 1);
    elog_complain(0, "no parameter file %s", name.c_str());
    return "";
}

// The first line in which two texts differ.
long first_difference(const std::string& a, const std::string& b) {
    long line = 1;
    for (size_t i = 0; i < a.size() && i < b.size() && a[i] == b[i]; ++i) line += a[i] == '\n';
    return line;
}

Tree compiled(const std::string& text) {
    Pf* pf = nullptr;
    pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    return Tree(pf);
}

void report(const std::string& file, const std::string& before, const std::string& now, bool json) {
    const long line = first_difference(before, now);
    const std::vector<Leaf> was = leaves_of(compiled(before).get()),
                            is = leaves_of(compiled(now).get());
    if (json) {
        print(JsonObject()
                  .text("file", file)
                  .number("line", line)
                  .boolean("changed", before != now)
                  .raw("changes", difference_json(was, is))
                  .str() +
              "\n");
        return;
    }
    if (before == now) return print(one_line(file) + ": unchanged\n");
    print(coloured(Colour::bold, one_line(file) + ":" + std::to_string(line) + ":") + "\n");
    print_difference(was, is);
}

}  // namespace

int pf_set(const Arguments& arguments) {
    const std::string path = arguments.text("PATH"), value = arguments.text("VALUE");
    const std::string file = file_to_change(arguments.text("NAME"), path);
    std::string before;
    if (file.empty() || !read_file(file, &before)) return kUnusable;
    const int flags = (arguments.has("--verbatim") ? PFEDIT_VERBATIM : 0) |
                      (arguments.has("--force") ? PFEDIT_BLOCKS : 0);
    long length = 0;
    const Text edited(pfedit(before.data(), static_cast<long>(before.size()), path.c_str(),
                             value.c_str(), flags, &length));
    const bool written =
        edited != nullptr && (arguments.has("--dry-run") ||
                              pfedit_file(file.c_str(), path.c_str(), value.c_str(), flags) == 0);
    if (!written) {
        elog_complain(0, "'%s' is unchanged", file.c_str());
        return kUnusable;
    }
    report(file, before, std::string(edited.get(), static_cast<size_t>(length)),
           arguments.has("--json"));
    return finish(kDone);
}

}  // namespace tool
