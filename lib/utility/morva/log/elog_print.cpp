#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "base/memory.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"

namespace morva::log {
namespace {

// Where a layout is written: a stream or a descriptor.
struct Out {
    FILE* stream;
    int fd;
};

// Busy while a batch is read, except for a frugal one: whoever writes that may have come to a
// register that is not his.
class Reading {
  public:
    explicit Reading(const Batch& batch) {
        if (!batch.frugal) busy_.emplace();
    }

  private:
    std::optional<Busy> busy_;
};

bool put(const Out& out, const char* bytes, std::size_t count) {
    if (out.stream != nullptr) return std::fwrite(bytes, 1, count, out.stream) == count;
    while (count > 0) {
        const ssize_t n = retry([&] { return ::write(out.fd, bytes, count); });
        if (n < 0) return false;
        bytes += n;
        count -= static_cast<std::size_t>(n);
    }
    return true;
}

// Calls `piece(text, length)` for the pieces of a message in the order of the layout.
template <class Piece>
void each_piece(const Elog_msg& message, Piece piece) {
    const auto text = [&](const char* s) { piece(s, std::strlen(s)); };
    if (message.tag != nullptr && *message.tag != '\0') {
        text(message.tag);
        piece(": ", 2);
    }
    if (message.msg != nullptr) text(message.msg);
    if (message.sys != nullptr && *message.sys != '\0') {
        piece("\t", 1);
        text(message.sys);
        piece("\n", 1);
    }
    if (message.count >= 2) {
        char line[64];
        const int n = std::snprintf(line, sizeof line, "\t** repeated %d times\n", message.count);
        piece(line, static_cast<std::size_t>(n));
    }
}

template <class Piece>
void each_piece(const Batch& batch, Piece piece) {
    for (long i = batch.start; i < batch.end; ++i)
        if (const Elog_msg* message = register_item(i)) each_piece(*message, piece);
    if (batch.extra != nullptr) each_piece(*batch.extra, piece);
}

std::size_t exact_size(const Batch& batch) {
    std::size_t size = 0;
    each_piece(batch, [&](const char*, std::size_t n) { size += n; });
    return size;
}

// Lays the text out between `at` and `end` and returns its end. A text that is longer than it was
// when it was measured has been changed behind the register's back.
char* lay_out(const Batch& batch, char* at, const char* end) {
    each_piece(batch, [&](const char* piece, std::size_t n) {
        if (n > static_cast<std::size_t>(end - at))
            elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n",
                     "text longer than its computed size", __FILE_NAME__, __LINE__);
        std::memcpy(at, piece, n);
        at += n;
    });
    return at;
}

// For a text that finds no memory.
bool put_pieces(const Out& out, const Batch& batch) {
    const Reading reading(batch);
    bool good = true;
    each_piece(batch, [&](const char* p, std::size_t n) { good = put(out, p, n) && good; });
    return good;
}

// Lays the text out in `small`, if there is room for it, or in a block that the caller frees. Null
// when memory runs out.
template <std::size_t room>
char* lay_out_somewhere(const Batch& batch, char (&small)[room], std::size_t* size) {
    const Reading reading(batch);
    *size = exact_size(batch);
    if (*size > room && batch.frugal) return nullptr;
    char* to = *size <= room ? small : static_cast<char*>(try_malloc(*size));
    if (to != nullptr) lay_out(batch, to, to + *size);
    return to;
}

// One write of the whole text, so that the lines of several processes do not mix. Only a long text
// that finds no memory goes out in pieces.
bool put_batch(const Out& out, const Batch& batch) {
    char small[4096];
    std::size_t size = 0;
    char* text = lay_out_somewhere(batch, small, &size);
    if (text == nullptr) return put_pieces(out, batch);
    const bool good = put(out, text, size);
    if (text == small) return good;
    Busy busy;
    std::free(text);
    return good;
}

void report_flush(const char* what) {
    char text[kSysSize];
    const int error = errno;
    system_error(text, error);
    std::fprintf(stderr, "fflush(%s) failed: %ld : %s\n", what, static_cast<long>(error), text);
}

}  // namespace

// The size that the string forms allocate: generous, so that a count that grows a digit still fits.
std::size_t layout_size(const Batch& batch) {
    std::size_t size = 100 + exact_size(batch);
    const auto repeated = [&](const Elog_msg* m) {
        size += m != nullptr && m->count >= 2 ? 10 : 0;
    };
    for (long i = batch.start; i < batch.end; ++i) repeated(register_item(i));
    repeated(batch.extra);
    return size;
}

char* try_layout(const Batch& batch) {
    const Reading reading(batch);
    const std::size_t size = layout_size(batch);
    char* text = static_cast<char*>(try_malloc(size));
    if (text != nullptr) *lay_out(batch, text, text + size - 1) = '\0';
    return text;
}

// A handler that interrupts the C library at work on these two streams must keep off them.
int print_batch(FILE* stream, const Batch& batch) {
    std::optional<Busy> busy;
    if (stream == stderr || stream == stdout) busy.emplace();
    if (stream == stderr && std::fflush(stdout) != 0) report_flush("stdout");
    const bool good = put_batch(Out{stream, -1}, batch);
    if (std::fflush(stream) == 0) return good ? 0 : -1;
    report_flush("");
    return -1;
}

int write_batch(int fd, const Batch& batch) {
    return put_batch(Out{nullptr, fd}, batch) ? 0 : -1;
}

}  // namespace morva::log

extern "C" {

using namespace morva::log;

int elog_print(FILE* stream, int start) {
    initialise_if_needed();
    Locked lock;
    if (lock.disturbed()) return -1;
    return print_batch(stream, Batch{start > 0 ? start : 0, register_count(), nullptr});
}

int elog_msg_print(FILE* stream, Elog_msg* message) {
    initialise_if_needed();
    Locked lock;
    if (lock.disturbed()) return -1;
    return print_batch(stream, Batch{0, 0, message});
}

char* elog_string(int start) {
    Locked lock;
    if (lock.disturbed()) return morva::must_strdup("", "s", MORVA_HERE);
    const Batch batch{start > 0 ? start : 0, register_count(), nullptr};
    char* text = try_layout(batch);
    if (text == nullptr) morva::out_of_memory(layout_size(batch), "s", MORVA_HERE);
    return text;
}

}  // extern "C"
