// Selection lists: which station and channel pairs does a list of expressions select?
//
// Programs ask the same list about thousands of pairs, so that each thread keeps its last list and
// its last match_string pattern in compiled form. What is kept is out of its place while it is in
// use: a complaint may run code of the host program that comes back here.
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/pattern.hpp"
#include "morva/strmatches.h"
#include "text/strings.hpp"

namespace {

using morva::Pattern;
using std::string_view;

constexpr int kNoMemory = -1;
constexpr std::size_t kMostKept = 500;  // entries; longer lists are compiled as they are read

// A pattern anchored at both ends, compiled at its first use. The text stays the owner's.
class Anchored {
  public:
    explicit Anchored(string_view text) : text_(text) {
        if (text.empty()) state_ = State::kNothing;
        if (text == "*") state_ = State::kAnything;
    }

    // 1, 0, or kNoMemory. A pattern that does not compile complains at each use.
    int matches(const char* string) {
        if (state_ == State::kFresh && !compile()) return kNoMemory;
        switch (state_) {
            case State::kReady:
                return pattern_.found_in(string);
            case State::kAnything:
                return 1;
            case State::kRefused:
                elog_complain(0, "match_string: %s.\n", reason_);
                [[fallthrough]];
            default:
                return 0;
        }
    }

  private:
    enum class State { kFresh, kReady, kRefused, kAnything, kNothing };

    // False when memory runs out.
    bool compile() {
        morva::malloced<char> anchored(static_cast<char*>(morva::try_malloc(text_.size() + 3)));
        if (!anchored) return false;
        char* p = anchored.get();
        if (text_.front() != '^') *p++ = '^';
        p = static_cast<char*>(std::memcpy(p, text_.data(), text_.size())) + text_.size();
        if (text_.back() != '$') *p++ = '$';
        *p = '\0';
        state_ = pattern_.compile(anchored.get(), reason_) ? State::kReady : State::kRefused;
        return true;
    }

    string_view text_;
    State state_ = State::kFresh;
    Pattern pattern_;
    Pattern::Reason reason_;
};

// STATION or STATION:CHANNEL.
class Entry {
  public:
    Entry(string_view text, int position)
        : position_(position), station_(text.substr(0, text.find(':'))) {
        const std::size_t colon = text.find(':');
        if (colon != string_view::npos) channel_.emplace(text.substr(colon + 1));
    }
    // The entry's position when it selects the pair, 0, or kNoMemory.
    int selects(const char* station, const char* channel) {
        int selected = channel_ ? channel_->matches(channel) : 1;
        if (selected > 0) selected = station_.matches(station);
        return selected > 0 ? position_ : selected;
    }

  private:
    int position_;
    std::optional<Anchored> channel_;
    Anchored station_;
};

// Calls visit(text, position) for each entry that is not empty until that gives something else
// than 0, and gives that.
template <class Visit>
int each_entry(string_view list, Visit visit) {
    for (int position = 1;; ++position) {
        const std::size_t comma = list.find(',');
        const string_view entry = list.substr(0, comma);
        const int result = entry.empty() ? 0 : visit(entry, position);
        if (result != 0 || comma == string_view::npos) return result;
        list.remove_prefix(comma + 1);
    }
}

// Calls the destructor too; for objects made in a block from malloc.
struct Destroy {
    template <class T>
    void operator()(T* object) const {
        object->~T();
        std::free(object);
    }
};
template <class T>
using Owned = std::unique_ptr<T, Destroy>;

template <class T>
Owned<T> try_make() {
    void* room = morva::try_malloc(sizeof(T));
    return Owned<T>(room != nullptr ? new (room) T : nullptr);
}

morva::malloced<char> try_copy(const char* text) {
    const std::size_t bytes = std::strlen(text) + 1;
    morva::malloced<char> copy(static_cast<char*>(morva::try_malloc(bytes)));
    if (copy) std::memcpy(copy.get(), text, bytes);
    return copy;
}

// A list in compiled form.
class Selection {
  public:
    Selection() = default;
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;
    ~Selection() {
        for (std::size_t i = 0; i < count_; ++i) entries_[i].~Entry();
    }

    bool is_of(const char* spec) const { return std::strcmp(spec_.get(), spec) == 0; }

    // False when memory runs out.
    bool read(const char* spec) {
        spec_ = try_copy(spec);
        list_ = try_copy(spec);
        if (!spec_ || !list_) return false;
        char* end = list_.get();
        for (const char* p = spec; *p != '\0'; ++p)
            if (!morva::is_blank(*p)) *end++ = *p;
        text_ = {list_.get(), static_cast<std::size_t>(end - list_.get())};
        std::size_t count = 0;
        each_entry(text_, [&](string_view, int) {
            ++count;
            return 0;
        });
        return count > kMostKept || keep(count);
    }

    int first_selecting(const char* station, const char* channel) {
        if (entries_ == nullptr)
            return each_entry(text_, [=](string_view text, int position) {
                return Entry(text, position).selects(station, channel);
            });
        int result = 0;
        for (std::size_t i = 0; i < count_ && result == 0; ++i)
            result = entries_[i].selects(station, channel);
        return result;
    }

  private:
    bool keep(std::size_t count) {
        entries_.reset(static_cast<Entry*>(morva::try_malloc(count * sizeof(Entry) + 1)));
        if (!entries_) return false;
        each_entry(text_, [this](string_view text, int position) {
            new (&entries_[count_++]) Entry(text, position);
            return 0;
        });
        return true;
    }

    morva::malloced<char> spec_;  // as it was given
    morva::malloced<char> list_;  // without blanks
    string_view text_;
    morva::malloced<Entry[]> entries_;
    std::size_t count_ = 0;
};

// One pattern of match_string in compiled form.
struct Single {
    morva::malloced<char> text;
    std::optional<Anchored> pattern;

    bool is_of(const char* pattern_text) const {
        return std::strcmp(text.get(), pattern_text) == 0;
    }
    bool read(const char* pattern_text) {
        text = try_copy(pattern_text);
        if (!text) return false;
        pattern.emplace(text.get());
        return true;
    }
};

// Takes what the thread keeps for `text` out of its place, or makes it. Null: no memory.
template <class T>
Owned<T> take(Owned<T>& place, const char* text) {
    Owned<T> kept = std::move(place);
    if (kept && kept->is_of(text)) return kept;
    kept = try_make<T>();
    if (kept && !kept->read(text)) kept.reset();
    return kept;
}

thread_local Owned<Single> t_single;
thread_local Owned<Selection> t_selection;

}  // namespace

extern "C" {

int match_string(const char* pattern, const char* string) {
    if (pattern == nullptr || *pattern == '\0') return 0;
    Owned<Single>& place = t_single;
    Owned<Single> single = take(place, pattern);
    const int matched = single ? single->pattern->matches(string) : kNoMemory;
    if (matched < 0) morva::out_of_memory(std::strlen(pattern) + 3, "pattern", MORVA_HERE);
    place = std::move(single);
    return matched;
}

int match_stachans(const char* spec, const char* station, const char* channel) {
    if (spec == nullptr || *spec == '\0') return 0;
    Owned<Selection>& place = t_selection;
    Owned<Selection> selection = take(place, spec);
    if (!selection) return kNoMemory;
    const int position = selection->first_selecting(station, channel);
    place = std::move(selection);
    return position;
}

}  // extern "C"
