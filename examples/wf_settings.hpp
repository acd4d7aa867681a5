// The settings of wfreport, from the parameter file `wfreport`.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "morva.h"
#include "wf_table.hpp"
#include "wf_values.hpp"

struct Settings {
    std::string sources;             // the files that the settings come from
    std::vector<std::string> files;  // to report on when none is named
    std::string select;              // stations and channels; empty: all
    std::vector<Column> columns = all_columns();
    std::vector<Codec> codecs;   // of the table of sizes; none: no such table
    std::string unit;            // of amplitudes; empty: counts
    std::string folder;          // of the histories; empty: none are kept
    int ring_size = 3600;        // points of each
    bool announce = true;        // tell who the program is
    double max_file_size = 1e9;  // bytes
    long max_bad_files = 0;      // 0: any number
};

inline Column column_named(const std::string& heading) {
    for (const Column& column : all_columns())
        if (heading == column.heading) return column;
    elog_die(0, "parameter file wfreport: there is no column '%s'\n", heading.c_str());
}

inline Codec codec_named(const std::string& name) {
    if (const Codec* codec = find_codec(name)) return *codec;
    elog_die(0, "parameter file wfreport: there is no codec '%s'\n", name.c_str());
}

inline void take_settings(Pf* pf, Settings& settings) {
    settings.files = files_or_none(pf, "files");
    settings.select = joined(texts(pf, "select"));
    const auto headings = texts(pf, "columns");
    if (!headings.empty()) settings.columns.clear();
    for (const std::string& heading : headings) settings.columns.push_back(column_named(heading));
    for (const std::string& name : texts(pf, "codecs"))
        settings.codecs.push_back(codec_named(name));
    settings.unit = text_or(pf, "amplitude_unit", "");
    require_motion(settings.unit);
    settings.folder = text_or(pf, "folder", "");
    settings.ring_size = static_cast<int>(number_or(pf, "ring_size", settings.ring_size));
    settings.announce = switch_or(pf, "announce", settings.announce);
    if (pfget_string(pf, "max_file_size")) settings.max_file_size = pfget_size(pf, "max_file_size");
    if (pfget_string(pf, "max_bad_files")) settings.max_bad_files = pfget_int(pf, "max_bad_files");
}

// Reads all files of the name along the search path. Errors in them end the program: a report with
// half of its settings would be worse than none.
inline Settings read_settings(const char* name) {
    Settings settings;
    Tbl* files = pffiles(name, 0);
    if (maxtbl(files) > 0) {
        char* list = jointbl(files, ", ");
        settings.sources = list;
        std::free(list);
    }
    freetbl(files, std::free);
    Pf* pf = nullptr;
    if (pfread(name, &pf) < -1)
        elog_die(0, "errors in the settings; they come from %s\n", settings.sources.c_str());
    take_settings(pf, settings);
    pffree(pf);
    return settings;
}
