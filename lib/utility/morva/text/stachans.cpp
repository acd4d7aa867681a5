// Selection lists: which station and channel pairs does a list of expressions select?
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/pattern.hpp"
#include "morva/strmatches.h"
#include "text/strings.hpp"

namespace {

using morva::Pattern;
using std::string_view;

constexpr int kNoMemory = -1;

// A pattern anchored at both ends, compiled at its first use and kept.
class Anchored {
  public:
    explicit Anchored(string_view text) : text_(text) {}
    // 1, 0, or kNoMemory. A pattern that does not compile complains at each use.
    int matches(const char* string) {
        if (text_.empty()) return 0;
        if (text_ == "*") return 1;
        if (state_ == State::kFresh && !compile()) return kNoMemory;
        if (state_ == State::kReady) return pattern_.found_in(string);
        elog_complain(0, "match_string: %s.\n", reason_.c_str());
        return 0;
    }

  private:
    enum class State { kFresh, kReady, kRefused };
    // False when memory runs out.
    bool compile() {
        const bool front = text_.front() != '^';
        const bool back = text_.back() != '$';
        morva::malloced<char> anchored(static_cast<char*>(morva::try_malloc(text_.size() + 3)));
        if (!anchored) return false;
        char* p = anchored.get();
        if (front) *p++ = '^';
        p = static_cast<char*>(std::memcpy(p, text_.data(), text_.size())) + text_.size();
        if (back) *p++ = '$';
        *p = '\0';
        state_ = pattern_.compile(anchored.get(), &reason_) ? State::kReady : State::kRefused;
        return true;
    }

    string_view text_;
    Pattern pattern_;
    morva::String reason_;
    State state_ = State::kFresh;
};

// One pass over a list whose blanks are already gone.
int first_selecting(string_view list, const char* station, const char* channel) {
    int position = 0;
    while (true) {
        ++position;
        const std::size_t comma = list.find(',');
        const string_view entry = list.substr(0, comma);
        const std::size_t colon = entry.find(':');
        if (entry == "*") return position;
        int selected = !entry.empty();
        if (selected > 0 && colon != string_view::npos)
            selected = Anchored(entry.substr(colon + 1)).matches(channel);
        if (selected > 0) selected = Anchored(entry.substr(0, colon)).matches(station);
        if (selected != 0) return selected > 0 ? position : kNoMemory;
        if (comma == string_view::npos) return 0;
        list.remove_prefix(comma + 1);
    }
}

}  // namespace

extern "C" {

int match_string(const char* pattern, const char* string) {
    if (pattern == nullptr) return 0;
    const int matched = Anchored(pattern).matches(string);
    if (matched < 0) morva::out_of_memory(std::strlen(pattern) + 3, "pattern", MORVA_HERE);
    return matched;
}

int match_stachans(const char* spec, const char* station, const char* channel) {
    if (spec == nullptr || *spec == '\0') return 0;
    morva::malloced<char> list(static_cast<char*>(morva::try_malloc(std::strlen(spec) + 1)));
    if (!list) return kNoMemory;
    char* end = list.get();
    for (const char* p = spec; *p != '\0'; ++p)
        if (!morva::is_blank(*p)) *end++ = *p;
    if (end == list.get()) return 0;
    return first_selecting({list.get(), static_cast<std::size_t>(end - list.get())}, station,
                           channel);
}

}  // extern "C"
