#include "base/fault_guard.hpp"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <new>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"

namespace morva {

// All ranges, in blocks that are linked and never freed: the handler walks them without a lock
// while other threads add and release ranges.
class GuardedRanges {
  public:
    template <class Fits>
    GuardedRange* find(Fits fits) {
        for (Block* block = &first_; block != nullptr; block = block->next.load())
            for (GuardedRange& range : block->ranges)
                if (fits(range)) return &range;
        return nullptr;
    }

    GuardedRange* add(std::uintptr_t begin, std::uintptr_t end) {
        const std::lock_guard<std::mutex> lock(adding_);
        GuardedRange* range =
            find([](const GuardedRange& free) { return free.begin_.load() == 0; });
        if (range == nullptr) range = add_block();
        range->end_.store(end, std::memory_order_relaxed);
        range->damaged_.store(GuardedRange::kWhole, std::memory_order_relaxed);
        range->begin_.store(begin, std::memory_order_release);
        return range;
    }

  private:
    static constexpr int kRanges = 64;
    struct Block {
        GuardedRange ranges[kRanges];
        std::atomic<Block*> next{nullptr};
    };

    GuardedRange* add_block() {
        auto* block = new (must_malloc(sizeof(Block), "guard", MORVA_HERE)) Block;
        Block* last = &first_;
        while (Block* next = last->next.load()) last = next;
        last->next.store(block);
        return &block->ranges[0];
    }

    Block first_;
    std::mutex adding_;
};

namespace {

constinit GuardedRanges g_ranges;
constinit struct sigaction g_previous {};
constinit std::atomic<bool> g_installed{false};

std::uintptr_t page_size() {
    static const auto size = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

// Nobody else wants the fault: it strikes again when the handler returns, and ends the process.
void let_strike(int signo) {
    ::signal(signo, SIG_DFL);
    ::raise(signo);
}

void on_bus_error(int signo, siginfo_t* info, void* context) {
    ErrnoSaver keep;
    if (info->si_code > 0 && absorb_fault(info->si_addr)) return;
    if ((g_previous.sa_flags & SA_SIGINFO) != 0) {
        g_previous.sa_sigaction(signo, info, context);
    } else if (g_previous.sa_handler == SIG_DFL || g_previous.sa_handler == SIG_IGN) {
        let_strike(signo);
    } else {
        g_previous.sa_handler(signo);
    }
}

void install() {
    struct sigaction action {};
    action.sa_sigaction = on_bus_error;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGBUS, &action, nullptr);
}

// The register handles faults first, if it wants to: its reports stay as they are.
void install_first_time() {
    log_ready();
    page_size();
    if (g_installed.exchange(true)) return;
    ::sigaction(SIGBUS, nullptr, &g_previous);
    install();
}

}  // namespace

GuardedRange* GuardedRange::watch(const void* address, std::size_t length) {
    if (!g_installed.load()) install_first_time();
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    const std::uintptr_t page = page_size();
    return g_ranges.add(begin, (begin + length + page - 1) & ~(page - 1));
}

GuardedRange* GuardedRange::around(const void* address) {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    return g_ranges.find([&](const GuardedRange& range) { return range.holds(place); });
}

void GuardedRange::release(GuardedRange* range) {
    if (range != nullptr) range->begin_.store(0, std::memory_order_release);
}

bool absorb_fault(const void* address) noexcept {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    GuardedRange* range = GuardedRange::around(address);
    if (range == nullptr) return false;
    // The mark comes first: a reader that goes on behind the fault must see it.
    int whole = GuardedRange::kWhole;
    range->damaged_.compare_exchange_strong(whole, GuardedRange::kCut);
    void* page = reinterpret_cast<void*>(place & ~(page_size() - 1));
    return ::mmap(page, page_size(), PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

bool is_fault_guard(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_bus_error;
}

void restore_fault_guard() {
    if (!g_installed.load()) {
        ::signal(SIGBUS, SIG_DFL);
        return;
    }
    g_previous = {};
    install();
}

}  // namespace morva
