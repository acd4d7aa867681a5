// The report's table: a row for each section, with the columns that the settings choose.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "wf_sections.hpp"

struct Row {
    std::string_view file;
    const Section* section;
    long samples;
    const int32_t* decoded;  // null when they were not
    std::string verdict;
    double seconds;  // that decoding took
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

struct Column {
    const char* heading;
    int width;  // negative: flush left
    std::string (*cell)(const Row&);
};

inline bool has_samples(const Row& row) {
    return row.decoded != nullptr && row.samples > 0;
}

inline const std::vector<Column>& all_columns() {
    static const std::vector<Column> columns = {
        {"file", -4, [](const Row& row) { return std::string(row.file); }},
        {"sta", -5, [](const Row& row) { return std::string(row.section->station); }},
        {"chn", -3, [](const Row& row) { return std::string(row.section->channel); }},
        {"start", -23, [](const Row& row) { return start_time(row.section); }},
        {"samples", 8, [](const Row& row) { return std::to_string(row.samples); }},
        {"rate", 10, [](const Row& row) { return with_decimals(4, row.section->rate); }},
        {"minimum", 11,
         [](const Row& row) {
             if (!has_samples(row)) return std::string("-");
             return std::to_string(*std::min_element(row.decoded, row.decoded + row.samples));
         }},
        {"maximum", 11,
         [](const Row& row) {
             if (!has_samples(row)) return std::string("-");
             return std::to_string(*std::max_element(row.decoded, row.decoded + row.samples));
         }},
        {"mean", 13,
         [](const Row& row) {
             if (!has_samples(row)) return std::string("-");
             double sum = 0;
             for (long i = 0; i < row.samples; ++i) sum += row.decoded[i];
             return with_decimals(3, sum / static_cast<double>(row.samples));
         }},
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
