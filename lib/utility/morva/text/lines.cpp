// Lines: the head of a text, lines from a stream, command lines for the shell.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/strings.h"
#include "text/strings.hpp"

namespace {

using morva::StringStack;

constexpr int kFirstLine = 1024;
constexpr std::size_t kLongestCommand = 512;

// Holds a stdio stream for a run of single-character reads.
class StreamLock {
  public:
    explicit StreamLock(FILE* stream) : stream_(stream) { flockfile(stream_); }
    ~StreamLock() { funlockfile(stream_); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;
    // The next character, or EOF. A read that a signal interrupts is taken up again.
    int next() {
        for (;;) {
            const int c = getc_unlocked(stream_);
            if (c != EOF || !ferror_unlocked(stream_) || errno != EINTR) return c;
            clearerr_unlocked(stream_);
        }
    }

  private:
    FILE* stream_;
};

void double_line(char*& buffer, int& size) {
    const std::size_t larger = 2 * static_cast<std::size_t>(size);
    if (larger > INT_MAX) morva::out_of_memory(larger, "*aline", MORVA_HERE);
    buffer = static_cast<char*>(morva::must_realloc(buffer, larger, "*aline", MORVA_HERE));
    size = static_cast<int>(larger);
}

// Runs one command line. 0, or -1 with the reason registered.
int run_command(const char* line, int verbose) {
    if (verbose) elog_notify(0, "%s", line);
    const int status = std::system(line);
    if (status == 0) return 0;
    if (status == -1)
        elog_log(1, "Can't run '%s'\n", line);
    else
        elog_log(0, "'%s' failed with status %d\n", line, status);
    return -1;
}

// A command line that gathers items until the next one would make it too long.
class Batch {
  public:
    Batch(const char* command, const char* suffix)
        : command_(okstr(command)), suffix_(suffix != nullptr ? suffix : "") {}
    bool empty() const { return items_.empty(); }
    bool fits(const char* item) const {
        return length() + 1 + std::strlen(item) <= kLongestCommand;
    }
    void add(const char* item) { (items_ += ' ') += item; }
    int run(int verbose) {
        morva::String line = command_ + items_;
        if (!suffix_.empty()) (line += ' ') += suffix_;
        items_.clear();
        return run_command(line.c_str(), verbose);
    }

  private:
    std::size_t length() const {
        return command_.size() + items_.size() + (suffix_.empty() ? 0 : 1 + suffix_.size());
    }
    morva::String command_;
    morva::String suffix_;
    morva::String items_;
};

}  // namespace

extern "C" {

char* strhead(const char* text, int n, const char* prefix) {
    StringStack* head = nullptr;
    const std::string_view start = prefix != nullptr ? prefix : "";
    for (int i = 0; i < n; ++i) {
        const char* newline = std::strchr(text, '\n');
        if (newline == nullptr) return morva::take_text(head);
        morva::push_text(head, start);
        morva::push_text(head, {text, static_cast<std::size_t>(newline + 1 - text)});
        text = newline + 1;
    }
    morva::push_text(head, start);
    morva::push_text(head, "...\n");
    return morva::take_text(head);
}

char* getaline(FILE* stream, char* buf, int size) {
    if (stream == nullptr || size < 3) return nullptr;
    StreamLock input(stream);
    int length = 0;
    int c = EOF;
    while (length < size - 2 && (c = input.next()) != EOF && c != '\n')
        buf[length++] = static_cast<char>(c);
    if (length == 0 && c == EOF) return nullptr;
    buf[length] = buf[size - 1] = '\0';
    return buf;
}

char* intactline(FILE* stream, char** buffer, int* size) {
    if (stream == nullptr) return nullptr;
    if (*size <= 0 || *buffer == nullptr) {
        *buffer = static_cast<char*>(morva::must_malloc(kFirstLine, "*aline", MORVA_HERE));
        *size = kFirstLine;
    }
    StreamLock input(stream);
    int length = 0;
    int c;
    while ((c = input.next()) != EOF) {
        // The line, its newline and a terminator must fit.
        if (length + 2 > *size) double_line(*buffer, *size);
        if (c == '\n') break;
        (*buffer)[length++] = static_cast<char>(c);
    }
    (*buffer)[length] = '\0';
    return length == 0 && c == EOF ? nullptr : *buffer;
}

int xargs(const char* command, Tbl* tbl, const char* suffix, int verbose) {
    Batch batch(command, suffix);
    int result = 0;
    const long items = maxtbl(tbl);
    for (long i = 0; i < items; ++i) {
        const char* item = okstr(static_cast<char*>(gettbl(tbl, i)));
        if (!batch.empty() && !batch.fits(item)) result |= batch.run(verbose);
        batch.add(item);
    }
    if (!batch.empty()) result |= batch.run(verbose);
    return result;
}

}  // extern "C"
