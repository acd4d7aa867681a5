// Messages as lines of JSON: a callback that a program installs.
#include <algorithm>
#include <cstring>

#include "base/memory.hpp"
#include "log/elog.hpp"

namespace morva::log {
namespace {

constinit FILE* g_json_stream = nullptr;  // null: standard error

// Text as it is built: counts all that is put, keeps what fits.
class Line {
  public:
    Line(char* to, std::size_t size) : to_(to), size_(size) {}
    void put(char c) {
        if (length_ < size_) to_[length_] = c;
        ++length_;
    }
    void put(std::string_view text) {
        for (const char c : text) put(c);
    }
    std::size_t length() const { return length_; }

  private:
    char* to_;
    std::size_t size_;
    std::size_t length_ = 0;
};

bool continues(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Bytes of the UTF-8 character at `p`, or 0 when there is none: no overlong forms, no surrogates,
// nothing beyond U+10FFFF. The terminating zero ends any incomplete one.
int utf8_length(const char* p) {
    const auto lead = static_cast<unsigned char>(p[0]);
    const auto next = static_cast<unsigned char>(lead != 0 ? p[1] : 0);
    if (lead < 0x80) return 1;
    if (lead < 0xc2 || lead > 0xf4 || !continues(p[1])) return 0;
    if (lead < 0xe0) return 2;
    if ((lead == 0xe0 && next < 0xa0) || (lead == 0xed && next > 0x9f)) return 0;
    if (!continues(p[2])) return 0;
    if (lead < 0xf0) return 3;
    if ((lead == 0xf0 && next < 0x90) || (lead == 0xf4 && next > 0x8f)) return 0;
    return continues(p[3]) ? 4 : 0;
}

void put_escape(Line& line, unsigned char byte) {
    constexpr char kHex[] = "0123456789abcdef";
    line.put("\\u00");
    line.put(kHex[byte >> 4]);
    line.put(kHex[byte & 15]);
}

// A byte that is no UTF-8 appears as the character of that number, as if the text were Latin-1.
void put_string(Line& line, std::string_view text) {
    line.put('"');
    for (const char* p = text.data(); p < text.data() + text.size();) {
        const int n = utf8_length(p);
        const auto byte = static_cast<unsigned char>(*p);
        if (byte == '"' || byte == '\\') {
            line.put('\\');
            line.put(*p);
        } else if (byte == '\n') {
            line.put("\\n");
        } else if (byte == '\t') {
            line.put("\\t");
        } else if (n == 0 || byte < 0x20 || byte == 0x7f) {
            put_escape(line, byte);
        } else {
            line.put(std::string_view(p, static_cast<std::size_t>(n)));
        }
        p += n > 0 ? n : 1;
    }
    line.put('"');
}

void put_field(Line& line, const char* name, const char* text) {
    line.put(",\"");
    line.put(name);
    line.put("\":");
    put_string(line, text);
}

void put_time(Line& line, double time) {
    char text[64];
    std::snprintf(text, sizeof text, "{\"time\":%.6f", time);
    line.put(text);
}

void put_count(Line& line, const char* name, unsigned long count) {
    char text[64];
    std::snprintf(text, sizeof text, ",\"%s\":%lu", name, count);
    line.put(text);
}

unsigned long thread_number(const Elog_msg& message) {
    unsigned long number = 0;
    std::memcpy(&number, &message.thread, std::min(sizeof number, sizeof message.thread));
    return number;
}

void put_message(Line& line, const Elog_msg& message, double time) {
    std::string_view text = message.msg != nullptr ? message.msg : "";
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    put_time(line, time);
    put_field(line, "severity", elog_severity(message.severity));
    put_field(line, "program", Program_Name);
    put_count(line, "thread", thread_number(message));
    if (message.tag != nullptr) put_field(line, "tag", message.tag);
    line.put(",\"text\":");
    put_string(line, text);
    if (message.sys != nullptr) put_field(line, "error", message.sys);
    if (message.count > 1) put_count(line, "count", static_cast<unsigned long>(message.count));
    line.put("}\n");
}

std::size_t put_batch(char* to, std::size_t size, const Batch& batch, double time) {
    Line line(to, size);
    for (long i = batch.start; i < batch.end; ++i)
        if (const Elog_msg* message = register_item(i)) put_message(line, *message, time);
    if (batch.extra != nullptr) put_message(line, *batch.extra, time);
    return line.length();
}

// One write of all lines. False when that does not succeed; then the usual delivery shows them.
bool write_lines(FILE* stream, const Batch& batch) {
    Busy busy;
    const double time = std_now();
    const std::size_t size = put_batch(nullptr, 0, batch, time);
    malloced<char> lines(static_cast<char*>(try_malloc(size + 1)));
    if (lines == nullptr) return false;
    put_batch(lines.get(), size, batch, time);
    return std::fwrite(lines.get(), 1, size, stream) == size && std::fflush(stream) == 0;
}

}  // namespace
}  // namespace morva::log

extern "C" {

using namespace morva::log;

int elog_json(int severity, char*, Tbl*) {
    Locked lock;
    if (lock.disturbed()) return 0;
    int start = 0;
    const Elog_msg* message = elog_in_hand(&start);
    const Severity& settings = state().severities[known_severity(severity)];
    if (message != nullptr && !has_destination(settings.delivery)) return 0;
    FILE* stream = g_json_stream != nullptr ? g_json_stream : stderr;
    return write_lines(stream, Batch{start, register_count(), message}) ? 1 : 0;
}

void elog_json_stream(FILE* stream) {
    initialise_if_needed();
    Locked lock;
    g_json_stream = stream;
}

}  // extern "C"
