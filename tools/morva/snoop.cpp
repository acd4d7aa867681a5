// morva snoop: the traffic of a stream, out of the file that snooping wrote.
#include <algorithm>
#include <climits>

#include "command.hpp"
#include "numbers.hpp"
#include "output.hpp"
#include "pf_tree.hpp"
#include "snoop_records.hpp"

namespace tool {

namespace {

std::string hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

void print_json(const SnoopRecord& message) {
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

void print_text(const SnoopRecord& message, std::size_t shown) {
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

bool is_wanted(const Arguments& arguments, const SnoopRecord& message) {
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
    SnoopWalk records(file);
    SnoopRecord message;
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
