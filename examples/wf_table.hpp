// The report's table: a row for each section, with the columns that the settings choose.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "wf_codecs.hpp"
#include "wf_sections.hpp"
#include "wf_units.hpp"

struct Row {
    std::string_view file;
    const Section* section;
    long samples;
    const int32_t* decoded;  // null when they were not
    std::string verdict;
    double seconds;  // that decoding took
    Scale scale;     // of the amplitudes
};

inline std::string with_decimals(int decimals, double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// The time that a section's header gives; the header's own text where that is no time.
inline std::string start_time(const Section* section) {
    double epoch;
    if (!is_epoch_string(section->start, &epoch)) return section->start;
    char* text = epoch2str("%Y-%m-%d %H:%M:%S.%s", epoch);
    const std::string start = text;
    std::free(text);
    return start;
}

inline bool has_samples(const Row& row) {
    return row.decoded != nullptr && row.samples > 0;
}

// A number made of the counts, in the unit of the row: with six digits, or counts as they are.
template <class Counts>
std::string amplitude(const Row& row, int decimals, Counts counts) {
    if (!has_samples(row)) return "-";
    const double number = counts(Samples(row.decoded, static_cast<std::size_t>(row.samples)));
    if (is_counts(row.scale.unit)) return with_decimals(decimals, number);
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", number * row.scale.factor);
    return text;
}

// The smallest or the largest amplitude; a negative calibration turns the ground upside down.
inline std::string extreme(const Row& row, bool largest) {
    return amplitude(row, 0, [&](Samples counts) -> double {
        const auto [least, most] = std::ranges::minmax(counts);
        return largest == (row.scale.factor > 0) ? most : least;
    });
}

inline std::string mean(const Row& row) {
    return amplitude(row, 3, [](Samples counts) {
        return std::accumulate(counts.begin(), counts.end(), 0.0) /
               static_cast<double>(counts.size());
    });
}

struct Column {
    const char* heading;
    int width;  // negative: flush left
    std::string (*cell)(const Row&);
};

inline const std::vector<Column>& all_columns() {
    static const std::vector<Column> columns = {
        {"file", -4, [](const Row& row) { return std::string(row.file); }},
        {"sta", -5, [](const Row& row) { return std::string(row.section->station); }},
        {"chn", -3, [](const Row& row) { return std::string(row.section->channel); }},
        {"start", -23, [](const Row& row) { return start_time(row.section); }},
        {"samples", 8, [](const Row& row) { return std::to_string(row.samples); }},
        {"rate", 10, [](const Row& row) { return with_decimals(4, row.section->rate); }},
        {"minimum", 11, [](const Row& row) { return extreme(row, false); }},
        {"maximum", 11, [](const Row& row) { return extreme(row, true); }},
        {"mean", 13, mean},
        {"unit", -6,
         [](const Row& row) { return std::string(has_samples(row) ? row.scale.unit : "-"); }},
        {"checksum", -9, [](const Row& row) { return row.verdict; }},
        {"B/sample", 8,
         [](const Row& row) {
             if (row.decoded == nullptr) return std::string();
             const double bytes = static_cast<double>(row.section->length);
             return with_decimals(2,
                                  row.samples > 0 ? bytes / static_cast<double>(row.samples) : 0.0);
         }},
        {"Msample/s", 9,
         [](const Row& row) {
             if (row.decoded == nullptr) return std::string();
             const double samples = static_cast<double>(row.samples);
             return with_decimals(1, row.seconds > 0 ? samples / row.seconds / 1e6 : 0.0);
         }},
    };
    return columns;
}

// Prints one line; `cell` gives the text of a column.
template <class Cell>
void print_line(const std::vector<Column>& columns, int file_width, Cell cell) {
    std::string line;
    for (const Column& column : columns) {
        const std::string text = cell(column);
        const int least = std::string_view(column.heading) == "file" ? file_width : column.width;
        const std::size_t width = static_cast<std::size_t>(least < 0 ? -least : least);
        const std::string blanks(text.size() < width ? width - text.size() : 0, ' ');
        if (!line.empty()) line += ' ';
        line += column.width < 0 ? text + blanks : blanks + text;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
}
