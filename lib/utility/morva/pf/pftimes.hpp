// Files and the states they are in: what decides whether a tree is read again.
#pragma once

#include "base/memory.hpp"
#include "containers/tbl.hpp"
#include "morva/pfread.h"

namespace morva::pf {

inline Pftime& time_item(const Tbl* times, long i) {
    return *reinterpret_cast<Pftime*>(tbl_slot(times, i));
}

// Puts digests of their contents into the records.
void digest_contents(Tbl* times);

// Whether both lists tell of the same files in the same state; `before` was taken at the time
// `taken`. Where the times of modification cannot tell, contents decide, and `now` gets its digests
// in any case.
bool same_files(const Tbl* before, Tbl* now, double taken);

// One look along the search path: every place where a file of the name may be, and what stat tells
// of it. It decides which files the name stands for and which states they are in.
class Watch {
  public:
    static Watch look(const char* name);
    // Whether another look shows the same.
    bool holds(const char* name) const;
    // Whether whatever has changed since the look is bound to show in another.
    bool is_settled() const;
    double when() const { return when_; }

  private:
    struct Place {
        String path;
        int error;  // of stat; without one, the status is set
        Pftime status;
    };
    static bool shows_the_same(const Place& place);

    String path_;  // the search path
    Vector<Place> places_;
    bool fixed_ = false;  // whether the places can only change when one of them does
    double when_ = 0;
};

}  // namespace morva::pf
