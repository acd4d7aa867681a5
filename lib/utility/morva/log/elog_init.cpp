// What the register knows of the program: its name, folder and command line.
#include <cstdlib>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"

static constinit char unknown_program[] = "Unknown_Program";
constinit char* Program_Name = unknown_program;
constinit int Argc = 0;
constinit char** Argv = nullptr;

namespace morva::log {
namespace {

bool same_arguments(int argc, char** argv) {
    if (argc != Argc || Argv == nullptr || Argv != state().owned_argv) return false;
    for (int i = 0; i < argc; ++i)
        if (argv[i] == nullptr || Argv[i] == nullptr || std::strcmp(argv[i], Argv[i]) != 0)
            return false;
    return true;
}

char** copy_arguments(int argc, char** argv) {
    Busy busy;
    char** copy = must_alloc<char*>(static_cast<std::size_t>(argc) + 1, "argv", MORVA_HERE);
    for (int i = 0; i < argc && argv[i] != nullptr; ++i)
        copy[i] = must_strdup(argv[i], "argv", MORVA_HERE);
    return copy;
}

void free_arguments(char** argv) {
    if (argv == nullptr) return;
    for (char** p = argv; *p != nullptr; ++p) std::free(*p);
    std::free(argv);
}

// Splits the path of the program into its last component and the rest.
void name_program(const char* path) {
    Busy busy;
    const char* slash = std::strrchr(path, '/');
    char* name = must_strdup(slash != nullptr ? slash + 1 : path, "Program_Name", MORVA_HERE);
    const std::size_t length = slash == nullptr ? 0 : slash == path ? 1 : slash - path;
    std::snprintf(state().directory, sizeof state().directory, "%.*s", static_cast<int>(length),
                  path);
    Program_Name = name;
    std::free(std::exchange(state().owned_name, name));
}

void record_command_line(int argc, char** argv) {
    if (argc <= 0 || argv == nullptr || same_arguments(argc, argv)) return;
    char** copy = copy_arguments(argc, argv);
    if (copy[0] != nullptr) name_program(copy[0]);
    Argc = argc;
    Argv = copy;
    Busy busy;
    free_arguments(std::exchange(state().owned_argv, copy));
}

Complaints initialise(int argc, char** argv) {
    State& now = state();
    const bool first_time = now.initialised.load(std::memory_order_relaxed) == kNever;
    if (first_time) {
        now.initialised.store(kUnderWay, std::memory_order_relaxed);
        now.started = std_now();
    }
    record_command_line(argc, argv);
    const Complaints complaints = load_configuration(first_time);
    now.initialised.store(kDone, std::memory_order_release);
    return complaints;
}

// Complains once all settings are in place and the lock is free.
void tell(const Complaints& complaints) {
    for (int i = 0; i < complaints.count; ++i)
        elog_complain(0, "Unrecognized severity '%s'\n", complaints.rest[i]);
}

}  // namespace

void initialise_for_caller() {
    ErrnoSaver keep;
    Complaints complaints;
    {
        Locked lock;
        if (lock.disturbed()) return;
        if (state().initialised.load(std::memory_order_relaxed) != kNever) return;
        complaints = initialise(0, nullptr);
    }
    tell(complaints);
}

}  // namespace morva::log

void morva::log_ready() {
    log::initialise_if_needed();
}

extern "C" {

using namespace morva::log;

int elog_init(int argc, char** argv) {
    morva::ErrnoSaver keep;
    Complaints complaints;
    {
        Locked lock;
        if (lock.disturbed()) return -1;
        complaints = initialise(argc, argv);
    }
    tell(complaints);
    return 0;
}

void elog_commandline(void) {
    char* text = elog_commandline_str();
    elog_notify(0, "\n--> %s <#>\n\n", text);
    std::free(text);
}

char* elog_commandline_str(void) {
    initialise_if_needed();
    Locked lock;
    const int count = Argv != nullptr ? Argc : 0;
    std::size_t size = 1;
    for (int i = 0; i < count && Argv[i] != nullptr; ++i) size += std::strlen(Argv[i]) + 1;
    char* buf = nullptr;
    {
        Busy busy;
        buf = static_cast<char*>(morva::try_malloc(size));
    }
    if (buf == nullptr) morva::out_of_memory(size, "buf", MORVA_HERE);
    char* at = buf;
    for (int i = 0; i < count && Argv[i] != nullptr; ++i) {
        if (i > 0) *at++ = ' ';
        at = stpcpy(at, Argv[i]);
    }
    *at = '\0';
    return buf;
}

}  // extern "C"
