#include "pf/files.hpp"

#include <algorithm>

#include "base/diagnostics.hpp"
#include "files/replace_file.hpp"
#include "morva/pfread.h"

namespace morva::pf {

bool Files::read(const char* name) {
    Tbl* list = name != nullptr ? pffiles(name, 0) : newtbl(0);
    bool read = true;
    for (long i = 0; read && i < maxtbl(list); ++i) {
        File& file = files_.emplace_back();
        file.name = static_cast<char*>(gettbl(list, i));
        read = read_whole(file.name.c_str(), &file.text);
    }
    freetbl(list, std::free);
    if (read && files_.empty()) elog_log(0, "no parameter file %s\n", name != nullptr ? name : "");
    return read && !files_.empty();
}

void Files::merge_into(Outline& outline) const {
    for (const File& file : files_) outline.read(file.text, file.name.c_str());
}

int rewrite(const char* file, std::string_view old_text, std::string_view new_text) {
    return old_text == new_text ? 0 : replace_file(file, new_text);
}

char* handed_out(std::string_view text, long* length) {
    auto* copy = static_cast<char*>(must_malloc(text.size() + 1, "text", MORVA_HERE));
    std::copy(text.begin(), text.end(), copy);
    copy[text.size()] = '\0';
    if (length != nullptr) *length = static_cast<long>(text.size());
    return copy;
}

}  // namespace morva::pf
