// The message register's insides: one state, one lock, and the jobs that the sources beside this
// header share out among themselves:
//
//     elog.cpp           the worker, the severity functions and what callers do with the register
//     elog_state.cpp     the state and its lock
//     elog_message.cpp   one message: its text, tag and system error; owned copies
//     elog_print.cpp     the layout of messages, to streams, descriptors and strings
//     elog_deliver.cpp   the words of a delivery
//     elog_config.cpp    defaults, the parameter file and the environment
//     elog_query.cpp     elog_query and elog_set
//     elog_signals.cpp   fault signals
//     elog_end.cpp       what follows a fatal message
//
// Invariants. Only the holder of the lock touches the state. While the holder allocates, frees or
// changes the list it says so (Busy): an elog call that a signal handler or a failed allocation
// makes at that moment finds the register disturbed and writes its message straight to standard
// error. Everywhere else the holder may call in again: from the callback, from the write function
// of a stream, from a handler that interrupts a delivery.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "morva/elog.h"
#include "morva/tbl.h"
#include "skerrows.h"

namespace morva::log {

constexpr std::size_t kTextSize = 10240;    // a message with its terminating zero
constexpr std::size_t kTagLength = 1023;    // an expanded tag
constexpr std::size_t kSettingLength = 48;  // a delivery, tag template or debugger command
constexpr std::size_t kSysSize = 256;

using Setting = char[kSettingLength + 1];
using LongSetting = char[256];

struct Severity {
    Setting delivery;
    Setting tag;
    Setting debug;
    bool show_stack;
};

// The part of the register that a delivery is showing. Every cut narrows the spans of deliveries
// under way, so that each removes just what it showed, whatever happened while the lock was free.
struct Span {
    long start;
    long end;
    Span* next = nullptr;
    pthread_t thread = pthread_self();
};

struct State {
    Tbl* messages = nullptr;  // of Elog_msg*, made with the first message that stays
    Severity severities[ELOG_NSEVERITY] = {};
    Elog_callback callback = nullptr;
    double reference_time = -1;
    double started = 0;  // when the register was initialised
    LongSetting directory = "Unknown_Directory";
    LongSetting signals = "ILL:TRAP:FPE:BUS:SEGV:SYS";
    LongSetting wait = "";
    // Settings of the environment open files and run commands: a process with more rights than its
    // user sees none of them.
    const char* (*environment)(const char* name) = std_getenv;
    LongSetting t_format = "%a %b %e %H:%M:%S %Y";
    LongSetting u_format = "%Y-%j %H:%M:%S";
    char* owned_name = nullptr;   // the copy that Program_Name points to after elog_init
    char** owned_argv = nullptr;  // likewise Argv
    Span* spans = nullptr;
    Elog_msg* spares[16] = {};
    int spare_count = 0;
    const Elog_msg* in_hand = nullptr;  // the message the callback is being offered
    long offered_from = 0;              // and the first message of the register it is offered
    Elog_orb_logger orb_logger = nullptr;
    int quitting = 0;   // guards the end at the limit against itself
    bool busy = false;  // see the head of this file
    std::atomic<int> initialised{0};
};

enum Initialised { kNever, kUnderWay, kDone };

extern State g_state;
inline State& state() {
    return g_state;
}

// Holds the register's lock for a scope. Nests within a thread; keeps cancellation away while it is
// held. A disturbed register must not be touched.
class Locked {
  public:
    Locked();
    ~Locked();
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    bool disturbed() const;
};

// As Locked, for a signal handler: waits a moment, not for ever, and is false when the lock could
// not be had or the register is disturbed.
class Grabbed {
  public:
    Grabbed();
    ~Grabbed();
    Grabbed(const Grabbed&) = delete;
    Grabbed& operator=(const Grabbed&) = delete;
    explicit operator bool() const { return taken_; }

  private:
    bool taken_;
};

// Gives the lock up for a scope, however deeply the thread holds it.
class Unlocked {
  public:
    Unlocked();
    ~Unlocked();
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

