// Path expressions read step by step, in place: NAME{KEY}[N]... The grammar is in
// morva/pfresolve.h.
#pragma once

#include <string_view>

namespace morva::pf {

// Where the first of two characters stands from `at` on; the text's length when there is neither.
inline std::size_t find_either(std::string_view text, std::size_t at, char a, char b) {
    while (at < text.size() && text[at] != a && text[at] != b) ++at;
    return at;
}

// From one node to the next: by key into an array, or by index into a list.
struct Step {
    bool by_key;
    std::string_view key;
    long index;  // as written, negative from the end
};

class PathReader {
  public:
    // A path without a brace or bracket is a name as a whole.
    explicit PathReader(std::string_view path)
        : path_(path), name_(path.substr(0, find_either(path, 0, '{', '['))), at_(name_.size()) {}

    // What stands before the first brace or bracket; may be empty.
    std::string_view name() const { return name_; }

    // The next step. False at the end and at a fault.
    bool next(Step* step);

    // What is wrong where the reader stands; null while nothing is.
    const char* fault() const { return fault_; }
    // The column of the fault in bytes, from 1; otherwise that of the next step.
    int column() const { return static_cast<int>(at_) + 1; }

  private:
    bool next_key(Step* step);
    bool next_index(Step* step);
    bool fail(const char* fault, std::size_t at);

    std::string_view path_;
    std::string_view name_;
    std::size_t at_;
    const char* fault_ = nullptr;
};

}  // namespace morva::pf
