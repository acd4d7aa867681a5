// morva codec compare: what each codec makes of the same samples, and how fast.
#include <chrono>
#include <cmath>

#include "codec_files.hpp"
#include "output.hpp"
#include "progress.hpp"

namespace tool {

namespace {

struct Result {
    const char* codec;
    std::string reason;  // why the codec did not take the samples
    long bytes = 0;
    std::size_t added = 0;              // samples, to fill the last block
    double encoding = 0, decoding = 0;  // samples a second
    bool good = false;
};

// Does the work several times, or once when it fails or takes long. The time of the quickest run.
template <class Work>
double seconds_of(bool& good, Work work) {
    using Clock = std::chrono::steady_clock;
    double best = INFINITY, all = 0;
    do {
        const auto start = Clock::now();
        good = work();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        best = std::min(best, seconds);
        all += seconds;
    } while (good && all < 0.05);
    return best;
}

double rate(std::size_t samples, double seconds) {
    return seconds > 0 ? static_cast<double>(samples) / seconds : 0;
}

Result measure(const Codec& codec, Samples samples) {
    const std::vector<std::int32_t> filled = filled_up(codec, samples);
    Result result{codec.name, "", 0, filled.size() - samples.size()};
    const int mark = elog_mark();
    Bytes bytes;
    Series back;
    bool taken = false;
    const auto encode = [&] { return codec.encode(filled, bytes); };
    const auto decode = [&] { return codec.decode(bytes.view(), back); };
    result.encoding = rate(samples.size(), seconds_of(taken, encode));
    if (!taken) {
        result.reason = taken_reason(mark);
        return result;
    }
    result.bytes = bytes.used;
    result.decoding = rate(samples.size(), seconds_of(result.good, decode));
    result.good = result.good && std::ranges::equal(filled, back.view());
    elog_flush(0, mark);
    return result;
}

std::vector<Result> measure_all(const Recording& recording) {
    std::vector<Result> results;
    Progress progress(recording.title());
    for (const Codec& codec : codecs()) {
        if (recording.samples.size() >= kManySamples) progress.now(codec.name);
        results.push_back(measure(codec, recording.samples));
    }
    return results;
}

double ratio(long bytes, std::size_t samples) {
    return samples > 0 ? static_cast<double>(bytes) / static_cast<double>(samples) : 0;
}

void print_result(const Result& result, std::size_t samples) {
    char line[160];
    if (!result.reason.empty()) {
        std::snprintf(line, sizeof line, "  %-11s %11s  ", result.codec, "-");
        print(line + result.reason + "\n");
        return;
    }
    const double each = ratio(result.bytes, samples);
    std::snprintf(line, sizeof line, "  %-11s %11ld %9.3f %7.1f %% %9.1f %9.1f  ", result.codec,
                  result.bytes, each, 25 * each, result.encoding / 1e6, result.decoding / 1e6);
    print(line);
    print(result.good ? coloured(Colour::green, "good") : coloured(Colour::red, "LOST"));
    if (result.added > 0)
        print(", last sample repeated " + std::to_string(result.added) + " times");
    print("\n");
}

void print_table(const Recording& recording, const std::vector<Result>& results) {
    const std::size_t samples = recording.samples.size();
    print(coloured(Colour::bold, recording.title()) + ": " + std::to_string(samples) +
          " samples\n");
    print("  codec             bytes  B/sample    of raw  enc. M/s  dec. M/s  round trip\n");
    for (const Result& result : results) print_result(result, samples);
}

std::string with_decimals(int decimals, double number) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    return text;
}

void print_json(const Recording& recording, const std::vector<Result>& results) {
    const std::size_t samples = recording.samples.size();
    JsonList list;
    for (const Result& result : results) {
        JsonObject codec;
        codec.text("codec", result.codec).boolean("round_trip", result.good);
        if (!result.reason.empty())
            codec.text("reason", result.reason);
        else
            codec.number("bytes", result.bytes)
                .raw("bytes_per_sample", with_decimals(4, ratio(result.bytes, samples)))
                .number("samples_added", static_cast<long>(result.added))
                .raw("encoded_per_second", with_decimals(0, result.encoding))
                .raw("decoded_per_second", with_decimals(0, result.decoding));
        list.add(codec.str());
    }
    JsonObject object;
    object.text("file", recording.file);
    if (recording.section > 0)
        object.number("section", recording.section).text("name", recording.name);
    object.number("samples", static_cast<long>(samples)).raw("codecs", list.str());
    print(object.str() + "\n");
}

}  // namespace

int codec_compare(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& file : arguments.texts("FILE"))
        for (const Recording& recording : read_recordings(file, arguments.text("--from", "auto"))) {
            if (tell_unusable(recording)) {
                status = kUnusable;
                continue;
            }
            const std::vector<Result> results = measure_all(recording);
            arguments.has("--json") ? print_json(recording, results)
                                    : print_table(recording, results);
            const bool lost = std::ranges::any_of(results, [](const Result& result) {
                return result.reason.empty() && !result.good;
            });
            if (lost && status == kDone) status = kFindings;
        }
    return finish(status);
}

}  // namespace tool
