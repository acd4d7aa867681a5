// The report's second table: how many bytes a sample each section takes under the codecs that the
// settings choose.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "wf_codecs.hpp"
#include "wf_sections.hpp"

// The bytes of a series under a codec, or why there are none.
enum { kNotTaken = -1, kLost = -2 };

inline long size_under(const Codec& codec, Samples samples) {
    const int mark = elog_mark();
    const std::vector<std::int32_t> filled = filled_up(codec, samples);
    Bytes packed;
    Series back;
    long size = kNotTaken;
    if (codec.encode(filled, packed))
        size = codec.decode(packed.view(), back) && std::ranges::equal(filled, back.view())
                   ? packed.used
                   : static_cast<long>(kLost);
    elog_flush(0, mark);
    return size;
}

struct SizeTable {
    struct Line {
        std::string file, station, channel;
        long samples;
        std::vector<long> sizes;
    };

    std::vector<Codec> codecs;
    std::vector<Line> lines;

    // Adds a line. Returns the codecs that the samples did not come back from; empty: all is well.
    std::string add(const std::string& file, const Section* section, Samples samples) {
        Line line{file, section->station, section->channel, static_cast<long>(samples.size()), {}};
        std::string lost;
        for (const Codec& codec : codecs) {
            line.sizes.push_back(size_under(codec, samples));
            if (line.sizes.back() == kLost)
                lost += std::string(lost.empty() ? "" : ", ") + codec.name;
        }
        lines.push_back(line);
        return lost;
    }

    static std::string cell(long size, long samples) {
        if (size < 0 || samples == 0) return size == kLost ? "LOST" : "-";
        char text[32];
        std::snprintf(text, sizeof text, "%.3f",
                      static_cast<double>(size) / static_cast<double>(samples));
        return text;
    }

    // The mean over all sections, of a codec that took them all.
    Line mean() const {
        Line sum{"all", "", "", 0, std::vector<long>(codecs.size())};
        for (const Line& line : lines) {
            sum.samples += line.samples;
            for (std::size_t i = 0; i < codecs.size(); ++i)
                sum.sizes[i] = std::min(sum.sizes[i], line.sizes[i]) < 0
                                   ? static_cast<long>(kNotTaken)
                                   : sum.sizes[i] + line.sizes[i];
        }
        return sum;
    }

    void print_line(const Line& line, int width) const {
        std::printf("%-*s %-5s %-3s %8ld", width, line.file.c_str(), line.station.c_str(),
                    line.channel.c_str(), line.samples);
        for (std::size_t i = 0; i < codecs.size(); ++i)
            std::printf(" %*s", column_width(i), cell(line.sizes[i], line.samples).c_str());
        std::printf("\n");
    }

    int column_width(std::size_t i) const {
        return std::max(6, static_cast<int>(std::string_view(codecs[i].name).size()));
    }

    void print(int width) const {
        if (codecs.empty() || lines.empty()) return;
        std::printf("\nbytes a sample, verified by a round trip through every codec\n");
        std::printf("%-*s %-5s %-3s %8s", width, "file", "sta", "chn", "samples");
        for (std::size_t i = 0; i < codecs.size(); ++i)
            std::printf(" %*s", column_width(i), codecs[i].name);
        std::printf("\n");
        for (const Line& line : lines) print_line(line, width);
        if (lines.size() > 1) print_line(mean(), width);
        std::printf("\n");
    }
};
