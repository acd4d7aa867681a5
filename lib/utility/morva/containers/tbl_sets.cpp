// Lists of strings as sets: membership, what two lists have in common, merging of sorted lists.
#include <memory>

#include "base/diagnostics.hpp"
#include "containers/tbl_internal.hpp"
#include "morva/arr.h"
#include "morva/tbl.h"

namespace morva::list {
namespace {

// What a set's members have for a value.
void* const kMember = reinterpret_cast<void*>(~std::uintptr_t{0});

struct ArrFree {
    void operator()(Arr* arr) const { freearr(arr, nullptr); }
};

// The items of `items` whose membership of the set of `others` is as asked for, in order.
Tbl* select(Tbl* items, Tbl* others, bool members) {
    const std::unique_ptr<Arr, ArrFree> set(arrtbl(others));
    Tbl* selected = newtbl(0);
    String copy;
    for (long i = 0; i < maxtbl(items); ++i) {
        const char* text = string_of(items, i, &copy);
        if (text == nullptr) continue;
        const bool member = getarr(set.get(), text) != nullptr;
        if (member == members) pushtbl(selected, tbl_item(items, i));
    }
    return selected;
}

int compare_strings(void* a, void* b, void*) {
    return std::strcmp(static_cast<char*>(a), static_cast<char*>(b));
}

// Walks over the strings of a list, null items left out.
class Strings {
  public:
    explicit Strings(Tbl* tbl) : tbl_(tbl) { find(); }
    bool more() const { return text_ != nullptr; }
    char* get() const { return const_cast<char*>(text_); }
    void step() {
        ++i_;
        find();
    }
    void move_to(Tbl* result) {
        if (result != nullptr) pushtbl(result, must_strdup(text_, "s", MORVA_HERE));
        step();
    }

  private:
    void find() {
        text_ = nullptr;
        for (; i_ < maxtbl(tbl_) && text_ == nullptr; i_ += text_ == nullptr)
            text_ = string_of(tbl_, i_, &copy_);
    }
    Tbl* tbl_;
    long i_ = 0;
    const char* text_ = nullptr;
    String copy_;
};

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" {

Arr* arrtbl(Tbl* tbl) {
    Arr* set = newarr(nullptr);
    String copy;
    for (long i = 0; i < maxtbl(tbl); ++i)
        if (const char* text = string_of(tbl, i, &copy)) setarr(set, text, kMember);
    return set;
}

Tbl* commtbl(Tbl* a, Tbl* b, int type) {
    switch (type) {
        case 1:
            return select(a, b, false);
        case 2:
            return select(b, a, false);
        case 3:
            return select(a, b, true);
        default:
            elog_complain(0, "*stack* commtbl called with type = %d", type);
            return newtbl(0);
    }
}

void difftbl(Tbl* a, Tbl* b, Tbl_compare compare, void* private_data, Tbl* only_a, Tbl* only_b,
             Tbl* both) {
    for (Tbl* result : {only_a, only_b, both}) clrtbl(result, std::free);
    if (compare == nullptr) compare = compare_strings;
    Strings left(a), right(b);
    while (left.more() && right.more()) {
        const int order = compare(left.get(), right.get(), private_data);
        if (order > 0) {
            right.move_to(only_b);
        } else if (order < 0) {
            left.move_to(only_a);
        } else {
            left.move_to(both);
            right.step();
        }
    }
    while (left.more()) left.move_to(only_a);
    while (right.more()) right.move_to(only_b);
}

}  // extern "C"
