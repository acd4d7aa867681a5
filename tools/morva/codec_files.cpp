// Reads files of samples, and finds out what is in them.
#include "codec_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "../../examples/wf_decode.hpp"
#include "output.hpp"
#include "progress.hpp"

namespace tool {

namespace {

// Empty, or the reason why the bytes cannot be had.
std::string read_descriptor(int fd, const std::string& file, std::string& bytes) {
    struct stat about {};
    const bool sized = ::fstat(fd, &about) == 0 && S_ISREG(about.st_mode);
    if (sized) bytes.reserve(static_cast<std::size_t>(std::min<long>(about.st_size, INT_MAX)));
    Progress progress("reading " + file);
    std::vector<char> chunk(1 << 20);
    for (;;) {
        const ssize_t n = ::read(fd, chunk.data(), chunk.size());
        if (n == 0) return "";
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::string("can't read it: ") + std::strerror(errno);
        bytes.append(chunk.data(), static_cast<std::size_t>(n));
        if (bytes.size() > INT_MAX) return "can't read it: longer than 2147483647 bytes";
        progress.bytes(static_cast<long>(bytes.size()), sized ? about.st_size : 0);
    }
}

std::string read_bytes(const std::string& file, std::string& bytes) {
    if (file == "-") return read_descriptor(STDIN_FILENO, "standard input", bytes);
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::string("can't read it: ") + std::strerror(errno);
    const std::string problem = read_descriptor(fd, file, bytes);
    ::close(fd);
    return problem;
}

bool has_line(std::string_view bytes, std::string_view beginning) {
    return bytes.starts_with(beginning) || bytes.find("\n" + std::string(beginning)) != bytes.npos;
}

bool is_text(std::string_view bytes) {
    return std::ranges::all_of(bytes.substr(0, 4096), [](char c) {
        return (c >= ' ' && c != 0x7f) || (c >= '\t' && c <= '\r') ||
               static_cast<signed char>(c) < 0;
    });
}

// What tells a format whose bytes show it: "" when nothing does.
std::string format_shown(std::string_view bytes) {
    if (bytes.starts_with("zlib")) return "vkcompress";
    if (!is_text(bytes)) return "";
    if (has_line(bytes, "WID2 ")) return "gse2";
    return has_line(bytes, "CHK2 ") ? "cm6" : "text";
}

// The sum of the steps from sample to sample.
double roughness(Samples samples) {
    double sum = 0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        sum += std::fabs(static_cast<double>(samples[i]) - samples[i - 1]);
    return sum;
}

// Recorded samples in the right byte order are smooth, and in the other one as rough as noise.
std::string raw_order(std::string_view bytes) {
    Series big, little;
    if (bytes.size() % 4 != 0) return "";
    format_named("be32")->decode(bytes, big);
    format_named("le32")->decode(bytes, little);
    const double rough[] = {roughness(big.view()), roughness(little.view())};
    constexpr double kClearly = 16;
    return rough[0] * kClearly < rough[1] ? "be32" : rough[1] * kClearly < rough[0] ? "le32" : "";
}

bool decodes(const char* name, std::string_view bytes, double roughest) {
    const int mark = elog_mark();
    Series series;
    const bool good = find_codec(name)->decode(bytes, series);
    elog_flush(0, mark);
    return good && roughness(series.view()) <= roughest * series.count;
}

// The format of bytes that do not show it: one that hardly any other bytes decode as, or else a
// guess. One file in ten has a length that suits the keys of Canadian compression, but the samples
// that come of other bytes are wild.
void find_format(std::string_view bytes, Recording& recording) {
    for (const char* name : {"gencompress", "ucsd"})
        if (decodes(name, bytes, INFINITY)) {
            recording.format = name;
            return;
        }
    recording.guessed = true;
    recording.format = raw_order(bytes);
    constexpr double kWild = 1 << 24;
    if (recording.format.empty() && decodes("canada", bytes, kWild)) recording.format = "canada";
}

void decode_whole(std::string_view bytes, Recording& recording) {
    const Codec* const format = format_named(recording.format);
    const int mark = elog_mark();
    Series series;
    Progress progress(recording.title());
    if (bytes.size() > 4 * kManySamples) progress.now("decoding " + recording.format);
    if (format->decode(bytes, series))
        recording.samples.assign(series.view().begin(), series.view().end());
    else
        recording.problem = "no good " + recording.format + ": " + taken_reason(mark);
}

// Why a section of a message cannot be decoded; "" when it can.
std::string section_problem(const Section& section) {
    if (!section.announced) return "data without a WID2 line of their own";
    if (section.format[0] == '\0') return "can't read the WID2 line";
    if (::strcasecmp(section.format, "CM6") != 0)
        return std::string("the data are ") + section.format + ", only CM6 can be read";
    return section.text == nullptr ? "no DAT2 line" : "";
}

void decode_section(const Section& section, Recording& recording) {
    recording.problem = section_problem(section);
    if (!recording.problem.empty()) return;
    Decoder decoder;
    ::decode(&section, decoder);
    recording.bytes = static_cast<std::size_t>(section.length);
    if (decoder.verdict.status != UM6_GOOD) {
        char reason[UM6_REASON_SIZE];
        recording.problem = um6_reason(&decoder.verdict, reason);
    } else if (decoder.nsamp != section.samples) {
        recording.problem = "WID2 says " + std::to_string(section.samples) + " samples, " +
                            std::to_string(decoder.nsamp) + " were decoded";
    } else {
        recording.samples.assign(decoder.samples, decoder.samples + decoder.nsamp);
    }
}

std::vector<Recording> decode_message(std::string_view bytes, const Recording& whole) {
    std::vector<Recording> recordings;
    Tbl* const sections = find_sections(bytes);
    for (long i = 0; i < maxtbl(sections); ++i) {
        const Section& section = *static_cast<Section*>(gettbl(sections, i));
        Recording recording = whole;
        recording.section = i + 1;
        if (section.station[0] != '\0')
            recording.name = std::string(section.station) + " " + section.channel;
        decode_section(section, recording);
        recordings.push_back(std::move(recording));
    }
    freetbl(sections, std::free);
    if (!recordings.empty()) return recordings;
    recordings.push_back(whole);
    recordings.back().problem = "no waveform section (no line that begins with WID2)";
    return recordings;
}

}  // namespace

std::string Recording::title() const {
    std::string title = file == "-" ? "standard input" : one_line(file);
    if (section > 0) title += ", section " + std::to_string(section);
    if (!name.empty()) title += " (" + name + ")";
    return title;
}

std::vector<Recording> read_recordings(const std::string& file, const std::string& format) {
    Recording whole;
    whole.file = file;
    std::string bytes;
    whole.problem = read_bytes(file, bytes);
    whole.bytes = bytes.size();
    if (!whole.problem.empty()) return {whole};
    whole.format = format == "auto" ? format_shown(bytes) : format;
    if (whole.format.empty()) find_format(bytes, whole);
    if (whole.format == "gse2") return decode_message(bytes, whole);
    if (whole.format.empty())
        whole.problem = "no format that is known";
    else
        decode_whole(bytes, whole);
    return {whole};
}

bool tell_problem(const Recording& recording) {
    if (recording.problem.empty()) return false;
    std::fflush(stdout);
    elog_complain(0, "%s: %s", recording.title().c_str(), one_line(recording.problem).c_str());
    return true;
}

bool tell_unusable(const Recording& recording) {
    if (tell_problem(recording)) return true;
    if (recording.guessed)
        elog_complain(0, "%s: looks like %s, but other bytes might: name the format with --from",
                      recording.title().c_str(), recording.format.c_str());
    return recording.guessed;
}

}  // namespace tool
