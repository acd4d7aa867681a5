// morva pf fmt: files laid out anew.
#include "output.hpp"
#include "pf_commands.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

// A file by its path, or the last one of a name that is read.
std::string file_of(const std::string& name) {
    if (is_file(name.c_str())) return name;
    const Records files(pffiles(name.c_str(), 0), std::free);
    return files.size() > 0 ? files.at<char>(files.size() - 1) : name;
}

// The normal form has the values only.
bool normal(const std::string& text, std::string* result) {
    Pf* pf = nullptr;
    const int status = pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    const Tree tree(pf);
    if (status == 0) *result = normal_form(tree.get());
    return status == 0;
}

bool laid_out(const std::string& text, bool as_written_by_programs, std::string* result) {
    if (as_written_by_programs) return normal(text, result);
    long length = 0;
    const Text formatted(pfformat(text.data(), static_cast<long>(text.size()), &length));
    if (formatted != nullptr) result->assign(formatted.get(), static_cast<std::size_t>(length));
    return formatted != nullptr;
}

int replace(const std::string& file, const std::string& text, bool as_written_by_programs) {
    if (!as_written_by_programs) return pfformat_file(file.c_str());
    Pf* pf = nullptr;
    pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    const Tree tree(pf);
    return pfwrite_atomic(file.c_str(), tree.get());
}

int fail(const std::string& file) {
    elog_complain(0, "can't lay out '%s'", file.c_str());
    return kUnusable;
}

int lay_out(const std::string& file, const Arguments& arguments) {
    const bool normal_wanted = arguments.has("--normal");
    std::string before, now;
    if (!read_file(file, &before) || !laid_out(before, normal_wanted, &now)) return fail(file);
    if (arguments.has("--check")) {
        if (before != now) print(one_line(file) + "\n");
        return before == now ? kDone : kFindings;
    }
    if (!arguments.has("--in-place")) {
        print(now);
        return kDone;
    }
    return before == now || replace(file, before, normal_wanted) == 0 ? kDone : fail(file);
}

}  // namespace

int pf_fmt(const Arguments& arguments) {
    if (arguments.has("--in-place") && arguments.has("--normal") && !arguments.has("--force")) {
        elog_complain(0, "the normal form has no comments; --force loses them");
        return kUnusable;
    }
    int status = kDone;
    for (const std::string& name : arguments.texts("FILE"))
        status = std::max(status, lay_out(file_of(name), arguments));
    return finish(status);
}

}  // namespace tool
