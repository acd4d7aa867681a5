// morva sum: checksums of files, printed and verified.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <optional>

#include "command.hpp"
#include "output.hpp"
#include "sum_files.hpp"

namespace tool {

namespace {

using Wanted = std::vector<const Algorithm*>;

const Algorithm* find_algorithm(const std::string& name) {
    for (const Algorithm& algorithm : algorithms())
        if (name == algorithm.name || name == algorithm.tag) return &algorithm;
    return nullptr;
}

// "md5,crc32" or "all"; no value, with the reason told, when a name is unknown.
std::optional<Wanted> wanted_algorithms(const std::string& names) {
    Wanted wanted;
    if (names == "all") {
        for (const Algorithm& algorithm : algorithms()) wanted.push_back(&algorithm);
        return wanted;
    }
    for (std::size_t at = 0; at <= names.size();) {
        const std::size_t comma = std::min(names.find(',', at), names.size());
        const std::string name = names.substr(at, comma - at);
        wanted.push_back(find_algorithm(name));
        if (wanted.back() == nullptr) {
            elog_complain(0, "there is no checksum called '%s'", one_line(name).c_str());
            return std::nullopt;
        }
        at = comma + 1;
    }
    return wanted;
}

// A name that would not fit on a line is written with \n and \\, and the line begins with a
// backslash to tell so.
std::string escaped_line(const std::string& tag, const std::string& file, const std::string& sum) {
    std::string name;
    for (const char c : file) name += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    return (name == file ? "" : "\\") + tag + " (" + name + ") = " + sum + "\n";
}

std::string unescaped(const std::string& name) {
    std::string file;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool escape = name[i] == '\\' && i + 1 < name.size();
        if (escape) ++i;
        file += escape && name[i] == 'n' ? '\n' : name[i];
    }
    return file;
}

bool tell_unreadable(const std::string& file, const Summed& sums) {
    if (!sums.reason.empty())
        elog_complain(0, "can't read %s: %s", one_line(file).c_str(), sums.reason.c_str());
    return !sums.reason.empty();
}

void print_sums(const std::string& file, const Summed& sums, const Wanted& wanted, bool json) {
    JsonObject object;
    object.text("file", file).number("bytes", sums.length);
    for (std::size_t i = 0; i < wanted.size(); ++i)
        if (json)
            object.text(wanted[i]->name, sums.texts[i]);
        else
            print(escaped_line(wanted[i]->tag, file, sums.texts[i]));
    if (json) print(object.str() + "\n");
}

int print_all(const std::vector<std::string>& files, const Wanted& wanted, bool json) {
    int status = kDone;
    in_order<Summed>(
        files.size(), [&](std::size_t i) { return sum_file(files[i], wanted); },
        [&](std::size_t i, const Summed& sums) {
            if (tell_unreadable(files[i], sums))
                status = kFindings;
            else
                print_sums(files[i], sums, wanted, json);
        });
    return status;
}

// A line of a list: "MD5 (FILE) = SUM", or "SUM  FILE" of an algorithm that is named or that the
// number of digits tells.
struct Entry {
    const Algorithm* algorithm;
    std::string file, sum;
};

bool is_sum(const std::string& sum, const Algorithm* algorithm) {
    return algorithm != nullptr && sum.size() == algorithm->digits &&
           sum.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::optional<Entry> entry_of(std::string line, const Algorithm* named) {
    const bool escapes = !line.empty() && line[0] == '\\';
    if (escapes) line.erase(0, 1);
    Entry entry{};
    const std::size_t open = line.find(" ("), close = line.rfind(") = "), blank = line.find(' ');
    if (open == blank && close != std::string::npos && close > open) {
        entry = {find_algorithm(line.substr(0, open)), line.substr(open + 2, close - open - 2),
                 line.substr(close + 4)};
    } else if (blank != std::string::npos && blank + 2 < line.size()) {
        const Algorithm* const by_length = find_algorithm(blank == 32   ? "md5"
                                                          : blank == 40 ? "sha1"
                                                                        : "");
        entry = {named != nullptr ? named : by_length, line.substr(blank + 2),
                 line.substr(0, blank)};
    }
    if (!is_sum(entry.sum, entry.algorithm)) return std::nullopt;
    if (escapes) entry.file = unescaped(entry.file);
    std::transform(entry.sum.begin(), entry.sum.end(), entry.sum.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
    return entry;
}

// The entries of a list; false when it can't be read or has none.
bool read_list(const std::string& list, const Algorithm* named, std::vector<Entry>& entries) {
    std::ifstream opened;
    if (list != "-") opened.open(list);
    if (!opened) {
        elog_complain(1, "can't read %s", one_line(list).c_str());
        return false;
    }
    std::istream& lines = list == "-" ? std::cin : opened;
    const std::size_t before = entries.size();
    long number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        if (const auto entry = entry_of(line, named))
            entries.push_back(*entry);
        else
            elog_complain(0, "%s:%ld: no checksum of a file", one_line(list).c_str(), number);
    }
    if (entries.size() == before)
        elog_complain(0, "found no checksums in %s", one_line(list).c_str());
    return entries.size() > before;
}

void print_verdict(const Entry& entry, const Summed& sums, bool good, bool json) {
    if (json) {
        JsonObject object;
        object.text("file", entry.file).text("algorithm", entry.algorithm->name);
        object.boolean("good", good).text("stated", entry.sum);
        if (!sums.reason.empty())
            object.text("reason", sums.reason);
        else
            object.text("computed", sums.texts.front());
        print(object.str() + "\n");
        return;
    }
    print(one_line(entry.file) + ": " +
          (good ? coloured(Colour::green, "good") : coloured(Colour::red, "WRONG")) + ", " +
          entry.algorithm->tag + (sums.reason.empty() ? "" : ", can't be read: " + sums.reason) +
          "\n");
}

int check_all(const std::vector<Entry>& entries, bool quiet, bool json) {
    long wrong = 0;
    in_order<Summed>(
        entries.size(),
        [&](std::size_t i) { return sum_file(entries[i].file, {entries[i].algorithm}); },
        [&](std::size_t i, const Summed& sums) {
            const bool good = sums.reason.empty() && sums.texts.front() == entries[i].sum;
            if (!good) ++wrong;
            if (!good || !quiet) print_verdict(entries[i], sums, good, json);
        });
    std::fflush(stdout);
    if (wrong > 0) elog_complain(0, "%ld of %zu checksums are wrong", wrong, entries.size());
    return wrong > 0 ? kFindings : kDone;
}

int sum(const Arguments& arguments) {
    const std::vector<std::string>& files = arguments.texts("FILE");
    const bool json = arguments.has("--json");
    const auto wanted = wanted_algorithms(arguments.text("--algorithm", "md5"));
    if (!wanted) return kUnusable;
    if (!arguments.has("--check")) return finish(print_all(files, *wanted, json));
    const Algorithm* const named = arguments.has("--algorithm") ? wanted->front() : nullptr;
    std::vector<Entry> entries;
    bool readable = true;
    for (const std::string& list : files) readable = read_list(list, named, entries) && readable;
    const int status = check_all(entries, arguments.has("--quiet"), json);
    return finish(readable ? status : static_cast<int>(kUnusable));
}

constexpr Parameter kSum[] = {
    {"FILE", Takes::file, "files, or with --check lists of checksums; - is standard input", "",
     Given::many},
    {"-a,--algorithm", Takes::text, "which checksums, with commas between them, or all", "NAMES"},
    {"-c,--check", Takes::nothing, "read checksums from lists, and verify the files named there"},
    {"-q,--quiet", Takes::nothing, "with --check: print only what is wrong"},
    {"--json", Takes::nothing, "print JSON, an object a line"}};

constexpr Command kCommands[] = {
    {"", "print and verify checksums of files",
     "The checksums are crc16, crc32, crc64, qtcrc, qtchecksum, adler32, md5 (when none is named)\n"
     "and sha1. crc32 begins with ffffffff, the other CRCs with 0; no result is inverted. Lines "
     "are\n"
     "\"MD5 (FILE) = SUM\"; --check also takes the lists of md5sum and sha1sum, and with one name\n"
     "after --algorithm \"SUM  FILE\" of any kind. Ends with 1 when a file is unreadable or "
     "wrong,\n"
     "and with 2 when a list has no checksums.\n\n"
     "    morva sum -a crc32,sha1 day/*.mseed >day/SUMS\n"
     "    morva sum --check --quiet day/SUMS",
     kSum, sum}};

}  // namespace

const Group sum_group = {"sum", "checksums of files, printed and verified", "", kCommands};

}  // namespace tool
