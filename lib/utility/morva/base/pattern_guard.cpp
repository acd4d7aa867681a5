#include "base/pattern_guard.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace morva {
namespace {

constexpr std::uint64_t kHuge = 1u << 30;
constexpr std::uint64_t kGroupBranching = 2;
constexpr std::uint64_t kRepetitionBranching = 4;
constexpr std::uint64_t kAssertionBranching = 4;

void scale(std::uint64_t& number, std::uint64_t factor) {
    number = std::min(number * factor, kHuge);
}

// Sizes of a part of the pattern. Those "on the way" are of the largest alternative only, as long
// as nothing repeats it.
struct Size {
    std::uint64_t positions = 0;
    std::uint64_t branching = 0;
    std::uint64_t assertions = 0;
    std::uint64_t branching_on_way = 0;
    std::uint64_t assertions_on_way = 0;
    std::uint64_t nesting = 0;
    std::uint64_t empty_loops = 0;
    std::uint64_t empty_groups = 0;
    bool may_be_empty = true;

    void add_branching(std::uint64_t more) {
        branching += more;
        branching_on_way += more;
    }

    Size& operator+=(const Size& behind) {
        positions += behind.positions;
        branching += behind.branching;
        assertions += behind.assertions;
        branching_on_way += behind.branching_on_way;
        assertions_on_way += behind.assertions_on_way;
        nesting = std::max(nesting, behind.nesting);
        empty_loops += behind.empty_loops;
        empty_groups += behind.empty_groups;
        may_be_empty &= behind.may_be_empty;
        return *this;
    }

    Size& operator|=(const Size& other) {
        positions += other.positions;
        branching += other.branching + 1;
        assertions += other.assertions;
        branching_on_way = std::max(branching_on_way, other.branching_on_way);
        assertions_on_way = std::max(assertions_on_way, other.assertions_on_way);
        nesting = std::max(nesting, other.nesting);
        empty_loops += other.empty_loops;
        empty_groups += other.empty_groups;
        may_be_empty |= other.may_be_empty;
        return *this;
    }

    void repeat(std::uint64_t copies) {
        for (std::uint64_t* number :
             {&positions, &branching, &assertions, &empty_loops, &empty_groups})
            scale(*number, copies);
        branching_on_way = branching;
        assertions_on_way = assertions;
        ++nesting;
    }
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Walks a pattern the way the C library's parser does and adds up what it would build. Malformed
// parts count as characters: the compiler refuses them anyway.
class Meter {
  public:
    explicit Meter(const char* pattern) : p_(pattern) {}

    Size whole() { return alternatives(0); }
    bool too_deep() const { return too_deep_; }
    bool repeated_assertion() const { return repeated_assertion_; }
    bool hard_references(std::uint64_t branching) const {
        if (references_ == 0) return false;
        return repeated_reference_ || unbounded_ || references_ > PatternCeiling::kReferences ||
               branching > PatternCeiling::kBranchingWithReferences;
    }

  private:
    Size alternatives(std::size_t depth) {
        Size size = branch(depth);
        while (*p_ == '|' && !too_deep_) {
            ++p_;
            size |= branch(depth);
        }
        return size;
    }

    Size branch(std::size_t depth) {
        Size size;
        // A ')' too many is a character.
        while (*p_ != '\0' && *p_ != '|' && (*p_ != ')' || depth == 0) && !too_deep_)
            size += piece(depth);
        return size;
    }

    Size piece(std::size_t depth) {
        const std::uint64_t before = references_;
        Size size = atom(depth);
        for (;;) {
            if (*p_ == '*' || *p_ == '+' || *p_ == '?') {
                // x+ is built as xx*.
                size.repeat(*p_ == '+' ? 2 : 1);
                size.add_branching(kRepetitionBranching);
                loop(size, *p_ != '?');
                size.may_be_empty |= *p_++ != '+';
            } else if (*p_ == '{') {
                interval(size);
            } else {
                return size;
            }
            repeated_reference_ |= references_ != before;
        }
    }

