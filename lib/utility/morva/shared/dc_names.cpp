// Named controls: the name area of a set, and the indexes that it gives away.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "containers/arr.hpp"
#include "shared/dynamic_controls.hpp"

namespace morva::dc {
namespace {

constexpr int kTypeShift = 6;
constexpr int kIndexMask = 63;

struct Control {
    int type = -1;  // a number; -1: no control
    int index = 0;
};

// Type and index behind a code byte; type -1 where no control can have the code.
Control control_of(uint8_t code) {
    const Control control{code >> kTypeShift, code & kIndexMask};
    return control.index < kIndexes[control.type] ? control : Control{};
}

int type_number(int letter) {
    for (int number = 0; number < kTypes; ++number)
        if (kLetters[number] == letter) return number;
    return -1;
}

// Walks the entries of a name area: whatever stands there, never beyond its end.
class Names {
  public:
    explicit Names(Dcset* set) : area_(set->names) {}

    // Steps to the next entry; false at the end.
    bool next() {
        at_ = end_;
        if (at_ + 2 >= DC_NAMES_SIZE) return false;
        const std::size_t room = DC_NAMES_SIZE - at_ - 1;
        const std::size_t n = ::strnlen(area_ + at_ + 1, room);
        if (n == 0 || n == room) return false;
        length_ = n;
        end_ = at_ + n + 2;
        return true;
    }
    uint8_t code() const { return static_cast<uint8_t>(area_[at_]); }
    std::string_view name() const { return {area_ + at_ + 1, length_}; }
    char* text() const { return area_ + at_ + 1; }
    // Behind the entries that were walked.
    std::size_t end() const { return end_; }

  private:
    char* area_;
    std::size_t at_ = 0, end_ = 0, length_ = 0;
};

// The control of a name; type -1 when there is none.
Control find(Dcset* set, std::string_view name) {
    for (Names names(set); names.next();)
        if (names.name() == name) return control_of(names.code());
    return {};
}

bool has_name(Dcset* set, std::string_view name) {
    for (Names names(set); names.next();)
        if (names.name() == name) return true;
    return false;
}

// Where the entry of a new control goes. Fatal when its code has a name, or there is no room.
std::size_t place_of(Dcset* set, int code, const char* name) {
    Names names(set);
    while (names.next())
        if (names.code() == code)
            elog_die(0,
                     "Conflict: %c%d is already assigned the name '%s', can't have new name '%s'\n"
                     "  Try removing the file .dynamic_controls and restarting",
                     kLetters[code >> kTypeShift], code & kIndexMask, names.text(), name);
    if (std::strlen(name) + 3 >= DC_NAMES_SIZE - names.end())
        elog_die(0,
                 "dynamic controls: Can't save name '%s' (code=%x) because there's no more string "
                 "space!\n  Try removing the file .dynamic_controls and restarting",
                 name, code);
    return names.end();
}

// Its first letter goes last: until then the area ends before the entry.
void record(Dcset* set, std::size_t at, int code, const char* name) {
    const std::size_t n = std::strlen(name);
    char* entry = set->names + at;
    entry[0] = static_cast<char>(code);
    if (n > 0) std::memcpy(entry + 2, name + 1, n);
    entry[n + 3] = '\0';
    shared(entry[1]).store(name[0], std::memory_order_release);
    shared(set->used).store(static_cast<int32_t>(at + n + 2), std::memory_order_relaxed);
}

// The index that the next control of the type takes, or -1 when all are taken.
int take_index(Dcset* set, int type) {
    uint8_t& next = set->next[type];
    if (next == 0 || next > kIndexes[type]) return -1;
    return --next;
}

// Sets up a control; `store(set, index)` gives a new one its value.
template <class Store>
int set_up(const char* name, char letter, Store store) {
    Dcset* set = selected_set(config());
    if (name == nullptr) name = "";
    const int type = type_number(letter);
    const Claim claim;
    const bool known = has_name(set, name);
    const Control found = find(set, name);
    const int index = !known ? take_index(set, type) : found.type == type ? found.index : -1;
    if (!known && index >= 0) {
        const int code = namecode(letter, index);
        const std::size_t place = place_of(set, code, name);
        // Whoever finds the name finds the value, also when this process is killed on the way.
        store(set, index);
        record(set, place, code, name);
    }
    note_change(set);
    return index;
}

}  // namespace
}  // namespace morva::dc

using namespace morva::dc;

int namecode(int type, int index) {
    const int number = type_number(type);
    if (number < 0)
        elog_die(0,
                 "*stack* dynamic controls: unknown type = %d (should never happen)\n"
                 "  Try removing the file .dynamic_controls and restarting",
                 type);
    if (index < 0 || index > kIndexMask)
        elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n",
                 "index of a dynamic control", __FILE_NAME__, __LINE__);
    return number << kTypeShift | index;
}

int dcsetupbyt(const char* name, int default_value) {
    return set_up(name, 'b', [&](Dcset* set, int index) { store_byte(set, index, default_value); });
}

int dcsetupint(const char* name, long default_value) {
    return set_up(name, 'i', [&](Dcset* set, int index) {
        shared(set->integers[index]).store(default_value, std::memory_order_relaxed);
    });
}

int dcsetupflt(const char* name, double default_value) {
    return set_up(name, 'f', [&](Dcset* set, int index) {
        shared(set->floats[index]).store(default_value, std::memory_order_relaxed);
    });
}

int dcsetupstr(const char* name, const char* default_value) {
    return set_up(name, 's',
                  [&](Dcset* set, int index) { store_string(set, index, default_value); });
}

int dcget(const char* name, void* out) {
    Dcset* set = selected_set(config());
    if (name == nullptr || !has_name(set, name)) return 0;
    const Control control = find(set, name);
    if (control.type < 0)
        elog_die(0,
                 "*stack* dynamic_controls: bad returned type = '%c' from typeindex (should never "
                 "happen)",
                 '?');
    switch (kLetters[control.type]) {
        case 'b':
            *static_cast<uint8_t*>(out) = static_cast<uint8_t>(dcgetb(control.index));
            break;
        case 'i':
            *static_cast<long*>(out) = dcgeti(control.index);
            break;
        case 'f':
            *static_cast<double*>(out) = dcgetf(control.index);
            break;
        default:
            *static_cast<char**>(out) = dcgets(control.index);
    }
    return kLetters[control.type];
}

Arr* dcnames() {
    Config& dc = config();
    dcopen(0);
    Arr* arr = newarr(nullptr);
    for (Names names(dc.selected); names.next();) {
        const Control control = control_of(names.code());
        if (control.type < 0) continue;
        char code[8];
        std::snprintf(code, sizeof code, "%c%d", kLetters[control.type], control.index);
        std::free(setarr(arr, names.text(), morva::must_strdup(code, "code", MORVA_HERE)));
    }
    return arr;
}

const char* dcname(int type, int index) {
    Dcset* set = selected_set(config());
    const int code = namecode(type, index);
    for (Names names(set); names.next();)
        if (names.code() == code) return names.text();
    return "";
}
