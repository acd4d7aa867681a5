#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <type_traits>

#include "log/elog.hpp"

namespace morva::log {

constinit State g_state;

namespace {

static_assert(std::is_trivially_destructible_v<State>, "programs log while they exit");
constinit pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;

// What this thread holds. `depth` rises before the mutex is taken and `holds` after it, so that a
// signal handler that runs in between sees that it must not wait for its own thread.
struct Hold {
    int depth;
    volatile bool holds;
    int cancel;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Hold t_hold{};

void fence() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void take() {
    ++t_hold.depth;
    fence();
    if (t_hold.depth > 1) return;
    int cancel = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel);
    pthread_mutex_lock(&g_mutex);
    t_hold.cancel = cancel;
    fence();
    t_hold.holds = true;
}

void give() {
    if (t_hold.depth > 1) {
        --t_hold.depth;
        return;
    }
    const int cancel = t_hold.cancel;
    t_hold.holds = false;
    fence();
    pthread_mutex_unlock(&g_mutex);
    fence();
    t_hold.depth = 0;
    pthread_setcancelstate(cancel, nullptr);
}

// The stacks of the other threads, and their deliveries with them, are gone.
void release_in_child() {
    for (Span** link = &g_state.spans; *link != nullptr;) {
        if (pthread_equal((*link)->thread, pthread_self()))
            link = &(*link)->next;
        else
            *link = (*link)->next;
    }
    forget_other_threads_end();
    give();
}

// A fork waits for the register, so that the child finds it whole and free.
[[gnu::constructor]] void follow_forks() {
    pthread_atfork(take, give, release_in_child);
}

}  // namespace

Locked::Locked() {
    take();
}
Locked::~Locked() {
    give();
}

bool Locked::disturbed() const {
    return !t_hold.holds || g_state.busy;
}

Grabbed::Grabbed() : taken_(false) {
    if (t_hold.depth > 0) {
        taken_ = t_hold.holds && !g_state.busy;
        if (taken_) ++t_hold.depth;
        return;
    }
    for (int tries = 0; tries < 200; ++tries) {
        if (pthread_mutex_trylock(&g_mutex) == 0) {
            t_hold = Hold{1, true, PTHREAD_CANCEL_DISABLE};
            taken_ = !g_state.busy;
            if (!taken_) give();
            return;
        }
        const timespec millisecond{0, 1000000};
        ::nanosleep(&millisecond, nullptr);
    }
}

Grabbed::~Grabbed() {
    if (taken_) give();
}

Unlocked::Unlocked() : depth_(t_hold.depth), cancel_(t_hold.cancel) {
    t_hold.holds = false;
    fence();
    pthread_mutex_unlock(&g_mutex);
    t_hold.depth = 0;
}

Unlocked::~Unlocked() {
    take();
    t_hold.depth = depth_;
    t_hold.cancel = cancel_;
}

void leave_lock() {
    if (t_hold.depth == 0) return;
    const bool held = t_hold.holds;
    t_hold.holds = false;
    fence();
    if (held) pthread_mutex_unlock(&g_mutex);
    t_hold.depth = 0;
}

}  // namespace morva::log