  private:
    int depth_;
    int cancel_;
};

// Gives the lock up for good, because the thread is about to end the process.
void leave_lock();

// Marks a stretch in which the register must not be entered again.
class Busy {
  public:
    Busy() : before_(state().busy) { set(true); }
    ~Busy() { set(before_); }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

  private:
    static void set(bool busy) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        state().busy = busy;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    bool before_;
};

// Runs elog_init for a caller that came before it. Keeps errno.
void initialise_for_caller();
inline void initialise_if_needed() {
    if (state().initialised.load(std::memory_order_acquire) != kDone) initialise_for_caller();
}

// --- One message, as it is made: its strings lie in this record, on the stack of the caller.
struct Draft {
    Elog_msg message;
    std::size_t length;  // of text
    char text[kTextSize + 1];
    char tag[1 + kTagLength + 1];
    char sys[kSysSize];
};

// strerror for several threads.
void system_error(char (&to)[kSysSize], int error);

// As vsnprintf, but -1 for a format it does not know or a text that does not fit.
int format_simply(char* to, std::size_t size, const char* format, va_list given) MORVA_PRINTF(3, 0);

void format_text(Draft& draft, const char* format, va_list arguments) MORVA_PRINTF(2, 0);

// Completes a draft whose text is set: message, tag and system error (error 0: none).
void complete(Draft& draft, int severity, int error);

bool wants_stack(const Draft& draft);
bool repeats(const Elog_msg& last, const Draft& draft);

// A copy with strings of its own, or null when memory runs out.
Elog_msg* try_copy(const Elog_msg& message);
void free_message(void* message);

// The same for messages that the register keeps: some records stay at hand with their texts, since
// the next message will want about the same.
Elog_msg* try_keep(const Elog_msg& message);
void spare_message(void* message);

// Expands the tokens of a tag template; for a command, inserted words are quoted for the shell.
enum class Purpose { kTag, kCommand };
std::size_t expand(const char* pattern, char* to, std::size_t size, Purpose purpose);

int known_severity(int severity);

// --- Layout.
struct Batch {
    long start;
    long end;               // register indices, may be empty
    const Elog_msg* extra;  // after them, may be null
    bool frugal = false;    // without allocating anything
    bool empty() const { return start >= end && extra == nullptr; }
};
std::size_t layout_size(const Batch& batch);
char* try_layout(const Batch& batch);  // new text, null when memory runs out
int print_batch(FILE* stream, const Batch& batch);
int write_batch(int fd, const Batch& batch);

// --- The register.
long register_count();
Elog_msg* register_item(long i);
void cut_register(long n);
void remove_span(const Span& span);

// --- Delivery. False when no word took the batch; then the message is still the caller's to keep.
bool deliver(const char* delivery, long start, const Elog_msg* message);
// Tells the batch to the callback; true when that has handled it.
bool offer(int severity, const Batch& batch);
bool has_destination(const char* delivery);
void keep(const Elog_msg& message);
// Shows a batch and forgets nothing; neither allocates nor uses stdio.
void deliver_frugally(const char* delivery, const Batch& batch);

// --- Configuration.
// Texts of settings that make no sense from there on: one a variable at most.
struct Complaints {
    const char* rest[3] = {};
    int count = 0;
    void add(const char* text) { rest[count++] = text; }
};
Complaints load_configuration(bool first_time);
// Takes one setting of the parameter file, as port::read_register_settings hands it over.
void take_setting(void*, const char* key, const char* entry, const char* value);
void copy_setting(Setting& to, std::string_view text);

// Takes over the signals that a colon-separated list names and gives back the others. A signal that
// the program handles or ignores itself is left to it, unless the caller insists.
int intercept_signals(const char* names, bool insist);

// --- The end.
void run_debugger(int severity);
[[noreturn]] void end_program();
void forget_other_threads_end();

}  // namespace morva::log
