// Printing the calls that led here.
//
// Made for fault-signal handlers: the frames come from the compiler's unwinder and the names from
// the modules' symbol tables, neither of which allocates memory. Only the demangler does; it is
// left out where that could wait for ever for a lock of the very allocator that the signal
// interrupted, or where the handler's own stack is too small for it.
#include <cxxabi.h>
#include <signal.h>
#include <unwind.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/posix.hpp"
#include "skerrows.h"
#include "symbols.hpp"

namespace {

using skerrows::Place;

struct Frame {
    std::uintptr_t address;  // within the call, or of the instruction that a signal interrupted
    bool interrupted;
};

struct Frames {
    static constexpr int kMost = 128;
    Frame at[kMost];
    int count = 0;
    bool more = false;
    const void* caller;  // the first frame wanted; until it is met, frames are our own
};

_Unwind_Reason_Code collect(_Unwind_Context* context, void* argument) {
    auto* frames = static_cast<Frames*>(argument);
    int interrupted = 0;
    const std::uintptr_t pc = _Unwind_GetIPInfo(context, &interrupted);
    if (pc == 0) return _URC_END_OF_STACK;
    if (frames->count == 0 && pc != reinterpret_cast<std::uintptr_t>(frames->caller))
        return _URC_NO_REASON;
    if (frames->count == Frames::kMost) {
        frames->more = true;
        return _URC_END_OF_STACK;
    }
    // A return address may already belong to the next function: the call lies before it.
    frames->at[frames->count++] = {interrupted != 0 ? pc : pc - 1, interrupted != 0};
    return _URC_NO_REASON;
}

const void* module_of(std::uintptr_t address) {
    return skerrows::locate(address).module_base;
}

// The thread sanitizer reports every allocation in a signal handler.
#if defined(__SANITIZE_THREAD__)
constexpr bool kNeverInHandlers = true;
#else
constexpr bool kNeverInHandlers = false;
#endif

// Whether the interrupted code may be within the allocator: in its module, or in the C library,
// which the allocator calls and mostly is.
bool may_be_allocating(std::uintptr_t address) {
    const void* module = module_of(address);
    return kNeverInHandlers || module == nullptr ||
           module == module_of(reinterpret_cast<std::uintptr_t>(&std::malloc)) ||
           module == module_of(reinterpret_cast<std::uintptr_t>(&::getppid));
}

// Whether this thread may allocate although a signal interrupted it somewhere.
bool may_allocate(const Frames& frames) {
    stack_t stack;
    if (::sigaltstack(nullptr, &stack) == 0 && (stack.ss_flags & SS_ONSTACK) != 0) return false;
    for (int i = 0; i < frames.count; ++i)
        if (frames.at[i].interrupted && may_be_allocating(frames.at[i].address)) return false;
    return true;
}

struct FreeName {
    void operator()(char* name) const { std::free(name); }
};

void print_function(FILE* stream, const char* function, bool demangle) {
    std::unique_ptr<char, FreeName> name;
    if (demangle && std::strncmp(function, "_Z", 2) == 0) {
        int status = 0;
        name.reset(abi::__cxa_demangle(function, nullptr, nullptr, &status));
    }
    std::fputs(name ? name.get() : function, stream);
}

// These go by way of a small buffer: on an unbuffered stream, fprintf would take 8 kB of the stack,
// which may be all that a handler has.
void print_address(FILE* stream, int number, std::uintptr_t address) {
    char text[64];
    std::snprintf(text, sizeof text, "\t#%-2d 0x%016lx ", number,
                  static_cast<unsigned long>(address));
    std::fputs(text, stream);
}

void print_offset(FILE* stream, std::uintptr_t offset) {
    char text[32];
    std::snprintf(text, sizeof text, " + 0x%lx", static_cast<unsigned long>(offset));
    std::fputs(text, stream);
}

// "\t#3  0x00007f5c11002a34 open_ring(char const*) + 0x14 (libmorva.so.1)", with the offset within
// the module when the function is not known.
void print_frame(FILE* stream, int number, std::uintptr_t address, bool demangle) {
    const Place place = skerrows::locate(address);
    const bool known = place.function[0] != '\0';
    print_address(stream, number, address);
    print_function(stream, known ? place.function : "?", demangle);
    if (known) print_offset(stream, place.offset);
    if (place.module != nullptr) {
        const char* slash = std::strrchr(place.module, '/');
        std::fputs(" (", stream);
        std::fputs(slash != nullptr ? slash + 1 : place.module, stream);
        if (!known) print_offset(stream, place.offset);
        std::fputs(")", stream);
    }
    std::fputs("\n", stream);
}

}  // namespace

extern "C" __attribute__((noinline)) int show_stack_trace(FILE* stream) {
    if (stream == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const morva::ErrnoSaver keep;
    Frames frames;
    frames.caller = __builtin_extract_return_addr(__builtin_return_address(0));
    _Unwind_Backtrace(collect, &frames);
    const bool demangle = may_allocate(frames);
    ::flockfile(stream);
    for (int i = 0; i < frames.count; ++i) print_frame(stream, i, frames.at[i].address, demangle);
    if (frames.more) std::fputs("\t...\n", stream);
    const bool written = std::fflush(stream) == 0 && std::ferror(stream) == 0;
    ::funlockfile(stream);
    return frames.count > 0 && written ? 0 : -1;
}
