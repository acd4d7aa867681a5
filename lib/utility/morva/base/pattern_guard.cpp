#include "base/pattern_guard.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace morva {
namespace {

constexpr std::uint64_t kHuge = 1u << 30;
constexpr std::uint64_t kGroupBranching = 2;
constexpr std::uint64_t kRepetitionBranching = 4;
constexpr std::uint64_t kAssertionBranching = 4;

void scale(std::uint64_t& number, std::uint64_t factor) {
    number = std::min(number * factor, kHuge);
}

// What the compiler lists for each node of its automaton: all nodes that can be reached from there
// without a character in between. The lists of an alternative with many branches, and of things
// that may be empty side by side, are long; those of "A.*|B.*|C.*" hardly depend on the stars.
class Lists {
  public:
    Lists() = default;
    static Lists of_character() { return {1, 0, 1, false}; }
    static Lists of_assertion() { return {1, 1, 1, true}; }

    std::uint64_t sum() const { return sum_; }
    std::uint64_t copied() const { return copied_; }

    Lists& operator+=(const Lists& behind) {
        add(behind.sum_ + reaching_end_ * behind.reached_);
        reaching_end_ = behind.reaching_end_ + (behind.may_be_empty_ ? reaching_end_ : 0);
        copied_ = std::min(copied_ + behind.copied_ + asserting_ * behind.reached_, kHuge);
        asserting_ = behind.asserting_ + (behind.may_be_empty_ ? asserting_ : 0);
        reached_ += may_be_empty_ ? behind.reached_ : 0;
        may_be_empty_ &= behind.may_be_empty_;
        return limited();
    }

    Lists& operator|=(const Lists& other) {
        reached_ += other.reached_ + 1;
        add(other.sum_ + reached_);
        may_be_empty_ |= other.may_be_empty_;
        reaching_end_ += other.reaching_end_ + may_be_empty_;
        copied_ = std::min(copied_ + other.copied_, kHuge);
        asserting_ += other.asserting_;
        return limited();
    }

    // In a group: a node in front and one behind.
    Lists& enclose() {
        reached_ += 1 + may_be_empty_;
        add(reaching_end_ + 1 + reached_);
        reaching_end_ += 1 + may_be_empty_;
        return limited();
    }

    Lists& make_optional() { return *this |= Lists(); }

    Lists& loop() {
        ++reached_;
        add((reaching_end_ + 1) * reached_);
        ++reaching_end_;
        may_be_empty_ = true;
        return limited();
    }

    // At least `least` copies, then `optional` ones, each of which may only follow the one before,
    // or a loop.
    Lists& repeat(std::uint64_t least, std::uint64_t optional, bool unbounded) {
        const Lists copy = *this;
        *this = {};
        for (std::uint64_t i = 0; i < least; ++i) *this += copy;
        Lists rest;
        if (unbounded) rest = Lists(copy).loop();
        for (std::uint64_t i = 0; i < optional; ++i) (rest += copy).make_optional();
        return *this += rest;
    }

    void overflow() { sum_ = kHuge; }
    void forget_assertions() { asserting_ = 0; }

  private:
    Lists(std::uint64_t reached, std::uint64_t reaching_end, std::uint64_t sum, bool may_be_empty)
        : reached_(reached), reaching_end_(reaching_end), sum_(sum), may_be_empty_(may_be_empty) {
        asserting_ = may_be_empty;
    }

    void add(std::uint64_t more) { sum_ = std::min(sum_ + more, kHuge); }
    Lists& limited() {
        reached_ = std::min(reached_, kHuge);
        reaching_end_ = std::min(reaching_end_, kHuge);
        asserting_ = std::min(asserting_, kHuge);
        return *this;
    }

    std::uint64_t reached_ = 0;       // nodes reached from the front
    std::uint64_t reaching_end_ = 0;  // nodes from which the end is reached
    std::uint64_t sum_ = 0;
    std::uint64_t asserting_ = 0;  // assertions from which the end is reached
    std::uint64_t copied_ = 0;     // nodes that are reached from an assertion
    bool may_be_empty_ = true;
};

// Sizes of a part of the pattern. Those "on the way" are of the largest alternative only, as long
// as nothing repeats it.
struct Size {
    std::uint64_t positions = 0;
    std::uint64_t branching = 0;
    std::uint64_t assertions = 0;
    std::uint64_t branching_on_way = 0;
    std::uint64_t assertions_on_way = 0;
    std::uint64_t ends_on_way = 0;  // assertions that a whole branch begins or ends with
    std::uint64_t nesting = 0;
    std::uint64_t empty_loops = 0;
    std::uint64_t empty_groups = 0;
    std::uint64_t empty_groups_on_way = 0;
    bool may_be_empty = true;
    Lists lists;

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
        ends_on_way += behind.ends_on_way;
        nesting = std::max(nesting, behind.nesting);
        empty_loops += behind.empty_loops;
        empty_groups += behind.empty_groups;
        empty_groups_on_way += behind.empty_groups_on_way;
        may_be_empty &= behind.may_be_empty;
        lists += behind.lists;
        return *this;
    }

