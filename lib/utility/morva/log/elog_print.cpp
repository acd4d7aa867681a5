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

// One write of the whole text, so that the lines of several processes do not mix. Only a long text
// that finds no memory goes out in pieces.
bool put_batch(const Out& out, const Batch& batch) {
    char small[4096];
    const std::size_t size = exact_size(batch);
    if (size <= sizeof small) {
        lay_out(batch, small, small + size);
        return put(out, small, size);
    }
    char* large = nullptr;
    if (!batch.frugal) {
        Busy busy;
        large = static_cast<char*>(try_malloc(size));
    }
    bool good = true;
    if (large != nullptr) {
        lay_out(batch, large, large + size);
        good = put(out, large, size);
        Busy busy;
        std::free(large);
    } else {
        each_piece(batch, [&](const char* p, std::size_t n) { good = put(out, p, n) && good; });
    }
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
    std::optional<Busy> busy;
    if (!batch.frugal) busy.emplace();
    const std::size_t size = layout_size(batch);
    char* text = static_cast<char*>(try_malloc(size));
    if (text != nullptr) *lay_out(batch, text, text + size - 1) = '\0';
    return text;
}

int print_batch(FILE* stream, const Batch& batch) {
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
