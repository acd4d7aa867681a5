// Which files a parameter file's name stands for.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "paths/datasearch.hpp"

namespace morva::pf {

// A name, taken apart: "site/orb" has the folder "site" and the base "orb.pf", which the search
// path is searched for, and is itself the file "site/orb.pf". Empty texts when it does not fit a
// path.
class Name {
  public:
    explicit Name(const char* name);
    const char* folder() const { return folder_; }
    const char* base() const { return base_; }
    // The file that the name names beside those on the search path; empty for a bare name.
    const char* file() const { return file_; }

  private:
    static constexpr std::size_t kSuffix = 3;
    char folder_[paths::kPathSize];
    char base_[paths::kPathSize + kSuffix];
    char file_[paths::kPathSize + kSuffix];
};

// The search path as it stands now. It may refer to the environment.
String search_path();

// Whether it is still this one.
bool is_search_path(std::string_view path);

}  // namespace morva::pf
