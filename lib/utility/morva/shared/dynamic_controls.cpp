// Reading and changing controls by index.
#include "morva/dynamic_controls.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/fault_guard.hpp"
#include "base/memory.hpp"
#include "shared/dynamic_controls.hpp"
#include "skerrows.h"

namespace morva::dc {
namespace {

[[noreturn, gnu::cold]] void die_of_index(int index, const char* function) {
    elog_die(0, "*stack* index = %d in %s", index, function);
    std::abort();
}

// The selected set, for a control whose index must be below `limit`.
inline Dcset* set_for(int index, int limit, const char* function) {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(limit)) die_of_index(index, function);
    return selected_set(config());
}

template <class T>
T load(T& field) {
    return shared(field).load(std::memory_order_relaxed);
}

// What `get` takes out of the selected set. Apart stands what needs a frame on the stack.
template <class Get>
[[gnu::noinline, gnu::cold]] auto get_slowly(int index, int limit, const char* function, Get get) {
    return get(set_for(index, limit, function), index);
}

template <class Get>
inline auto get_from_set(int index, int limit, const char* function, Get get) {
    Dcset* set = config().selected.load(std::memory_order_acquire);
    if (set != nullptr && static_cast<unsigned>(index) < static_cast<unsigned>(limit)) [[likely]]
        return get(set, index);
    return get_slowly(index, limit, function, get);
}

template <class T>
void store(T& field, T value) {
    shared(field).store(value, std::memory_order_relaxed);
}

[[gnu::cold]] void complain_once(GuardedRange* range) {
    if (range->newly_damaged())
        elog_complain(0, "Another process cut off %s: controls are lost\n", kFile);
}

}  // namespace

void note_change(Dcset* set) {
    store(set->timestamp, std_now());
    const bool awaited = take_mark(set);
    // Either a waiter sees the new count, or this the mark that it left before it looked.
    shared(set->changes).fetch_add(1, std::memory_order_seq_cst);
    if (awaited || is_marked(set)) [[unlikely]]
        wake(set);
    GuardedRange* guard = config().guard;
    if (guard != nullptr && guard->damaged()) complain_once(guard);
}

void store_byte(Dcset* set, int index, int value) {
    const bool truth = value != 0 && (value & 255) == 0;
    store(set->bytes[index], static_cast<uint8_t>(truth ? 255 : value));
}

// The last byte is never anything but the terminator: a reader finds an end at any moment.
void store_string(Dcset* set, int index, const char* text) {
    char* to = set->strings[index];
    const std::size_t n = text != nullptr ? ::strnlen(text, DC_STRING_SIZE - 1) : 0;
    for (std::size_t i = 0; i < DC_STRING_SIZE; ++i) store(to[i], i < n ? text[i] : '\0');
}

}  // namespace morva::dc

using namespace morva::dc;

int dcsetb(int index, int value) {
    Dcset* set = set_for(index, DC_BYTES, "dcsetb");
    store_byte(set, index, value);
    note_change(set);
    return 0;
}

int dcseti(int index, long value) {
    Dcset* set = set_for(index, DC_INTEGERS, "dcseti");
    store(set->integers[index], static_cast<int64_t>(value));
    note_change(set);
    return 0;
}

int dcsetf(int index, double value) {
    Dcset* set = set_for(index, DC_FLOATS, "dcsetf");
    store(set->floats[index], value);
    note_change(set);
    return 0;
}

int dcsets(int index, const char* text) {
    Dcset* set = set_for(index, DC_STRINGS, "dcsets");
    store_string(set, index, text);
    note_change(set);
    return 0;
}

int dcgetb(int index) {
    return get_from_set(index, DC_BYTES, "dcgetb",
                        [](Dcset* set, int i) -> int { return load(set->bytes[i]); });
}

long dcgeti(int index) {
    return get_from_set(index, DC_INTEGERS, "dcgeti",
                        [](Dcset* set, int i) { return load(set->integers[i]); });
}

double dcgetf(int index) {
    return get_from_set(index, DC_FLOATS, "dcgetf",
                        [](Dcset* set, int i) { return load(set->floats[i]); });
}

char* dcgets(int index) {
    char* from = set_for(index, DC_STRINGS, "dcgets")->strings[index];
    char text[DC_STRING_SIZE] = "";
    for (int i = 0; i < DC_STRING_SIZE - 1; ++i)
        if ((text[i] = load(from[i])) == '\0') break;
    return morva::must_strdup(text, "string", MORVA_HERE);
}

int dctrigger(int index) {
    uint8_t& byte = set_for(index, DC_BYTES, "dctrigger")->bytes[index];
    return load(byte) != 0 ? shared(byte).exchange(0, std::memory_order_acq_rel) : 0;
}

long dcchanged() {
    return shared(selected_set(config())->changes).load(std::memory_order_acquire);
}

double dctimestamp() {
    return load(selected_set(config())->timestamp);
}
