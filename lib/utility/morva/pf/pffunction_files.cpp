// The functions that read files or find them.
#include <sys/stat.h>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "morva/paths.h"
#include "pf/evaluation.hpp"
#include "pf/pfinterpret.hpp"

namespace morva::pf {
namespace {

constexpr std::size_t kPathSize = 1024;  // what the path routines write at most

// The full name of a file that a call names, seen from the folder of the file the call stands in.
bool full_name(const Call& call, char* name) {
    const std::string_view source = call.node->filename != nullptr ? call.node->filename : "";
    const std::size_t slash = source.rfind('/');
    const bool relative = call.argument[0] != '/' && call.argument[0] != '~';
    String path;
    if (relative && slash != source.npos) path = source.substr(0, slash + 1);
    path += call.argument;
    return abspath(path.c_str(), name) == 0;
}

// The file that the data search finds for "name" or "VARIABLE, name".
malloced<char> found_data(const Call& call) {
    const std::string_view arguments = call.argument;
    const std::size_t comma = arguments.find(',');
    const bool two = comma != arguments.npos;
    const String variable(two ? bare_argument(arguments.substr(0, comma)) : "");
    const String name(bare_argument(two ? arguments.substr(comma + 1) : arguments));
    malloced<char> found(datafile(variable.empty() ? nullptr : variable.c_str(), name.c_str()));
    if (found == nullptr) fail_evaluation(call.node, "the data search finds no such file");
    return found;
}

// Regular files only: others may keep the reader waiting for ever.
bool contents(const Call& call, const char* name, Pf** result) {
    const Descriptor file(
        retry([&] { return ::open(name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        elog_log(1, "can't open %s\n", name);
        return false;
    }
    if (!S_ISREG(status.st_mode)) return fail_evaluation(call.node, "this is no regular file");
    String text;
    if (!read_text(call, file.get(), &text)) return false;
    *result = new_string_node(text);
    return true;
}

}  // namespace

bool evaluate_file(const Call& call, Pf** result) {
    char name[kPathSize];
    return full_name(call, name) && contents(call, name, result);
}

bool evaluate_filename(const Call& call, Pf** result) {
    char name[kPathSize];
    if (!full_name(call, name)) return false;
    *result = new_string_node(name);
    return true;
}

bool evaluate_datafile(const Call& call, Pf** result) {
    const malloced<char> name = found_data(call);
    return name != nullptr && contents(call, name.get(), result);
}

bool evaluate_datafilename(const Call& call, Pf** result) {
    const malloced<char> name = found_data(call);
    if (name != nullptr) *result = new_string_node(name.get());
    return name != nullptr;
}

}  // namespace morva::pf