    Size atom(std::size_t depth) {
        const char c = *p_++;
        if (c == '(') return group(depth + 1);
        Size size;
        size.positions = 1;
        if (c == '[') skip_bracket();
        bool is_reference = false;
        bool assertion = c == '^' || c == '$';
        if (c == '\\' && *p_ != '\0') {
            is_reference = is_digit(*p_);
            references_ += is_reference;
            assertion = std::strchr("bB<>`'", *p_++) != nullptr;
        }
        size.assertions = size.assertions_on_way = assertion;
        size.may_be_empty = assertion || is_reference;
        return size;
    }

    Size group(std::size_t depth) {
        if (depth > PatternCeiling::kDepth) too_deep_ = true;
        if (too_deep_) return {};
        Size size = alternatives(depth);
        if (*p_ == ')') ++p_;
        size.add_branching(kGroupBranching);
        size.empty_groups += size.may_be_empty;
        return size;
    }

    void skip_bracket() {
        if (*p_ == '^') ++p_;
        if (*p_ == ']') ++p_;
        while (*p_ != '\0' && *p_ != ']') {
            const char kind = p_[0] == '[' ? p_[1] : '\0';
            ++p_;
            if (kind != ':' && kind != '.' && kind != '=') continue;
            const char end[] = {kind, ']', '\0'};
            const char* close = std::strstr(p_ + 1, end);
            if (close != nullptr) p_ = close + 2;
        }
        if (*p_ == ']') ++p_;
    }

    void loop(Size& size, bool unbounded) {
        if (unbounded && size.may_be_empty)
            size.empty_loops += std::max<std::uint64_t>(size.branching, 1);
        unbounded_ |= unbounded;
        repeated_assertion_ |= unbounded && size.assertions > 0;
    }

    // {n}, {n,} and {n,m}, however odd the text between the braces.
    void interval(Size& size) {
        std::uint64_t copies = 1;
        std::uint64_t number = 0;
        const bool may_be_absent = p_[1] == '0' || p_[1] == ',';
        bool exact = true;
        for (++p_; *p_ != '\0' && *p_ != '}'; ++p_) {
            if (!is_digit(*p_)) exact = false;
            number = is_digit(*p_) ? std::min(10 * number + (*p_ - '0'), kHuge) : 0;
            copies = std::max(copies, number);
        }
        if (p_[-1] == ',') loop(size, true);
        size.may_be_empty |= may_be_absent;
        repeated_assertion_ |= size.assertions > 0;
        if (*p_ == '}') ++p_;
        size.repeat(copies);
        if (!exact) size.add_branching(kRepetitionBranching * copies);
    }

    const char* p_;
    std::uint64_t references_ = 0;
    bool repeated_reference_ = false;
    bool repeated_assertion_ = false;
    bool unbounded_ = false;
    bool too_deep_ = false;
};

}  // namespace

const char* over_ceiling(const char* pattern) {
    if (strnlen(pattern, PatternCeiling::kLength + 1) > PatternCeiling::kLength)
        return "Regular expression too long";
    Meter meter(pattern);
    const Size size = meter.whole();
    if (meter.too_deep()) return "Groups nested too deeply";
    if (size.positions > PatternCeiling::kPositions || size.branching > PatternCeiling::kBranching)
        return "Regular expression too big once its repetitions are written out";
    if (size.nesting > PatternCeiling::kNesting || size.empty_loops > PatternCeiling::kEmptyLoops)
        return "Repetitions nested too deeply";
    const std::uint64_t assertions = kAssertionBranching * size.assertions_on_way;
    const std::uint64_t tangle = size.assertions_on_way * (size.branching_on_way + assertions);
    if (meter.repeated_assertion() || tangle > PatternCeiling::kTangle)
        return "Anchors within or among too many repetitions";
    if (size.empty_groups > PatternCeiling::kEmptyGroups ||
        size.empty_groups * (size.empty_loops + assertions) > PatternCeiling::kEmptyPaths)
        return "Too many groups that may be empty";
    if (meter.hard_references(size.branching))
        return "Back-references beside repetitions or too many alternatives";
    return nullptr;
}

}  // namespace morva
