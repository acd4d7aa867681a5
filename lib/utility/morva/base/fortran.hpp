// Blank-padded strings of Fortran callers.
#pragma once

#include <cstddef>

#include "base/memory.hpp"

namespace morva::fortran {

// A terminated copy of a blank-padded string, without its trailing blanks.
class Text {
  public:
    Text(const char* field, std::size_t length);
    char* c_str() const { return copy_.get(); }
    const char* or_null() const { return *copy_ != '\0' ? copy_.get() : nullptr; }

  private:
    malloced<char> copy_;
};

// Copies `text` into a field, cut or padded with blanks. Returns its whole length; a null text
// leaves blanks and gives -1.
long give(char* field, std::size_t length, const char* text);

}  // namespace morva::fortran
