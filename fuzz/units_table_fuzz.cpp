// Tables of units: whatever the bytes, each finding is in a line of the table, and a comment behind
// every line changes none of them.
#include <unistd.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "morva/elog.h"
#include "morva/units.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// Never destroyed: the file is removed at the very end.
const std::string& path() {
    static const std::string& made = *[] {
        const char* folder = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string name = std::string(folder) + "/units-fuzz-XXXXXX";
        ::close(::mkstemp(name.data()));
        std::atexit([] { ::unlink(path().c_str()); });
        return new std::string(name);
    }();
    return made;
}

std::string findings_of(const std::string& table) {
    std::ofstream(path(), std::ios::binary) << table;
    Tbl* findings = units_check(path().c_str());
    require(findings != nullptr);
    const long lines = std::count(table.begin(), table.end(), '\n') + 1;
    std::string text;
    for (long i = 0; i < maxtbl(findings); ++i) {
        const auto* finding = static_cast<const Units_finding*>(gettbl(findings, i));
        require(finding->line >= 1 && finding->line <= lines && finding->column >= 1);
        text += std::to_string(finding->line) + " " + finding->text + "\n";
    }
    freetbl(findings, free_units_finding);
    return text;
}

std::string commented(const std::string& table) {
    std::string text;
    for (const char c : table) text.append(c == '\n' ? " # = m\n" : std::string(1, c));
    return text + "\t#";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string table(reinterpret_cast<const char*>(data), size);
    require(findings_of(table) == findings_of(commented(table)));
    elog_clear_register(0);
    return 0;
}
