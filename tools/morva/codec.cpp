// morva codec: samples from one format into another, and what the formats make of them.
#include <unistd.h>

#include <cstring>

#include "codec_files.hpp"
#include "output.hpp"
#include "progress.hpp"

namespace tool {

namespace {

// The one recording that a conversion is of; no value, with the reason told, when there is none.
std::optional<Recording> wanted_recording(const Arguments& arguments) {
    auto recordings =
        read_recordings(arguments.text("FILE", "-"), arguments.text("--from", "auto"));
    if (recordings.front().section == 0 && tell_unusable(recordings.front())) return std::nullopt;
    std::size_t section = recordings.size() == 1 ? 1 : 0;
    if (arguments.has("--section"))
        section = std::strtoul(arguments.text("--section").c_str(), nullptr, 10);
    if (section == 0 || section > recordings.size()) {
        elog_complain(0, "%s: choose one of %zu with --section",
                      one_line(recordings.front().file).c_str(), recordings.size());
        return std::nullopt;
    }
    Recording& chosen = recordings[section - 1];
    if (tell_unusable(chosen)) return std::nullopt;
    return std::move(chosen);
}

// What --leftover makes of the samples behind the last block; false, with the reason told, when the
// user has not chosen.
bool settle_leftover(const Codec& format, const std::string& choice, Recording& recording) {
    std::vector<std::int32_t>& samples = recording.samples;
    const std::size_t rest = left_over(format, samples.size()), before = samples.size();
    if (rest == 0) return true;
    if (choice == "refuse") {
        elog_complain(
            0, "%s: %zu samples; %s takes blocks of %d, and %zu are left over: see --leftover",
            recording.title().c_str(), before, format.name, format.block, rest);
        return false;
    }
    const std::int32_t fill = choice == "zero" ? 0 : samples.back();
    samples.resize(before - rest + (choice == "drop" ? 0 : static_cast<std::size_t>(format.block)),
                   fill);
    elog_notify(0, "%s: %zu samples became %zu", recording.title().c_str(), before, samples.size());
    return true;
}

// Encodes, and makes sure that the samples come back.
bool encode_verified(const Codec& format, const Recording& recording, Bytes& bytes) {
    const int mark = elog_mark();
    const std::string title = recording.title();
    Progress progress(title);
    const bool many = recording.samples.size() >= kManySamples;
    if (many) progress.now(std::string("encoding as ") + format.name);
    if (!format.encode(recording.samples, bytes)) {
        elog_complain(0, "%s: %s can't hold these samples: %s", title.c_str(), format.name,
                      taken_reason(mark).c_str());
        return false;
    }
    if (many) progress.now("verifying");
    Series back;
    if (format.decode(bytes.view(), back) && std::ranges::equal(back.view(), recording.samples))
        return true;
    elog_flush(0, mark);
    elog_complain(0, "%s: other samples would come back from %s", title.c_str(), format.name);
    return false;
}

bool write_file(const std::string& file, std::string_view bytes) {
    FILE* const out = std::fopen(file.c_str(), "wb");
    const bool written = out != nullptr &&
                         std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size() &&
                         std::fflush(out) == 0;
    if (!written) elog_complain(1, "can't write %s", one_line(file).c_str());
    if (out != nullptr) std::fclose(out);
    return written;
}

int write_output(const Arguments& arguments, const Codec& format, std::string_view bytes) {
    const std::string file = arguments.text("--output", "-");
    if (file != "-") return write_file(file, bytes) ? kDone : kUnusable;
    const std::string name = format.name;
    if (::isatty(STDOUT_FILENO) != 0 && name != "text" && name != "cm6") {
        elog_complain(0, "%s is nothing for a terminal: see --output", format.name);
        return kUnusable;
    }
    print(bytes);
    return finish(kDone);
}

int convert(const Arguments& arguments, const Codec& format, Recording& recording) {
    Bytes bytes;
    if (!encode_verified(format, recording, bytes)) return kUnusable;
    return write_output(arguments, format, bytes.view());
}

int encode(const Arguments& arguments) {
    const Codec& format = *format_named(arguments.text("FORMAT"));
    auto recording = wanted_recording(arguments);
    if (!recording || !settle_leftover(format, arguments.text("--leftover", "refuse"), *recording))
        return kUnusable;
    return convert(arguments, format, *recording);
}

// Cuts the samples to the number that is asked for; false, with the reason told, if there are
// fewer.
bool cut(const Arguments& arguments, Recording& recording) {
    if (!arguments.has("--samples")) return true;
    const std::size_t wanted = std::strtoul(arguments.text("--samples").c_str(), nullptr, 10);
    const std::size_t held = recording.samples.size();
    if (wanted > held) elog_complain(0, "%s: only %zu samples", recording.title().c_str(), held);
    recording.samples.resize(std::min(wanted, held));
    return wanted <= held;
}

int decode(const Arguments& arguments) {
    auto recording = wanted_recording(arguments);
    if (!recording || !cut(arguments, *recording)) return kUnusable;
    return convert(arguments, *format_named(arguments.text("--to", "text")), *recording);
}

void print_info(const Recording& recording, bool json) {
    const auto [least, most] = std::ranges::minmax_element(recording.samples);
    const bool none = recording.samples.empty();
    const auto samples = static_cast<long>(recording.samples.size());
    const auto bytes = static_cast<long>(recording.bytes);
    if (json) {
        JsonObject object;
        object.text("file", recording.file);
        if (recording.section > 0)
            object.number("section", recording.section).text("name", recording.name);
        object.text("format", recording.format).boolean("guessed", recording.guessed);
        object.number("bytes", bytes).number("samples", samples);
        if (!none) object.number("minimum", *least).number("maximum", *most);
        print(object.str() + "\n");
        return;
    }
    char text[160];
    std::snprintf(text, sizeof text, "%s%s, %ld samples in %ld bytes", recording.format.c_str(),
                  recording.guessed ? " (a guess)" : "", samples, bytes);
    std::string line = recording.title() + ": " + text;
    if (!none) {
        std::snprintf(text, sizeof text, ", %.3f a sample, %d .. %d",
                      static_cast<double>(bytes) / static_cast<double>(samples), *least, *most);
        line += text;
    }
    print(line + "\n");
}

int info(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& file : arguments.texts("FILE"))
        for (const Recording& recording : read_recordings(file, arguments.text("--from", "auto"))) {
            if (tell_problem(recording))
                status = kUnusable;
            else
                print_info(recording, arguments.has("--json"));
        }
    return finish(status);
}

#define MORVA_SAMPLE_FORMATS "text|be32|le32|cm6|canada|ucsd|gencompress|vkcompress"

constexpr Parameter kFrom = {"-f,--from", Takes::choice, "the format of the file (auto: find out)",
                             "auto|gse2|" MORVA_SAMPLE_FORMATS};
constexpr Parameter kOutput = {"-o,--output", Takes::file, "write there, not to standard output",
                               "FILE"};
constexpr Parameter kSection = {"-s,--section", Takes::count,
                                "the section of a GSE2 message, counted from 1", "N"};
constexpr Parameter kInput = {"FILE", Takes::file, "file of samples; standard input without one",
                              "", Given::optional};
constexpr Parameter kInputs = {"FILE", Takes::file, "files of samples; - is standard input", "",
                               Given::many};
constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};

