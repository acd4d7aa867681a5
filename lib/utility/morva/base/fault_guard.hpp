// Keeps the process alive when another process truncates a file that is mapped here.
//
// A page of a mapping that the file no longer reaches cannot be touched: the system raises SIGBUS.
// For a guarded range the handler puts an empty page of this process's own under the fault and
// marks the range as damaged; the family that owns it looks at the mark and says so. All other
// faults take their usual course.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

struct sigaction;

namespace morva {

class GuardedRange {
  public:
    // Guards a mapping until release is called, which must happen before it is unmapped. The result
    // belongs to the guard. The first call takes over SIGBUS.
    static GuardedRange* watch(const void* address, std::size_t length);

    // The guarded range in which the address lies, or null.
    static GuardedRange* around(const void* address);

    // Where it begins.
    void* begin() const { return reinterpret_cast<void*>(begin_.load(std::memory_order_relaxed)); }

    // Ends the watch; a null range is nothing to release.
    static void release(GuardedRange* range);

    // Whether the file was cut off under the mapping: what was touched there since is zeros, and
    // what is written there is lost.
    bool damaged() const { return damaged_.load(std::memory_order_relaxed) != kWhole; }

    // True once after the damage, for the one message about it.
    bool newly_damaged() {
        int cut = kCut;
        return damaged() && damaged_.compare_exchange_strong(cut, kTold);
    }

  private:
    friend bool absorb_fault(const void* address) noexcept;
    friend class GuardedRanges;

    enum { kWhole, kCut, kTold };

    bool holds(std::uintptr_t place) const {
        const std::uintptr_t begin = begin_.load(std::memory_order_acquire);
        return begin != 0 && place >= begin && place < end_.load(std::memory_order_relaxed);
    }

    std::atomic<std::uintptr_t> begin_{0};  // 0: the record is free
    std::atomic<std::uintptr_t> end_{0};
    std::atomic<int> damaged_{kWhole};
};

// What the handler does about a fault at the address: false when it lies in no guarded range.
// Whoever handles SIGBUS in place of the guard calls it first. May be called in signal handlers.
bool absorb_fault(const void* address) noexcept;

// Whether the guard handles the signal now, and may be replaced by someone who calls absorb_fault.
bool is_fault_guard(const struct sigaction& action);

// Handles SIGBUS again if there was anything to guard; else the signal takes its default course.
void restore_fault_guard();

}  // namespace morva
