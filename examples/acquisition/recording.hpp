// A recording as a sequence of packets: the CM6 sections of GSE2 files, cut into pieces, in the
// order in which a digitizer would have had them ready.
#pragma once

#include <strings.h>

#include <algorithm>
#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "../wf_decode.hpp"
#include "../wf_files.hpp"
#include "../wf_sections.hpp"
#include "codecs.hpp"
#include "morva.h"
#include "packet.hpp"

// The samples of one section.
struct Trace {
    char station[8] = "", channel[8] = "";
    double start, rate, calibration, period;
    std::vector<int32_t> counts;
};

// A piece of a trace, which becomes a packet.
struct Piece {
    std::size_t trace;
    std::size_t first;
    std::size_t count;
    double due;  // the end of its last sample, epoch seconds
};

struct Recording {
    std::vector<Trace> traces;
    std::vector<Piece> pieces;  // the packets, in the order of their sequence numbers
    double start = 0, end = 0;  // epoch seconds
    uint64_t crc = 0;           // of the whole, as add_to_crc makes it
    int64_t total() const { return static_cast<int64_t>(pieces.size()); }
    double span() const { return end - start; }
};

// Adds a section to the recording; tells of one that can't be used.
inline void add_section(Recording& recording, const std::string& path, const Section* section,
                        Decoder& decoder) {
    Trace trace{};
    const bool is_cm6 = strcasecmp(section->format, "CM6") == 0 && section->text != nullptr &&
                        section->length <= INT_MAX;
    if (is_cm6) decode(section, decoder);
    if (!is_cm6 || decoder.verdict.status != UM6_GOOD ||
        !is_epoch_string(section->start, &trace.start)) {
        elog_notify(0, "%s: section %s %s (%s) is left out\n", path.c_str(), section->station,
                    section->channel, section->format);
        return;
    }
    std::snprintf(trace.station, sizeof trace.station, "%s", section->station);
    std::snprintf(trace.channel, sizeof trace.channel, "%s", section->channel);
    trace.rate = section->rate;
    trace.calibration = section->calibration;
    trace.period = section->period;
    trace.counts.assign(decoder.samples, decoder.samples + decoder.nsamp);
    recording.traces.push_back(std::move(trace));
}

inline void cut_trace(Recording& recording, std::size_t index, std::size_t length) {
    const Trace& trace = recording.traces[index];
    for (std::size_t first = 0; first < trace.counts.size(); first += length) {
        const std::size_t count = std::min(length, trace.counts.size() - first);
        const double due = trace.start + static_cast<double>(first + count) / trace.rate;
        recording.pieces.push_back({index, first, count, due});
    }
}

inline Packet packet_at(const Recording& recording, int64_t sequence);

// Reads the files and cuts every trace into packets of `length` samples. Files that can't be read
// are complained of.
inline Recording read_recording(const std::vector<std::string>& files, double limit, int length) {
    Recording recording;
    Decoder decoder;
    for (const std::string& path : files) {
        std::string text;
        if (!read_file(path.c_str(), limit, text))
            elog_complain(1, "can't read %s\n", path.c_str());
        Tbl* sections = find_sections(text);
        for (long i = 0; i < maxtbl(sections); ++i)
            add_section(recording, path, static_cast<Section*>(gettbl(sections, i)), decoder);
        freetbl(sections, std::free);
    }
    for (std::size_t i = 0; i < recording.traces.size(); ++i)
        cut_trace(recording, i, static_cast<std::size_t>(length));
    auto& pieces = recording.pieces;
    std::ranges::stable_sort(pieces, {}, &Piece::due);
    if (pieces.empty()) return recording;
    recording.end = pieces.back().due;
    recording.start = recording.end;
    for (const Trace& trace : recording.traces)
        recording.start = std::min(recording.start, trace.start);
    for (const Piece& piece : pieces) {
        const Trace& trace = recording.traces[piece.trace];
        const Packet packet = packet_at(recording, &piece - pieces.data());
        add_to_crc(&recording.crc, packet, crc_of(trace.counts.data() + piece.first, packet.nsamp));
    }
    return recording;
}

// The packet of a sequence number, without its samples. Numbers beyond the recording repeat it,
// each time later by its whole span.
inline Packet packet_at(const Recording& recording, int64_t sequence) {
    const Piece& piece = recording.pieces[static_cast<std::size_t>(sequence % recording.total())];
    const Trace& trace = recording.traces[piece.trace];
    Packet packet;
    packet.recording = static_cast<int64_t>(recording.crc);
    packet.sequence = sequence;
    packet.total = recording.total();
    std::memcpy(packet.station, trace.station, sizeof packet.station);
    std::memcpy(packet.channel, trace.channel, sizeof packet.channel);
    const auto repetition = static_cast<double>(sequence / recording.total());
    packet.time =
        trace.start + static_cast<double>(piece.first) / trace.rate + repetition * recording.span();
    packet.rate = trace.rate;
    packet.calibration = trace.calibration;
    packet.period = trace.period;
    packet.nsamp = static_cast<int32_t>(piece.count);
    return packet;
}

// The samples of a sequence number.
inline Samples samples_at(const Recording& recording, int64_t sequence) {
    const Piece& piece = recording.pieces[static_cast<std::size_t>(sequence % recording.total())];
    return Samples(recording.traces[piece.trace].counts).subspan(piece.first, piece.count);
}
