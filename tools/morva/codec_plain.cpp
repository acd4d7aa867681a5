// Samples without compression: as text, and as they stand in memory.
#include <charconv>
#include <cstring>

#include "codec_files.hpp"
#include "output.hpp"

namespace tool {

namespace {

constexpr std::size_t kLongestLine = 12;  // "-2147483648\n"

bool make_room(Bytes& bytes, std::size_t size) {
    if (!fits(size)) return false;
    if (static_cast<std::size_t>(bytes.size) >= size) return true;
    std::free(bytes.data);
    bytes.data = static_cast<char*>(std::malloc(size));
    if (bytes.data == nullptr) elog_die(1, "out of memory for %zu bytes", size);
    bytes.size = static_cast<int>(size);
    return true;
}

bool make_room(Series& series, std::size_t samples) {
    if (!fits(samples)) return false;
    if (static_cast<std::size_t>(series.size) >= samples) return true;
    std::free(series.data);
    series.data = static_cast<std::int32_t*>(std::malloc(4 * samples));
    if (series.data == nullptr) elog_die(1, "out of memory for %zu samples", samples);
    series.size = static_cast<int>(samples);
    return true;
}

bool write_text(Samples samples, Bytes& bytes) {
    if (!make_room(bytes, kLongestLine * samples.size())) return false;
    char* end = bytes.data;
    for (const std::int32_t sample : samples) {
        end = std::to_chars(end, end + kLongestLine, sample).ptr;
        *end++ = '\n';
    }
    bytes.used = static_cast<int>(end - bytes.data);
    return true;
}

// Without blanks around it.
std::string_view trimmed(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == line.npos) return {};
    return line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

bool is_sample(std::string_view word, std::int32_t& sample) {
    if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
    const auto [end, error] = std::from_chars(word.begin(), word.end(), sample);
    return error == std::errc() && end == word.end();
}

// Empty lines and those that begin with # are skipped.
bool read_text(std::string_view bytes, Series& series) {
    const auto lines = std::count(bytes.begin(), bytes.end(), '\n') + 1;
    if (!make_room(series, static_cast<std::size_t>(lines))) return false;
    series.count = 0;
    for (long number = 1; !bytes.empty(); ++number) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        const std::string_view word = trimmed(bytes.substr(0, end));
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (word.empty() || word[0] == '#') continue;
        if (is_sample(word, series.data[series.count])) {
            ++series.count;
            continue;
        }
        elog_log(0, "line %ld: '%s' is no whole number of 32 bits", number,
                 plain_utf8(word.substr(0, 40)).c_str());
        return false;
    }
    return true;
}

bool write_big(Samples samples, Bytes& bytes) {
    if (!make_room(bytes, 4 * samples.size())) return false;
    bytes.used = static_cast<int>(packet_of(samples).copy(bytes.data, 4 * samples.size()));
    return true;
}

std::vector<std::int32_t> swapped(Samples samples) {
    std::vector<std::int32_t> result(samples.begin(), samples.end());
    for (std::int32_t& sample : result)
        sample = static_cast<std::int32_t>(__builtin_bswap32(static_cast<std::uint32_t>(sample)));
    return result;
}

bool write_little(Samples samples, Bytes& bytes) {
    return write_big(swapped(samples), bytes);
}

bool read_little(std::string_view bytes, Series& series) {
    if (!read_packet(bytes, series)) return false;
    const std::vector<std::int32_t> little = swapped(series.view());
    std::copy(little.begin(), little.end(), series.data);
    return true;
}

}  // namespace

const std::vector<Codec>& formats() {
    static const std::vector<Codec> all = [] {
        std::vector<Codec> table = {{"text", 1, write_text, read_text},
                                    {"be32", 1, write_big, read_packet},
                                    {"le32", 1, write_little, read_little}};
        table.insert(table.end(), codecs().begin(), codecs().end());
        return table;
    }();
    return all;
}

const Codec* format_named(std::string_view name) {
    for (const Codec& format : formats())
        if (name == format.name) return &format;
    return nullptr;
}

}  // namespace tool