    Size& operator|=(const Size& other) {
        positions += other.positions;
        branching += other.branching + 1;
        assertions += other.assertions;
        branching_on_way = std::max(branching_on_way, other.branching_on_way);
        assertions_on_way = std::max(assertions_on_way, other.assertions_on_way);
        ends_on_way = std::min(ends_on_way, other.ends_on_way);
        nesting = std::max(nesting, other.nesting);
        empty_loops += other.empty_loops;
        empty_groups += other.empty_groups;
        empty_groups_on_way = std::max(empty_groups_on_way, other.empty_groups_on_way);
        may_be_empty |= other.may_be_empty;
        lists |= other.lists;
        return *this;
    }

    void repeat(std::uint64_t copies) {
        for (std::uint64_t* number :
             {&positions, &branching, &assertions, &empty_loops, &empty_groups})
            scale(*number, copies);
        branching_on_way = branching;
        assertions_on_way = assertions;
        empty_groups_on_way = empty_groups;
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
        const char* const begin = p_;
        while (*p_ != '\0' && *p_ != '|' && (*p_ != ')' || depth == 0) && !too_deep_) {
            const char* const here = p_;
            size += piece(depth);
            // The matcher meets this one only once.
            if (depth == 0 && here == begin && *here == '^') size.lists.forget_assertions();
            const bool at_end = *p_ == '\0' || *p_ == '|';
            if (depth == 0 && p_ == here + 1)
                size.ends_on_way += (*here == '^' && here == begin) || (*here == '$' && at_end);
        }
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
                if (*p_ == '?')
                    size.lists.make_optional();
                else
                    size.lists.repeat(*p_ == '+', 0, true);
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
        size.lists = Lists::of_character();
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
        if (size.may_be_empty) size.lists = Lists::of_assertion();
        return size;
    }

    Size group(std::size_t depth) {
        if (depth > PatternCeiling::kDepth) too_deep_ = true;
        if (too_deep_) return {};
        Size size = alternatives(depth);
        if (*p_ == ')') ++p_;
        size.add_branching(kGroupBranching);
        size.empty_groups += size.may_be_empty;
        size.empty_groups_on_way += size.may_be_empty;
        size.lists.enclose();
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
        std::uint64_t least = 0;
        std::uint64_t number = 0;
        const bool may_be_absent = p_[1] == '0' || p_[1] == ',' || p_[1] == '\\';
        bool exact = true;
        for (++p_; *p_ != '\0' && *p_ != '}'; ++p_) {
            if (*p_ == '\\' && is_digit(p_[1])) continue;  // counts as the digit alone
            if (!is_digit(*p_) && std::exchange(exact, false)) least = number;
            number = is_digit(*p_) ? std::min(10 * number + (*p_ - '0'), kHuge) : 0;
            copies = std::max(copies, number);
        }
        const bool unbounded = p_[-1] == ',';
        copy_lists(size.lists, exact ? copies : std::min(least, copies), copies, unbounded);
        if (unbounded) loop(size, true);
        size.may_be_empty |= may_be_absent;
        repeated_assertion_ |= size.assertions > 0;
        if (*p_ == '}') ++p_;
        size.repeat(copies);
        if (!exact) size.add_branching(kRepetitionBranching * copies);
    }

    // Copies one by one, as many as a pattern under the ceiling can have.
    void copy_lists(Lists& lists, std::uint64_t least, std::uint64_t most, bool unbounded) {
        copies_ += most;
        if (copies_ > PatternCeiling::kPositions + PatternCeiling::kBranching)
            lists.overflow();
        else
            lists.repeat(least, unbounded ? 0 : most - least, unbounded);
    }

    const char* p_;
    std::uint64_t references_ = 0;
    std::uint64_t copies_ = 0;
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
    if (size.positions > PatternCeiling::kPositions ||
        size.branching > PatternCeiling::kBranching ||
        size.branching_on_way > PatternCeiling::kBranchingOnWay ||
        size.lists.sum() > PatternCeiling::kLists)
        return "Regular expression too big once its repetitions are written out";
    if (size.nesting > PatternCeiling::kNesting || size.empty_loops > PatternCeiling::kEmptyLoops)
        return "Repetitions nested too deeply";
    const std::uint64_t assertions = kAssertionBranching * size.assertions_on_way;
    const std::uint64_t inner = size.assertions_on_way - size.ends_on_way;
    const std::uint64_t tangle = inner * (size.branching_on_way + assertions);
    if (meter.repeated_assertion() || tangle > PatternCeiling::kTangle ||
        size.lists.copied() * size.positions > PatternCeiling::kCopies)
        return "Anchors within or among too many repetitions";
    if (size.empty_groups > PatternCeiling::kEmptyGroups ||
        size.empty_groups_on_way * (size.empty_loops + assertions) > PatternCeiling::kEmptyPaths)
        return "Too many groups that may be empty";
    if (meter.hard_references(size.branching))
        return "Back-references beside repetitions or too many alternatives";
    return nullptr;
}

}  // namespace morva