constexpr Parameter kEncode[] = {
    {"FORMAT", Takes::choice, "what to encode into", MORVA_SAMPLE_FORMATS},
    kInput,
    kFrom,
    kSection,
    {"-l,--leftover", Takes::choice,
     "samples behind the last block of canada: repeat the last one to the end of the block, add "
     "zeros, or drop them",
     "refuse|repeat|zero|drop"},
    kOutput};
constexpr Parameter kDecode[] = {
    kInput,
    kFrom,
    kSection,
    {"-n,--samples", Takes::count, "only the first N samples", "N"},
    {"-t,--to", Takes::choice, "text (when not told), or raw samples", "text|be32|le32"},
    kOutput};
constexpr Parameter kInfo[] = {kInputs, kFrom, kJson};

constexpr Command kCommands[] = {
    {"encode", "samples into any format",
     "Samples are read from text, from raw files, from GSE2 messages or from any other format.\n"
     "What is written is decoded before, and must give the same samples.\n\n"
     "    morva codec encode gencompress day.txt -o day.gen\n"
     "    morva codec encode canada --leftover repeat --section 2 message.gse2 -o two.canada",
     kEncode, encode},
    {"decode", "samples of any format, as text or raw", "    morva codec decode day.gen | head",
     kDecode, decode},
    {"info", "the format of files, and their number of samples and range",
     "Ends with 2 when a file is damaged or in no format that is known.", kInfo, info},
    {"compare", "size and speed of every codec on the samples of files",
     "Every codec encodes and decodes the samples of each file and each section of a message, and\n"
     "must give the same ones. canada fills its last block by repeating the last sample. Speeds\n"
     "are millions of samples a second, of the best of some runs. Ends with 1 when samples do not\n"
     "come back.",
     kInfo, codec_compare}};

}  // namespace

const Group codec_group = {
    "codec", "samples encoded, decoded and compared",
    "Formats: text (a number a line; empty lines and those that begin with # are skipped), be32 "
    "and\n"
    "le32 (raw samples of 32 bits, the upper byte first or last), gse2 (messages, read only) and\n"
    "those of the library:\n"
    "  cm6          GSE2 text with its checksum; any samples\n"
    "  canada       blocks of 20 samples, and perhaps the one behind them\n"
    "  ucsd         samples of 24 bits or steps of 16\n"
    "  gencompress  any samples\n"
    "  vkcompress   the packet of be32 compressed with zlib; under 101 bytes as it is",
    kCommands};

}  // namespace tool
