// What the library hands out, as the commands hold it.
#pragma once

#include <cstdlib>
#include <string>

#include "morva.h"

namespace tool {

// A list of records with the function that frees them.
class Records {
  public:
    Records(Tbl* tbl, void (*free_record)(void*)) : tbl_(tbl), free_(free_record) {}
    ~Records() {
        if (tbl_ != nullptr) freetbl(tbl_, free_);
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    explicit operator bool() const { return tbl_ != nullptr; }
    long size() const { return maxtbl(tbl_); }
    template <class Record>
    Record* at(long i) const {
        return static_cast<Record*>(gettbl(tbl_, i));
    }

  private:
    Tbl* tbl_;
    void (*free_)(void*);
};

// Takes over a text from malloc.
inline std::string owned(char* text) {
    const std::string copy = text != nullptr ? text : "";
    std::free(text);
    return copy;
}

}  // namespace tool
