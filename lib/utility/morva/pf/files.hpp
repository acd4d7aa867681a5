// The files of a name, read as they are.
#pragma once

#include <deque>

#include "pf/outline.hpp"

namespace morva::pf {

class Files {
  public:
    // Reads what pffiles yields. False, with the reason registered, when there is none or one
    // cannot be read.
    bool read(const char* name);
    void merge_into(Outline& outline) const;

  private:
    struct File {
        String name, text;
    };
    std::deque<File, DyingAllocator<File>> files_;
};

// Replaces the file, in one step, when the text has changed. 0, or -1 with the reason registered.
int rewrite(const char* file, std::string_view old_text, std::string_view new_text);

// The text as a caller gets it; its length goes to `length` unless that is null.
char* handed_out(std::string_view text, long* length);

}  // namespace morva::pf
