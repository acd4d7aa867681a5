// morva snoop: the traffic of a stream, out of the file that snooping wrote.
#include <algorithm>
#include <climits>
#include <cstring>

#include "command.hpp"
#include "numbers.hpp"
#include "output.hpp"
#include "pf_tree.hpp"

namespace tool {

namespace {

constexpr std::string_view kStart = "\n\n#msg ";

// A transfer as its record tells of it; the bytes may be fewer than the count.
struct Message {
    long pid = 0, fd = 0, count = 0, seconds = 0;
    bool input = false;
    std::string_view id, bytes;

    bool is_cut() const { return count > 0 && bytes.size() < static_cast<std::size_t>(count); }
};

// Takes a number and the blank, or nothing, behind it off the front, or off the back, of a text.
bool take_number(std::string_view& text, bool from_back, long& number) {
    const std::size_t blank = from_back ? text.rfind(' ') : text.find(' ');
    if (blank == text.npos) return false;
    const std::string digits(from_back ? text.substr(blank + 1) : text.substr(0, blank));
    char* end = nullptr;
    number = std::strtol(digits.c_str(), &end, 10);
    if (digits.empty() || *end != '\0' || std::strchr(" \t\r\v\f", digits[0]) != nullptr)
        return false;
    text = from_back ? text.substr(0, blank) : text.substr(blank + 1);
    return true;
}

// "PID DIRECTION FD ID COUNT SECONDS", where the id may have blanks.
bool read_header(std::string_view line, Message& message) {
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
class Walk {
  public:
    explicit Walk(std::string_view file) : file_(file) {}

    // False at the end. `skipped` are the bytes before the record that belong to none.
    bool next(Message& message, std::size_t& skipped) {
        const std::size_t from = at_;
        for (std::size_t start = file_.find(kStart, at_); start != file_.npos;
             start = file_.find(kStart, start + 1)) {
            const std::size_t line = start + kStart.size(), end = file_.find('\n', line);
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
    void take_bytes(Message& message) {
        const std::string_view rest = file_.substr(at_);
        const auto count = static_cast<std::size_t>(std::max(message.count, 0L));
        const bool fits = count <= rest.size() &&
                          (count == rest.size() || rest.substr(count, kStart.size()) == kStart);
        message.bytes = rest.substr(0, fits ? count : std::min(rest.find(kStart), count));
        at_ += message.bytes.size();
    }

    std::string_view file_;
    std::size_t at_ = 0;
};

std::string hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

void print_json(const Message& message) {
    const auto seconds = static_cast<double>(message.seconds);
    print(JsonObject()
              .number("time", message.seconds)
              .text("iso", iso_time(seconds))
              .text("direction", message.input ? "in" : "out")
              .text("id", message.id)
              .number("pid", message.pid)
              .number("fd", message.fd)
              .number("count", message.count)
              .text("bytes", hex(message.bytes))
              .str() +
          "\n");
}

void print_text(const Message& message, std::size_t shown) {
    std::string line = coloured(Colour::cyan, iso_time(static_cast<double>(message.seconds))) +
                       (message.input ? "  <  " : "  >  ") +
                       coloured(Colour::bold, one_line(message.id)) + "  " +
                       std::to_string(message.count) + " bytes";
    if (message.count < 0) line += coloured(Colour::red, ": it failed");
    if (message.is_cut())
        line += coloured(Colour::yellow,
                         ", of which " + std::to_string(message.bytes.size()) + " were written");
    print(line + "  (process " + std::to_string(message.pid) + ", descriptor " +
          std::to_string(message.fd) + ")\n");
    const std::size_t most = std::min<std::size_t>(shown, INT_MAX);
    const std::size_t n = std::min(message.bytes.size(), most);
    if (n > 0) hexdump(stdout, message.bytes.data(), static_cast<int>(n));
}

bool is_wanted(const Arguments& arguments, const Message& message) {
    return (!arguments.has("--id") || message.id == arguments.text("--id")) &&
           (!arguments.has("--direction") ||
            (arguments.text("--direction") == "in") == message.input);
}

int decode(const Arguments& arguments) {
    const std::string path = arguments.text("FILE");
    std::string file;
    if (!read_file(path, &file)) return kUnusable;
    const std::size_t shown =
        arguments.has("--quiet")
            ? 0
            : std::strtoul(arguments.text("--bytes", "96").c_str(), nullptr, 10);
    Walk records(file);
    Message message;
    std::size_t skipped = 0, all_skipped = 0;
    while (records.next(message, skipped)) {
        all_skipped += skipped;
        if (!is_wanted(arguments, message)) continue;
        arguments.has("--json") ? print_json(message) : print_text(message, shown);
    }
    all_skipped += skipped;
    if (all_skipped > 0)
        elog_complain(0, "%s has %lu bytes that belong to no message", path.c_str(),
                      static_cast<unsigned long>(all_skipped));
    return finish(all_skipped > 0 ? kFindings : kDone);
}

constexpr Parameter kSnoop[] = {
    {"FILE", Takes::file, "a file that snooping wrote"},
    {"-n,--bytes", Takes::count, "dump so many bytes of a message at most, 96 if not given", "N"},
    {"-q,--quiet", Takes::nothing, "dump no bytes"},
    {"--id", Takes::text, "only of the stream with this label", "ID"},
    {"--direction", Takes::choice, "only what came in, or went out", "in|out"},
    {"--json", Takes::nothing, "print JSON, an object a line, with all bytes in hexadecimal"}};

constexpr Command kCommands[] = {
    {"", "print the messages in a snoop file",
     "Time, direction (< in, > out), label, length, and the bytes. Ends with 1 when there are "
     "bytes\n"
     "that belong to no message. morva dc set PROGRAM bnssnoop 1 makes a program write such "
     "files.\n\n"
     "    morva snoop snoop1\n"
     "    morva snoop --direction in --quiet snoop1",
     kSnoop, decode}};

}  // namespace

const Group snoop_group = {"snoop", "traffic of streams: what a snoop file holds", "", kCommands};

}  // namespace tool
