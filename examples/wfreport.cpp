// wfreport: decodes the CM6 sections of GSE2 waveform messages, verifies their checksums, and
// prints a table with one row for each section.
//
//     wfreport [-o FOLDER] FILE...        "-" is standard input
//
// A second table tells how many bytes a sample each section takes under the codecs of the library.
// With a folder, rings of the decode speed and the amplitude of each section are kept there.
//
// Which files without an argument, which sections, columns and codecs and some limits are settings
// in the parameter file `wfreport`; see data/pf/wfreport.pf.
//
// Sections in other formats are named and skipped. A file that can't be read, holds no section, or
// has a section that is damaged gets one line on standard error, and the others are still
// processed. The exit status is 0 when all is good.
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "morva.h"
#include "wf_decode.hpp"
#include "wf_files.hpp"
#include "wf_history.hpp"
#include "wf_sections.hpp"
#include "wf_settings.hpp"
#include "wf_sizes.hpp"
#include "wf_table.hpp"

namespace {

constexpr char kVersion[] = "1.0";
constexpr char kUsage[] =
    "usage: %s [-o FOLDER] FILE...\n"
    "\treports on the waveforms of GSE2 messages; - is standard input\n"
    "\twithout FILE: of those that the parameter file wfreport names\n"
    "\t-o: keeps rings of decode speed and amplitude in the folder\n";

struct Totals {
    explicit Totals(Settings given)
        : settings(std::move(given)), history(settings.folder, settings.ring_size) {}
    Settings settings;
    History history;
    long files = 0, bad_files = 0;
    long sections = 0, bad_sections = 0, skipped = 0;
    Arr* formats = nullptr;  // names of the formats that were skipped
    SizeTable sizes;
};

// One file: its name in the table, and what was found wrong with it.
struct File {
    std::string name;
    int width;         // of the column of names
    std::string text;  // all of it
    std::string problem;
    int problems = 0;
};

// Notes a problem that an editor will find at `where` in the text of the file.
void note_problem(File& file, const Section* section, long number, const char* where,
                  const std::string& problem) {
    if (file.problems++ > 0) return;
    file.problem = "section " + std::to_string(number);
    if (section->station[0] != '\0')
        file.problem += std::string(" (") + section->station + " " + section->channel + ")";
    const auto line = std::count(static_cast<const char*>(file.text.data()), where, '\n') + 1;
    file.problem += ", line " + std::to_string(line) + ": " + problem;
}

void note_problem(File& file, const Section* section, long number, const std::string& problem) {
    note_problem(file, section, number, section->begin, problem);
}

void note_verdict(File& file, const Section* section, long number, const Um6_verdict& verdict) {
    if (verdict.status == UM6_BAD_CHARACTER) {
        char shown[8];
        const char* where = section->text + verdict.position;
        note_problem(
            file, section, number, where,
            std::string("bad character '") + printable_string(where, 1, shown, sizeof shown) + "'");
        return;
    }
    char reason[UM6_REASON_SIZE];
    note_problem(file, section, number, um6_reason(&verdict, reason));
}

const char* verdict_word(int status) {
    switch (status) {
        case UM6_GOOD:
            return "good";
        case UM6_MISMATCH:
            return "DIFFERS";
        case UM6_NO_CHECKSUM_LINE:
            return "MISSING";
        case UM6_NO_NUMBER:
            return "NO NUMBER";
        default:
            return "DAMAGED";
    }
}

void print_heading(const Settings& settings, int width) {
    print_line(settings.columns, width,
               [](const Column& column) { return std::string(column.heading); });
}

void print_row(const File& file, const Settings& settings, const Row& row) {
    print_line(settings.columns, file.width,
               [&](const Column& column) { return column.cell(row); });
}

void skip_section(const File& file, const Section* section, Totals& totals) {
    const std::string verdict = std::string("skipped: ") + section->format;
    print_row(file, totals.settings,
              {file.name, section, section->samples, nullptr, verdict, 0, {}});
    setarr(totals.formats, section->format, "");
    ++totals.skipped;
}

void report_sizes(File& file, const Section* section, long number, const Decoder& decoder,
                  SizeTable& sizes) {
    const Samples samples(decoder.samples, static_cast<std::size_t>(decoder.nsamp));
    const std::string lost = sizes.add(file.name, section, samples);
    if (!lost.empty()) note_problem(file, section, number, "does not come back from " + lost);
}

void report_section(File& file, const Section* section, long number, Decoder& decoder,
                    Totals& totals) {
    const Settings& settings = totals.settings;
    decode(section, decoder);
    const Row row = {file.name,
                     section,
                     decoder.nsamp,
                     decoder.samples,
                     verdict_word(decoder.verdict.status),
                     decoder.seconds,
                     scale_of(section->calibration, section->period, settings.unit)};
    print_row(file, settings, row);
    if (decoder.verdict.status != UM6_GOOD) {
        note_verdict(file, section, number, decoder.verdict);
    } else if (decoder.nsamp != section->samples) {
        note_problem(file, section, number,
                     "WID2 says " + std::to_string(section->samples) + " samples, " +
                         std::to_string(decoder.nsamp) + " were decoded");
    } else {
        totals.history.add(row);
        report_sizes(file, section, number, decoder, totals.sizes);
    }
}

bool is_selected(const Section* section, const Settings& settings) {
    return settings.select.empty() ||
           match_stachans(settings.select.c_str(), section->station, section->channel) > 0;
}

void process_section(File& file, const Section* section, long number, Decoder& decoder,
                     Totals& totals) {
    if (section->announced && !is_selected(section, totals.settings)) return;
    const int before = file.problems;
    if (!section->announced)
        note_problem(file, section, number, "data without a WID2 line of their own");
    else if (section->format[0] == '\0')
        note_problem(file, section, number, "can't read the WID2 line");
    else if (strcasecmp(section->format, "CM6") != 0)
        skip_section(file, section, totals);
    else if (section->text == nullptr)
        note_problem(file, section, number, "no DAT2 line");
    else if (section->length > INT_MAX)
        note_problem(file, section, number, "too long");
    else
        report_section(file, section, number, decoder, totals);
    ++totals.sections;
    if (file.problems > before) ++totals.bad_sections;
}

void process_message(File& file, Decoder& decoder, Totals& totals) {
    Tbl* sections = find_sections(file.text);
    for (long i = 0; i < maxtbl(sections); ++i)
        process_section(file, static_cast<Section*>(gettbl(sections, i)), i + 1, decoder, totals);
    if (maxtbl(sections) == 0) {
        file.problem = "no waveform section (no line that begins with WID2)";
        file.problems = 1;
    }
    freetbl(sections, std::free);
}

void process_file(const char* path, int width, Decoder& decoder, Totals& totals) {
    const char* slash = std::strrchr(path, '/');
    File file{slash != nullptr ? slash + 1 : path, width, {}, {}, 0};
    if (read_file(path, totals.settings.max_file_size, file.text)) {
        process_message(file, decoder, totals);
    } else {
        file.problem = std::string("can't read it: ") + std::strerror(errno);
        file.problems = 1;
    }
    ++totals.files;
    if (file.problems == 0) return;
    ++totals.bad_files;
    const std::string more =
        file.problems > 1 ? " (and " + std::to_string(file.problems - 1) + " more)" : "";
    std::fflush(stdout);
    elog_complain(0, "%s: %s%s\n", path, file.problem.c_str(), more.c_str());
}

std::string counted(long n, const char* noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

// "6 sections in 2 files: 1 bad section, 1 bad file, 1 section skipped (INT)"
void print_totals(const Totals& totals) {
    std::string line = counted(totals.sections, "section") + " in " + counted(totals.files, "file");
    if (totals.bad_files == 0)
        line += ": all good";
    else
        line += ": " + counted(totals.bad_sections, "bad section") + ", " +
                counted(totals.bad_files, "bad file");
    if (totals.skipped > 0) {
        Tbl* names = keysarr(totals.formats);
        char* list = jointbl(names, ", ");
        line += ", " + counted(totals.skipped, "section") + " skipped (" + list + ")";
        std::free(list);
        freetbl(names, nullptr);
    }
    if (std::printf("%s\n", line.c_str()) < 0 || std::fflush(stdout) != 0)
        elog_die(1, "can't write the report\n");
}

int column_width(const std::vector<std::string>& files) {
    std::size_t width = 4;
    for (const std::string& file : files)
        width = std::max(width, file.size() - (file.rfind('/') + 1));
    return static_cast<int>(std::min<std::size_t>(width, 40));
}

void process_files(const std::vector<std::string>& files, Totals& totals) {
    Decoder decoder;
    const long limit = totals.settings.max_bad_files;
    const int width = column_width(files);
    print_heading(totals.settings, width);
    for (const std::string& file : files) {
        process_file(file.c_str(), width, decoder, totals);
        if (limit > 0 && totals.bad_files >= limit) break;
    }
    totals.sizes.print(width);
}

// What the command line says comes before the settings.
void take_options(int argc, char** argv, Settings& settings) {
    for (int option; (option = ::getopt(argc, argv, "+o:")) != -1;) {
        if (option != 'o') elog_die(0, kUsage, Program_Name);
        settings.folder = optarg;
    }
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    if (argc > 1 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        std::printf(kUsage, Program_Name);
        return 0;
    }

    Settings read = read_settings("wfreport");
    take_options(argc, argv, read);
    Totals totals(std::move(read));
    const Settings& settings = totals.settings;
    const std::vector<std::string> files =
        optind < argc ? std::vector<std::string>(argv + optind, argv + argc) : settings.files;
    if (files.empty()) elog_die(0, kUsage, Program_Name);
    if (settings.announce) announce(nullptr, kVersion);
    if (!settings.sources.empty()) elog_notify(0, "settings from %s\n", settings.sources.c_str());
    totals.formats = newarr(nullptr);
    totals.sizes.codecs = settings.codecs;
    process_files(files, totals);
    print_totals(totals);
    freearr(totals.formats, nullptr);
    return totals.bad_files > 0 ? 1 : 0;
}
