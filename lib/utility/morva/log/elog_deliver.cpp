#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/memory.hpp"
#include "base/ports.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"

namespace morva::log {
namespace {

// A delivery under way: what is to be shown, and what became of it.
struct Delivery {
    Span span;
    const Elog_msg* message;
    bool shown = false;   // some word took it
    bool failed = false;  // some word could not
    Batch batch() const { return Batch{span.start, span.end, message}; }
};

// Links a span to the register's list of deliveries under way.
class Watched {
  public:
    explicit Watched(Span& span) : span_(span) {
        span_.next = state().spans;
        state().spans = &span_;
    }
    ~Watched() {
        Span** link = &state().spans;
        while (*link != nullptr && *link != &span_) link = &(*link)->next;
        if (*link != nullptr) *link = span_.next;
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

  private:
    Span& span_;
};

// Trouble with a delivery goes straight to standard error, with all that the register holds.
void report(Delivery& delivery, const char* trouble, std::string_view word) {
    Busy busy;
    delivery.failed = true;
    const int error = errno;
    std::fprintf(stderr, "%s '%.*s'\n", trouble, static_cast<int>(word.size()), word.data());
    errno = error;
    if (error != 0) std::perror("\t");
    print_batch(stderr, Batch{0, register_count(), nullptr});
    cut_register(0);
}

void to_stream(Delivery& delivery, FILE* stream) {
    if (print_batch(stream, delivery.batch()) == 0 || stream == stderr)
        delivery.shown = true;
    else
        delivery.failed = true;
}

// A word with a terminating zero; empty when it is too long for that.
template <std::size_t size>
const char* terminated(char (&to)[size], std::string_view word) {
    const std::size_t n = word.size() < size ? word.size() : 0;
    std::memcpy(to, word.data(), n);
    to[n] = '\0';
    return to;
}

int open_to_append(std::string_view path) {
    char buffer[4096];
    const char* name = terminated(buffer, path);
    return retry(
        [&] { return ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC, 0664); });
}

void to_file(Delivery& delivery, std::string_view path) {
    if (path == "/dev/null") {
        delivery.shown = true;
        return;
    }
    const int fd = open_to_append(path);
    if (fd < 0) return report(delivery, "Can't open error file", path);
    const bool written = write_batch(fd, delivery.batch()) == 0;
    const int error = errno;
    const bool closed = ::close(fd) == 0;
    if (!written) {
        errno = error;
        return report(delivery, "Can't write error file", path);
    }
    delivery.shown = true;
    if (!closed) report(delivery, "Can't close error file", path);
}

// The logger may block and may log: it runs without the lock.
void to_ring(Delivery& delivery, std::string_view word) {
    char ring[1024], program[1024];
    const std::string_view name = word.substr(4);
    if (state().orb_logger == nullptr) return report(delivery, "No logger for packet ring", name);
    malloced<char> text(try_layout(delivery.batch()));
    if (text == nullptr) return report(delivery, "No memory to log to ring", name);
    const auto logger = state().orb_logger;
    std::snprintf(program, sizeof program, "%s", Program_Name);  // elog_init may replace it
    int result = 0;
    {
        Unlocked unlocked;
        errno = 0;
        result = logger(terminated(ring, name), program, text.get());
    }
    if (result != 0) report(delivery, "Can't log to packet ring", name);
    delivery.shown = delivery.shown || result == 0;
    Busy busy;
    text.reset();
}

void handle(Delivery& delivery, std::string_view word) {
    errno = 0;  // an error told below is one of the delivery
    if (word == "stderr") return to_stream(delivery, stderr);
    if (word == "stdout") return to_stream(delivery, stdout);
    if (word[0] == '/' || word[0] == '.') return to_file(delivery, word);
    if (word.substr(0, 4) == "orb:") return to_ring(delivery, word);
    report(delivery, "unrecognized delivery", word);
}

// Takes the next word off `rest`; empty at the end.
std::string_view next_word(std::string_view& rest) {
    const std::size_t start = rest.find_first_not_of(" \t");
    if (start == rest.npos) return {};
    rest.remove_prefix(start);
    const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
    rest.remove_prefix(word.size());
    return word;
}

// The register is full of messages that nobody shows: the program is out of control.
[[noreturn]] void quit_at_limit(long count) {
    const Severity& die = state().severities[ELOG_DIE];
    Setting delivery;
    copy_setting(delivery, die.delivery);
    if (state().quitting++ == 0) deliver(delivery, 0, nullptr);
    char tag[kTagLength + 1];
    expand(die.tag, tag, sizeof tag, Purpose::kTag);
    {
        Busy busy;
        std::fprintf(stderr,
                     "%s: quitting because log has %d messages\n"
                     "   eliminate this limit with\n"
                     "      setenv ELOG_MAXMSG 0\n"
                     "   or by editing elog.pf.  See elog(3).\n",
                     tag, static_cast<int>(count));
    }
    end_program();
}

}  // namespace

bool has_destination(const char* delivery) {
    std::string_view rest = delivery;
    for (std::string_view word; !(word = next_word(rest)).empty();)
        if (word != "log") return true;
    return false;
}

void keep(const Elog_msg& message) {
    const long count = register_count();
    if (Max_msg >= 1 && count >= Max_msg) quit_at_limit(count);
    Elog_msg* copy = nullptr;
    {
        Busy busy;
        if ((copy = try_keep(message)) != nullptr) {
            if (state().messages == nullptr) state().messages = newtbl(0);
            pushtbl(state().messages, copy);
            return;
        }
    }
    if (message.severity < ELOG_DIE) morva::out_of_memory(sizeof(Elog_msg), "msg", MORVA_HERE);
    write_batch(STDERR_FILENO, Batch{0, count, &message, true});
}

// A message that the callback raises itself is not offered to it.
bool offer(int severity, const Batch& batch) {
    [[gnu::tls_model("initial-exec")]] static constinit thread_local bool inside = false;
    State& now = state();
    if (now.callback == nullptr || inside) return false;
    malloced<char> text(try_layout(batch));
    if (text == nullptr) {
        if (severity >= ELOG_DIE) return false;
        morva::out_of_memory(layout_size(batch), "s", MORVA_HERE);
    }
    now.in_hand = batch.extra;
    now.offered_from = batch.start;
    inside = true;
    const bool handled = now.callback(severity, text.get(), now.messages) != 0;
    inside = false;
    now.in_hand = nullptr;
    now.offered_from = 0;
    Busy busy;
    text.reset();
    return handled;
}

bool deliver(const char* words, long start, const Elog_msg* message) {
    if (!has_destination(words)) return false;
    Delivery delivery{Span{start, register_count(), nullptr}, message};
    Watched watched(delivery.span);
    std::string_view rest = words;
    for (std::string_view word; !(word = next_word(rest)).empty();)
        if (word != "log") handle(delivery, word);
    if (delivery.failed && !delivery.shown) print_batch(stderr, delivery.batch());
    remove_span(delivery.span);
    return true;
}

void deliver_frugally(const char* words, const Batch& batch) {
    bool shown = false;
    std::string_view rest = words;
    for (std::string_view word; !(word = next_word(rest)).empty();) {
        if (word == "stderr" || word == "stdout") {
            const int fd = word == "stderr" ? STDERR_FILENO : STDOUT_FILENO;
            shown = write_batch(fd, batch) == 0 || shown;
        } else if (word == "/dev/null") {
            shown = true;
        } else if (word[0] == '/' || word[0] == '.') {
            const Descriptor file(open_to_append(word));
            shown = (file && write_batch(file.get(), batch) == 0) || shown;
        }
    }
    if (!shown) write_batch(STDERR_FILENO, batch);
}

}  // namespace morva::log

extern "C" {

int elog_deliver(const char* delivery, int start, Elog_msg* message) {
    using namespace morva::log;
    initialise_if_needed();
    Locked lock;
    if (lock.disturbed()) return -1;
    const bool taken = deliver(delivery != nullptr ? delivery : "", start > 0 ? start : 0, message);
    if (!taken && message != nullptr) keep(*message);
    Busy busy;
    free_message(message);
    return 0;
}

const Elog_msg* elog_in_hand(int* start) {
    morva::log::Locked lock;
    const morva::log::State& now = morva::log::state();
    if (start != nullptr) *start = static_cast<int>(now.offered_from);
    return now.in_hand;
}

void elog_set_orb_logger(Elog_orb_logger logger) {
    morva::log::initialise_if_needed();
    morva::log::Locked lock;
    morva::log::state().orb_logger = logger;
}

}  // extern "C"
