// Samples in files: the formats they are kept in, and the reading of any of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "../../examples/wf_codecs.hpp"
#include "command.hpp"

namespace tool {

// Text with a number a line, raw samples in either byte order, and the library's codecs.
const std::vector<Codec>& formats();
const Codec* format_named(std::string_view name);

// From this many samples on, what is done with them is told while it is done.
constexpr std::size_t kManySamples = 1000000;

// A series in a file: the whole file, or a section of a GSE2 message.
struct Recording {
    std::string file;
    long section = 0;  // 1, 2, ...; 0: the whole file
    std::string name;  // of the section: station and channel
    std::string format;
    std::size_t bytes = 0;  // that the samples take in the file
    std::vector<std::int32_t> samples;
    std::string problem;   // why there are no samples
    bool guessed = false;  // the format: other bytes might look the same

    std::string title() const;
};

// Reads a file ("-": standard input) in the named format: one of formats(), "gse2", or "auto",
// which finds out. A recording with a problem, told in its words, stands for what can't be read.
std::vector<Recording> read_recordings(const std::string& file, const std::string& format);

// Shows what is wrong with a recording; false when nothing is. For programs that work on the
// samples a guessed format is wrong too.
bool tell_problem(const Recording& recording);
bool tell_unusable(const Recording& recording);

// morva codec compare
int codec_compare(const Arguments& arguments);

}  // namespace tool
