// Finds the waveform sections of a GSE2 message.
//
//     From: ...                     mail headers and whatever else comes first
//     WID2 2007/03/21 22:23:00.004 IDI   HHZ      CM6   110400   80.000000 ...
//     STA2 ...                      a section begins with its WID2 line
//     DAT2
//     UIK2VUIJ...                   data
//     CHK2 24056294                 and ends with the checksum
//     WID2 ...                      the next one
//     STOP
#pragma once

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "morva.h"

struct Section {
    const char* begin;  // its WID2 line in the message, or its data when it has none
    char start[24];     // as the message gives it: 2007/03/21 22:23:00.004
    char station[8];
    char channel[8];
    char format[8];      // CM6, INT, CM8, ...; empty when the WID2 line can't be read
    bool announced;      // by a WID2 line; false for data that stand in the message without one
    long samples;        // stated, -1 when unknown
    double rate;         // samples a second
    double calibration;  // nm a count at the calibration period; 0 when unknown
    double period;       // the calibration period, in seconds; 0 when unknown
    const char* text;    // from the DAT2 line on; null without one
    long length;
};

// The line at the front of `text`, without its newline or carriage return.
inline std::string_view first_line(std::string_view text) {
    std::string_view line = text.substr(0, text.find('\n'));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

// What follows the first line.
inline std::string_view after_line(std::string_view text) {
    const auto newline = text.find('\n');
    return newline == text.npos ? std::string_view() : text.substr(newline + 1);
}

// A copy without the blanks at the ends of lines.
inline std::string without_padding(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (; !text.empty(); text = after_line(text)) {
        const std::string_view line = first_line(text);
        result.append(line, 0, line.find_last_not_of(' ') + 1);
        result += '\n';
    }
    return result;
}

inline bool is_line(std::string_view line, std::string_view word) {
    return line.starts_with(word) && (line.size() == word.size() || line[word.size()] == ' ');
}

// Copies columns first..last of a line, counted from 1, without blanks around them.
template <int size>
void copy_columns(char (&field)[size], std::string_view line, std::size_t first, std::size_t last) {
    field[0] = '\0';
    if (line.size() < first) return;
    const auto columns = line.substr(first - 1, last - first + 1);
    copystrip(field, columns.data(), static_cast<int>(columns.size()));
    for (char* c = field; *c != '\0'; ++c)
        if (*c < ' ' || *c > '~') *c = '?';
}

// A whole number, or -1.
inline long whole_number(const char* text) {
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    return end != text && *end == '\0' && number >= 0 ? number : -1;
}

// No instrument is that quick, and a larger number would not fit in a report.
inline bool is_rate(double rate) {
    return rate > 0 && rate < 1e6;
}

// Calibration and its period, from their texts. What is no reasonable number counts as unknown.
inline void take_calibration(Section* section, const char* calibration, const char* period) {
    const auto sound = [](double value) { return std::fabs(value) < 1e12 ? value : 0; };
    section->calibration = sound(std::strtod(calibration, nullptr));
    section->period = sound(std::strtod(period, nullptr));
}

// CM6, INT, AU8: a damaged name must not pass for a format that is merely unknown.
inline bool is_format(std::string_view name) {
    const auto is_letter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    return name.size() == 3 && is_letter(name[0]) && is_letter(name[1]) &&
           (is_letter(name[2]) || is_digit(name[2]));
}

// Reads the columns that GSE2 and IMS1.0 give each field of a WID2 line. The columns between them
// are blank; where they are not, the line keeps to other columns.
inline bool read_wid2_columns(Section* section, std::string_view line) {
    if (line.size() < 58) return false;
    for (const std::size_t between : {16, 29, 35, 39, 44, 48, 57})
        if (line[between - 1] != ' ') return false;
    char samples[9], rate[12];
    copy_columns(section->start, line, 6, 28);
    copy_columns(section->station, line, 30, 34);
    copy_columns(section->channel, line, 36, 38);
    copy_columns(section->format, line, 45, 47);
    copy_columns(samples, line, 49, 56);
    copy_columns(rate, line, 58, 68);
    section->samples = whole_number(samples);
    section->rate = std::strtod(rate, nullptr);
    char calibration[11], period[8];
    copy_columns(calibration, line, 70, 79);
    copy_columns(period, line, 81, 87);
    take_calibration(section, calibration, period);
    return section->samples >= 0 && is_rate(section->rate) && is_format(section->format);
}

// Some writers pay no attention to columns: takes the words of the line in their order, date, time,
// station, channel, perhaps an auxiliary name, format, samples, rate.
inline bool read_wid2_words(Section* section, std::string_view line) {
    char copy[256];
    szcopy(copy, line.data(), static_cast<int>(line.size() < 255 ? line.size() : 255));
    Tbl* words = splitws(copy);
    const auto word = [&](long i) {
        const char* found = static_cast<const char*>(gettbl(words, i));
        return std::string_view(found != nullptr ? found : "");
    };
    // The first whole number behind the channel is the sample count, if a format precedes it.
    long at = 6;
    while (at < maxtbl(words) && whole_number(word(at).data()) < 0) ++at;
    const bool found = at < maxtbl(words);
    if (found) {
        const std::string_view start = word(1);
        szcopy(section->start, start.data(),
               static_cast<int>(start.size() < 10 ? start.size() : 10));
        std::strcat(section->start, " ");
        std::strncat(section->start, word(2).data(), 12);
        copy_columns(section->station, word(3), 1, 7);
        copy_columns(section->channel, word(4), 1, 7);
        copy_columns(section->format, word(at - 1), 1, 7);
        section->samples = whole_number(word(at).data());
        section->rate = std::strtod(word(at + 1).data(), nullptr);
        take_calibration(section, word(at + 2).data(), word(at + 3).data());
    }
    freetbl(words, nullptr);
    return found && is_rate(section->rate) && is_format(section->format);
}

// The data of a section, from its DAT2 line to the end of its CHK2 line. Without a checksum they
// end at the next section or at the end of the message.
inline std::string_view find_data(std::string_view section) {
    while (!section.empty() && !is_line(first_line(section), "DAT2")) section = after_line(section);
    std::string_view rest = section, stop;
    for (; !rest.empty(); rest = after_line(rest)) {
        const std::string_view line = first_line(rest);
        if (line.starts_with("CHK2 "))
            return section.substr(0, section.size() - after_line(rest).size());
        if (stop.empty() && is_line(line, "STOP")) stop = rest;
    }
    return section.substr(0, section.size() - stop.size());
}

inline Section* new_section(const char* begin, std::string_view data) {
    Section* section = static_cast<Section*>(std::calloc(1, sizeof(Section)));
    if (section == nullptr) elog_die(1, "out of memory\n");
    section->begin = begin;
    section->samples = -1;
    section->text = data.empty() ? nullptr : data.data();
    section->length = static_cast<long>(data.size());
    return section;
}

// Adds the data that stand in a part of the message without a WID2 line: it is damaged, or glued to
// the line before it.
inline void push_strays(Tbl* sections, std::string_view text) {
    for (auto data = find_data(text); !data.empty(); data = find_data(text)) {
        pushtbl(sections, new_section(data.data(), data));
        text.remove_prefix(static_cast<std::size_t>(data.data() + data.size() - text.data()));
    }
}

// Adds the section that a part of the message begins with, and what stands behind its data.
inline void push_section(Tbl* sections, std::string_view text) {
    const std::string_view data = find_data(text), line = first_line(text);
    Section* section = new_section(text.data(), data);
    section->announced = true;
    if (!read_wid2_columns(section, line) && !read_wid2_words(section, line)) {
        section->format[0] = '\0';
        section->samples = -1;
    }
    pushtbl(sections, section);
    if (!data.empty())
        push_strays(sections,
                    text.substr(static_cast<std::size_t>(data.data() - text.data()) + data.size()));
}

// The length of the text before the next WID2 line, after the first line.
inline std::size_t part_length(std::string_view text) {
    std::string_view rest = after_line(text);
    while (!rest.empty() && !rest.starts_with("WID2 ")) rest = after_line(rest);
    return text.size() - rest.size();
}

// The sections of a message: a list of Section, to be freed with freetbl(sections, free).
inline Tbl* find_sections(std::string_view message) {
    Tbl* sections = newtbl(10);
    while (!message.empty()) {
        const std::string_view part = message.substr(0, part_length(message));
        if (part.starts_with("WID2 "))
            push_section(sections, part);
        else
            push_strays(sections, part);
        message.remove_prefix(part.size());
    }
    return sections;
}
