// Dynamic controls among their own sources: the open sets and the fields that processes share.
#pragma once

#include <atomic>
#include <mutex>

#include "base/fault_guard.hpp"
#include "morva/dynamic_controls.h"

namespace morva::dc {

inline constexpr char kFile[] = ".dynamic_controls";
inline constexpr int kTypes = 4;
inline constexpr char kLetters[] = "bifs";
inline constexpr int kIndexes[kTypes] = {DC_BYTES, DC_INTEGERS, DC_FLOATS, DC_STRINGS};

static_assert(sizeof(Dcset) == 1832 && offsetof(Dcset, timestamp) == 896);
static_assert(offsetof(Dcset, used) == 920 && offsetof(Dcset, names) == 932);
static_assert(offsetof(Dcset, waited) == 908 && offsetof(Dcset, changes) == 912);

// What the process has open. `fd` is -1 when the sets are in private memory.
struct Config {
    std::atomic<Dcset*> selected{nullptr};  // null until the controls are open
    Dcset* first = nullptr;
    std::size_t length = 0;
    int fd = -1;
    int count = 0;
    GuardedRange* guard = nullptr;
};
inline constinit Config open_config;
inline Config& config() {
    return open_config;
}

// The selected set; opens the controls if need be, and selects the program's set then.
inline Dcset* selected_set(Config& dc) {
    Dcset* set = dc.selected.load(std::memory_order_acquire);
    if (set != nullptr) [[likely]]
        return set;
    dcopen(1);
    return dc.selected.load(std::memory_order_acquire);
}

// A field that other processes read and write meanwhile.
template <class T>
std::atomic_ref<T> shared(T& field) {
    return std::atomic_ref<T>(field);
}

// The mark of those who wait for a change of the set (dc_wait.cpp).
inline bool is_marked(Dcset* set) {
    return shared(set->waited).load(std::memory_order_seq_cst) != 0;
}
inline bool take_mark(Dcset* set) {
    const bool marked = is_marked(set);
    if (marked) [[unlikely]]
        shared(set->waited).store(0, std::memory_order_seq_cst);
    return marked;
}

// Wakes them.
void wake(Dcset* set);

// Counts a change and notes when it was; complains once when the file was cut off meanwhile.
void note_change(Dcset* set);

// Stores the value of a control that was made: counted as a change by the caller.
void store_byte(Dcset* set, int index, int value);
void store_string(Dcset* set, int index, const char* text);

// The set of a program, which takes a free one if it has none; null: of this one.
Dcset* set_of(const Config& dc, const char* program);

// Brings a set into the state of a free one. Whoever is killed on the way leaves it in use, with
// some controls reset: names go first, the program last.
void reset(Dcset* set);

// Keeps other threads from taking a set or an index at the same time, and other processes, if the
// sets are in a file. A thread that dies on the way may come again from its burial.
class Claim {
  public:
    Claim();
    ~Claim();
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

  private:
    const std::lock_guard<std::recursive_mutex> threads_;
    bool locked_ = false;
};

}  // namespace morva::dc
