// Path expressions read step by step, in place: NAME{KEY}[N]... The grammar is in
// morva/pfresolve.h.
#pragma once

#include <array>
#include <string_view>

namespace morva::pf {

// Which bytes end the name, and which a key.
enum : unsigned char { kEndsName = 1, kEndsKey = 2 };
inline constexpr auto kPathEnds = [] {
    std::array<unsigned char, 256> ends{};
    ends['\0'] = ends['{'] = kEndsName | kEndsKey;
    ends['['] = kEndsName;
    ends['}'] = kEndsKey;
    return ends;
}();

// From one node to the next: by key into an array, or by index into a list.
struct Step {
    bool by_key;
    std::string_view key;
    long index;  // as written, negative from the end
};

class PathReader {
  public:
    // A path without a brace or bracket is a name as a whole.
    explicit PathReader(const char* path) : path_(path), at_(end_of(path, kEndsName)) {}

    // What stands before the first brace or bracket, as long as no step has been read; may be
    // empty.
    std::string_view name() const { return between(path_, at_); }
    bool at_end() const { return *at_ == '\0'; }

    // The next step. False at the end and at a fault.
    bool next(Step* step) {
        if (*at_ == '{') return next_key(step);
        if (*at_ == '[') return next_index(step);
        return at_end() ? false : fail("'{' or '[' expected", at_);
    }

    // What is wrong where the reader stands; null while nothing is.
    const char* fault() const { return fault_; }
    // The column of the fault in bytes, from 1; otherwise that of the next step.
    int column() const { return static_cast<int>(at_ - path_) + 1; }

  private:
    static const char* end_of(const char* at, int kind) {
        while ((kPathEnds[static_cast<unsigned char>(*at)] & kind) == 0) ++at;
        return at;
    }
    static std::string_view between(const char* from, const char* to) {
        return {from, static_cast<std::size_t>(to - from)};
    }
    bool next_key(Step* step) {
        const char* const start = at_ + 1;
        if (*start == '"' || *start == '\'') return next_quoted_key(step);
        const char* const end = end_of(start, kEndsKey);
        if (*end != '}' || end == start) return fail_key(end);
        *step = {true, between(start, end), 0};
        at_ = end + 1;
        return true;
    }
    bool next_quoted_key(Step* step);
    bool next_index(Step* step);
    bool fail_key(const char* end);
    bool fail(const char* fault, const char* at);

    const char* path_;
    const char* at_;
    const char* fault_ = nullptr;
};

}  // namespace morva::pf
