// Lists as the Fortran twins see them: items are variables of eight bytes, given by reference.
#pragma once

#include "morva/tbl.h"

namespace morva::fortran {

// True for the lists that hold eight bytes an item by value, as newtbl_ makes them.
inline bool holds_words(const Tbl* tbl) {
    return tbl->direct != 0 && tbl->itemsize == sizeof(void*);
}

// What the C functions are to store for a Fortran variable: a list by value copies from its
// address, a list of pointers keeps its eight bytes.
inline const void* item_of(const Tbl* tbl, const void* variable) {
    return tbl->direct != 0 ? variable : *static_cast<void* const*>(variable);
}

// Item i as the pointer that it holds; null outside the list, or when it cannot hold one.
char* pointer_at(Tbl* tbl, long i);

// A list as the string routines want it, one pointer an item. A list of pointers is used itself;
// for a list of eight-byte items by value stands a temporary one.
class Pointers {
  public:
    explicit Pointers(Tbl* tbl);
    ~Pointers();
    Pointers(const Pointers&) = delete;
    Pointers& operator=(const Pointers&) = delete;
    Tbl* list() const { return list_; }

    // Makes the items of the original list those of list().
    void store();

  private:
    Tbl* original_;
    Tbl* list_;
};

}  // namespace morva::fortran
