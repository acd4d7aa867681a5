// One-shot timers whose functions may do anything.
//
// A timer is armed by filling a slot of a fixed table and posting a semaphore, both of which a
// signal handler may do. One thread, the keeper, sleeps until the next slot is due and starts a
// thread of its own for each function, so that a slow one delays no other. The table is guarded by
// the state of each slot alone; no lock is held anywhere.
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <limits>

#include "deadline.hpp"
#include "skerrows.h"

namespace {

using skerrows::Nanoseconds;
using Function = void (*)();

enum SlotState { kFree, kFilling, kArmed };
struct Slot {
    std::atomic<SlotState> state{kFree};
    Function function = nullptr;
    Nanoseconds due = 0;
};
enum KeeperState { kNone, kStarting, kReady };
constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

static_assert(std::atomic<SlotState>::is_always_lock_free);

constinit Slot g_slots[STD_MAX_TIMERS];
constinit std::atomic<KeeperState> g_keeper{kNone};
constinit bool g_fork_watched = false;  // written while kStarting
sem_t g_armed;                          // posted once for every slot filled
sigset_t g_mask;                        // of the thread that started the keeper

// Starts `body` in a detached thread.
int start_thread(void* (*body)(void*), void* argument) {
    pthread_attr_t attributes;
    int error = ::pthread_attr_init(&attributes);
    if (error != 0) return error;
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    error = ::pthread_create(&thread, &attributes, body, argument);
    ::pthread_attr_destroy(&attributes);
    return error;
}

void* run(void* function) {
    ::pthread_sigmask(SIG_SETMASK, &g_mask, nullptr);
    reinterpret_cast<Function>(function)();
    return nullptr;
}

// Runs what is due. Returns when the next one is.
Nanoseconds run_due(Nanoseconds now) {
    Nanoseconds next = kNever;
    for (Slot& slot : g_slots) {
        if (slot.state.load(std::memory_order_acquire) != kArmed) continue;
        if (slot.due > now) {
            next = std::min(next, slot.due);
            continue;
        }
        const Function function = slot.function;
        slot.state.store(kFree, std::memory_order_release);
        // Without a thread to spare the keeper does it: late company is better than no alarm.
        if (start_thread(run, reinterpret_cast<void*>(function)) != 0) function();
    }
    return next;
}

void wait_until(Nanoseconds due) {
    if (due == kNever) {
        ::sem_wait(&g_armed);
        return;
    }
#if defined(__linux__)
    const timespec end = skerrows::to_timespec(due);
    ::sem_clockwait(&g_armed, CLOCK_MONOTONIC, &end);
#else
    // Without a monotonic wait the clock may be set meanwhile: look again every second.
    const Nanoseconds left = std::min(due - skerrows::monotonic_now(), skerrows::kSecond);
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    const timespec end = skerrows::to_timespec(now.tv_sec * skerrows::kSecond + now.tv_nsec +
                                               std::max<Nanoseconds>(left, 0));
    ::sem_timedwait(&g_armed, &end);
#endif
}

void* keep(void*) {
    for (;;) wait_until(run_due(skerrows::monotonic_now()));
}

// A forked child has neither the keeper nor its parent's timers.
void forget_all() {
    for (Slot& slot : g_slots) slot.state.store(kFree, std::memory_order_relaxed);
    g_keeper.store(kNone, std::memory_order_relaxed);
}

int start_keeper() {
    if (!g_fork_watched) {
        const int error = ::pthread_atfork(nullptr, nullptr, forget_all);
        if (error != 0) return error;
        g_fork_watched = true;
    }
    if (::sem_init(&g_armed, 0, 0) != 0) return errno;
    return start_thread(keep, nullptr);
}

// Signals that a program gets for its own faults must stay deliverable; all others are blocked
// while the keeper starts, and in the keeper for ever: they belong to the program's threads.
sigset_t all_but_faults() {
    sigset_t set;
    ::sigfillset(&set);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        ::sigdelset(&set, fault);
    return set;
}

// With signals blocked, so that no handler on this thread can find the keeper half started.
int start_or_await_keeper(const sigset_t& mask) {
    KeeperState state = kNone;
    if (g_keeper.compare_exchange_strong(state, kStarting, std::memory_order_acq_rel)) {
        g_mask = mask;
        const int error = start_keeper();
        g_keeper.store(error == 0 ? kReady : kNone, std::memory_order_release);
        return error;
    }
    while (g_keeper.load(std::memory_order_acquire) == kStarting) ::sched_yield();
    return g_keeper.load(std::memory_order_acquire) == kReady ? 0 : EAGAIN;
}

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

int std_prepare_timer(void) {
    if (g_keeper.load(std::memory_order_acquire) == kReady) return 0;
    const sigset_t blocked = all_but_faults();
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, &blocked, &mask);
    const int error = start_or_await_keeper(mask);
    ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return error == 0 ? 0 : fail(error);
}

int std_set_timer(void (*function)(void), double seconds) {
    if (function == nullptr || seconds != seconds) return fail(EINVAL);
    if (std_prepare_timer() != 0) return -1;
    for (Slot& slot : g_slots) {
        SlotState state = kFree;
        if (!slot.state.compare_exchange_strong(state, kFilling, std::memory_order_acquire))
            continue;
        slot.function = function;
        slot.due = skerrows::monotonic_now() + skerrows::from_seconds(seconds);
        slot.state.store(kArmed, std::memory_order_release);
        ::sem_post(&g_armed);
        return 0;
    }
    return fail(EAGAIN);
}

}  // extern "C"
