// The records of a snoop file: docs/formats/snoop.md.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace tool {

inline constexpr std::string_view kSnoopStart = "\n\n#msg ";

// A transfer as its record tells of it; the bytes may be fewer than the count.
struct SnoopRecord {
    long pid = 0, fd = 0, count = 0, seconds = 0;
    bool input = false;
    std::string_view id, bytes;

    bool is_cut() const { return count > 0 && bytes.size() < static_cast<std::size_t>(count); }
};

// Takes a number and the blank, or nothing, behind it off the front, or off the back, of a text.
inline bool take_number(std::string_view& text, bool from_back, long& number) {
    const std::size_t blank = from_back ? text.rfind(' ') : text.find(' ');
    if (blank == text.npos) return false;
    const std::string digits(from_back ? text.substr(blank + 1) : text.substr(0, blank));
    char* end = nullptr;
    number = std::strtol(digits.c_str(), &end, 10);
    const bool is_whole = end == digits.data() + digits.size();
    if (digits.empty() || !is_whole || std::strchr(" \t\r\v\f", digits[0]) != nullptr) return false;
    text = from_back ? text.substr(0, blank) : text.substr(blank + 1);
    return true;
}

// "PID DIRECTION FD ID COUNT SECONDS", where the id may have blanks.
inline bool read_header(std::string_view line, SnoopRecord& message) {
    if (!take_number(line, false, message.pid) || line.size() < 2 || line[1] != ' ' ||
        (line[0] != '<' && line[0] != '>'))
        return false;
    message.input = line[0] == '<';
    line.remove_prefix(2);
    if (!take_number(line, false, message.fd) || !take_number(line, true, message.seconds) ||
        !take_number(line, true, message.count))
        return false;
    message.id = line;
    return true;
}

// Walks the records of a file, whatever stands between them.
class SnoopWalk {
  public:
    explicit SnoopWalk(std::string_view file) : file_(file) {}

    // False at the end. `skipped` are the bytes before the record that belong to none.
    bool next(SnoopRecord& message, std::size_t& skipped) {
        const std::size_t from = at_;
        for (std::size_t start = file_.find(kSnoopStart, at_); start != file_.npos;
             start = file_.find(kSnoopStart, start + 1)) {
            const std::size_t line = start + kSnoopStart.size(), end = file_.find('\n', line);
            if (end == file_.npos || !read_header(file_.substr(line, end - line), message))
                continue;
            skipped = start - from;
            at_ = end + 1;
            take_bytes(message);
            return true;
        }
        skipped = file_.size() - from;
        at_ = file_.size();
        return false;
    }

  private:
    // As many as the count says when a record or the end follows; else up to the next record.
    void take_bytes(SnoopRecord& message) {
        const std::string_view rest = file_.substr(at_);
        const auto count = static_cast<std::size_t>(std::max(message.count, 0L));
        const bool fits =
            count <= rest.size() &&
            (count == rest.size() || rest.substr(count, kSnoopStart.size()) == kSnoopStart);
        message.bytes = rest.substr(0, fits ? count : std::min(rest.find(kSnoopStart), count));
        at_ += message.bytes.size();
    }

    std::string_view file_;
    std::size_t at_ = 0;
};

}  // namespace tool
