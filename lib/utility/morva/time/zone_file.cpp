// Zone files ("TZif", RFC 8536): 64-bit data and the POSIX text behind it, or the 32-bit data of
// files of the first version.
#include <algorithm>
#include <cstring>

#include "time/zone.hpp"

namespace morva::time {
namespace {

// Reads from the front of the file; a read beyond its end gives zeros and marks it as bad.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}
    bool good() const { return good_; }
    std::string_view rest() const { return rest_; }
    std::string_view take(std::size_t size) {
        if (size > rest_.size()) {
            good_ = false;
            size = rest_.size();
        }
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }
    // A big-endian number of `size` bytes with a sign.
    std::int64_t take_number(std::size_t size) {
        const std::string_view bytes = take(size);
        std::uint64_t value = 0;
        for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
        const auto unused = static_cast<int>(64 - 8 * size);
        return good_ ? static_cast<std::int64_t>(value << unused) >> unused : 0;
    }
    unsigned take_byte() { return static_cast<unsigned>(take_number(1)) & 0xff; }
    std::size_t take_count() { return static_cast<std::size_t>(take_number(4)) & 0xffffffff; }

  private:
    std::string_view rest_;
    bool good_ = true;
};

constexpr std::size_t kMostTypes = 256;    // their numbers are bytes
constexpr std::size_t kMostNames = 65536;  // bytes

struct Header {
    unsigned version;
    std::size_t universal_marks;
    std::size_t standard_marks;
    std::size_t leaps;
    std::size_t transitions;
    std::size_t types;
    std::size_t names;  // bytes

    std::size_t data_size(std::size_t time_size) const {
        return transitions * (time_size + 1) + types * 6 + names + leaps * (time_size + 4) +
               standard_marks + universal_marks;
    }
    bool sound() const {
        return types > 0 && types <= kMostTypes && names <= kMostNames && standard_marks <= types &&
               universal_marks <= types;
    }
};

bool read_header(Reader& file, Header& header) {
    constexpr std::size_t kReserved = 15;
    if (file.take(4) != "TZif") return false;
    header.version = file.take_byte();
    file.take(kReserved);
    for (std::size_t* count : {&header.universal_marks, &header.standard_marks, &header.leaps,
                               &header.transitions, &header.types, &header.names})
        *count = file.take_count();
    return file.good();
}

// The abbreviation at a place of the names, as long as it may be.
std::string_view name_at(const Zone& zone, std::size_t at) {
    return zone.names.c_str() + at;
}

bool read_transitions(Reader& file, const Header& header, std::size_t time_size, Zone& zone) {
    for (std::size_t i = 0; i < header.transitions; ++i)
        zone.transitions.push_back(file.take_number(time_size));
    for (std::size_t i = 0; i < header.transitions; ++i) {
        const unsigned type = file.take_byte();
        if (type >= header.types) return false;
        zone.type_after.push_back(static_cast<std::uint8_t>(type));
    }
    return std::is_sorted(zone.transitions.begin(), zone.transitions.end());
}

bool read_types(Reader& file, const Header& header, Zone& zone) {
    for (std::size_t i = 0; i < header.types; ++i) {
        const auto offset = static_cast<std::int32_t>(file.take_number(4));
        const unsigned daylight = file.take_byte();
        const unsigned name = file.take_byte();
        if (offset == INT32_MIN || daylight > 1 || name >= header.names) return false;
        zone.types.push_back({offset, daylight != 0, static_cast<std::uint16_t>(name)});
    }
    zone.names = file.take(header.names);
    return std::all_of(zone.types.begin(), zone.types.end(), [&](const ZoneType& type) {
        return name_at(zone, type.name).size() <= kLongestAbbreviation;
    });
}

bool read_leaps(Reader& file, const Header& header, std::size_t time_size, Zone& zone) {
    for (std::size_t i = 0; i < header.leaps; ++i) {
        const std::int64_t instant = file.take_number(time_size);
        zone.leaps.push_back({instant, static_cast<std::int32_t>(file.take_number(4))});
    }
    return std::is_sorted(zone.leaps.begin(), zone.leaps.end(),
                          [](const auto& a, const auto& b) { return a.instant < b.instant; });
}

// The POSIX text stands between two newlines and may be missing.
void read_footer(Reader& file, Zone& zone) {
    std::string_view text = file.rest();
    if (text.empty() || text.front() != '\n') return;
    text.remove_prefix(1);
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos || end == 0) return;
    ZoneText rules = read_zone_text(text.substr(0, end));
    if (rules.complete) zone.rules = std::move(rules.rules);
}

bool read_data(Reader& file, const Header& header, std::size_t time_size, Zone& zone) {
    if (!header.sound() || header.data_size(time_size) > file.rest().size()) return false;
    if (!read_transitions(file, header, time_size, zone) || !read_types(file, header, zone) ||
        !read_leaps(file, header, time_size, zone))
        return false;
    file.take(header.standard_marks + header.universal_marks);  // how the rules were stated
    make_slots(zone);
    return file.good();
}

}  // namespace

std::unique_ptr<Zone> read_zone(std::string_view bytes) {
    Reader file(bytes);
    Header header{};
    if (!read_header(file, header)) return nullptr;
    auto zone = std::make_unique<Zone>();
    if (header.version == 0) return read_data(file, header, 4, *zone) ? std::move(zone) : nullptr;
    file.take(header.data_size(4));
    if (!read_header(file, header) || !read_data(file, header, 8, *zone)) return nullptr;
    read_footer(file, *zone);
    return zone;
}

}  // namespace morva::time
