// Lists of whole numbers for the tests of the list family.
#pragma once

#include <initializer_list>
#include <memory>
#include <vector>

#include "support/kit.hpp"

namespace lists {

struct Free {
    void operator()(Tbl* tbl) const { freetbl(tbl, nullptr); }
};
using List = std::unique_ptr<Tbl, Free>;

// A number as an item of an indirect list, and back.
inline void* word(long n) {
    return reinterpret_cast<void*>(n);
}
inline long number(void* item) {
    return reinterpret_cast<long>(item);
}

inline List words_list(std::initializer_list<long> items) {
    List list(newtbl(0));
    for (long item : items) pushtbl(list.get(), word(item));
    return list;
}

inline List ints_list(std::initializer_list<int> items, const int* null_value = nullptr) {
    List list(inittbl(0, 0, 1, null_value, sizeof(int)));
    for (int item : items) pushtbl(list.get(), &item);
    return list;
}

inline std::vector<long> words(Tbl* tbl) {
    std::vector<long> items;
    for (long i = 0; i < maxtbl(tbl); ++i) items.push_back(number(gettbl(tbl, i)));
    return items;
}
inline std::vector<long> words(const List& list) {
    return words(list.get());
}

inline std::vector<int> ints(Tbl* tbl) {
    std::vector<int> items;
    for (long i = 0; i < maxtbl(tbl); ++i) items.push_back(*static_cast<int*>(gettbl(tbl, i)));
    return items;
}
inline std::vector<int> ints(const List& list) {
    return ints(list.get());
}

}  // namespace lists
