#include "fortran/lists.hpp"

namespace morva::fortran {

char* pointer_at(Tbl* tbl, long i) {
    if (tbl->direct == 0) return static_cast<char*>(gettbl(tbl, i));
    void* slot = addrtbl(tbl, i);
    if (slot == nullptr || !holds_words(tbl)) return nullptr;
    return *static_cast<char**>(slot);
}

Pointers::Pointers(Tbl* tbl) : original_(tbl), list_(tbl) {
    if (!holds_words(tbl)) return;
    list_ = newtbl(maxtbl(tbl));
    for (long i = 0; i < maxtbl(tbl); ++i) pushtbl(list_, pointer_at(tbl, i));
}

Pointers::~Pointers() {
    if (list_ != original_) freetbl(list_, nullptr);
}

void Pointers::store() {
    if (list_ == original_) return;
    clrtbl(original_, nullptr);
    for (long i = 0; i < maxtbl(list_); ++i) pushtbl(original_, addrtbl(list_, i));
}

}  // namespace morva::fortran
