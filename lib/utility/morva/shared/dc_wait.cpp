// Waiting for changes of controls.
//
// A waiter marks the set and sleeps on the count of changes. Who changes a control takes the mark
// away, counts, and wakes all if there was a mark or is a new one: they have nothing more to wait
// for. So the mark of a waiter that was killed costs one vain call. A waiter that gives up takes
// the mark away if it is its own, and wakes the others, which set theirs. Sleep comes in slices:
// for changes made by programs that wake nobody, and for a waiter whose mark is overwritten and
// taken away just before it sleeps.
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>

#include "shared/dynamic_controls.hpp"
#include "skerrows.h"

namespace morva::dc {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kSlice = 0.1;

// The half of the count that every change changes.
int32_t* counting_word(Dcset* set) {
    constexpr int kLow = std::endian::native == std::endian::little ? 0 : 1;
    return reinterpret_cast<int32_t*>(&set->changes) + kLow;
}

bool has_changed(Dcset* set, long seen) {
    return shared(set->changes).load(std::memory_order_acquire) != seen;
}

// The mark of this thread, hardly that of another one.
int32_t own_mark() {
    static thread_local char here;
    const auto place = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&here) >> 6);
    return static_cast<int32_t>((place ^ static_cast<uint32_t>(::getpid()) * 2654435761U) | 1U);
}

bool take_own_mark(Dcset* set) {
    int32_t mark = own_mark();
    return shared(set->waited).compare_exchange_strong(mark, 0);
}

void sleep_slice(Dcset* set, long seen, double seconds) {
    shared(set->waited).store(own_mark(), std::memory_order_seq_cst);
    const int result = std_wait_word(counting_word(set), static_cast<int32_t>(seen), seconds);
    // Where the file was cut off there is no memory to wait for.
    if (result != 0 && errno != ETIMEDOUT) std_sleep(seconds);
}

}  // namespace

void wake(Dcset* set) {
    std_wake_word(counting_word(set));
}

}  // namespace morva::dc

using namespace morva::dc;

int dcwait(long changed, int milliseconds) {
    Dcset* set = selected_set(config());
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    bool slept = false;
    while (!has_changed(set, changed)) {
        const double left = milliseconds < 0 ? kSlice : Seconds(end - Clock::now()).count();
        if (left <= 0) break;
        sleep_slice(set, changed, std::min(left, kSlice));
        slept = true;
    }
    if (slept && take_own_mark(set)) wake(set);
    return has_changed(set, changed) ? 1 : 0;
}
