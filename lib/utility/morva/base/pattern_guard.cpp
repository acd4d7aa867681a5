#include "base/pattern_guard.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace morva {
namespace {

constexpr std::uint64_t kHuge = 1u << 30;
constexpr std::uint64_t kGroupBranching = 2;
constexpr std::uint64_t kRepetitionBranching = 4;

struct Size {
    std::uint64_t positions = 0;
    std::uint64_t branching = 0;

    Size& operator+=(const Size& other) {
        positions = std::min(positions + other.positions, kHuge);
        branching = std::min(branching + other.branching, kHuge);
        return *this;
    }
    Size& operator*=(std::uint64_t factor) {
        positions = std::min(positions * factor, kHuge);
        branching = std::min(branching * factor, kHuge);
        return *this;
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

    Size whole() {
        Size size;
        do {
            size += alternatives(0);
        } while (*p_ != '\0' && !too_deep_ && advance());  // a ')' too many
        return size;
    }
    bool too_deep() const { return too_deep_; }
    bool hard_references(std::uint64_t branching) const {
        if (references_ == 0) return false;
        return repeated_reference_ || unbounded_ || references_ > PatternCeiling::kReferences ||
               branching > PatternCeiling::kBranchingWithReferences;
    }

  private:
    bool advance() {
        ++p_;
        return true;
    }

    Size alternatives(std::size_t depth) {
        Size size;
        while (*p_ != '\0' && *p_ != ')' && !too_deep_) {
            if (*p_ == '|') {
                ++p_;
                size += {0, 1};
            } else {
                size += piece(depth);
            }
        }
        return size;
    }

    Size piece(std::size_t depth) {
        const std::uint64_t before = references_;
        Size size = atom(depth);
        for (;;) {
            if (*p_ == '*' || *p_ == '+' || *p_ == '?') {
                // x+ is built as xx*.
                if (*p_ == '+') size *= 2;
                unbounded_ |= *p_++ != '?';
                size += {0, kRepetitionBranching};
            } else if (*p_ == '{') {
                repeat(size);
            } else {
                return size;
            }
            repeated_reference_ |= references_ != before;
        }
    }

    Size atom(std::size_t depth) {
        const char c = *p_++;
        if (c == '(') return group(depth + 1);
        if (c == '[') skip_bracket();
        if (c == '\\' && *p_ != '\0') references_ += is_digit(*p_++) ? 1 : 0;
        return {1, 0};
    }

    Size group(std::size_t depth) {
        if (depth > PatternCeiling::kDepth) too_deep_ = true;
        if (too_deep_) return {};
        Size size = alternatives(depth);
        if (*p_ == ')') ++p_;
        return size += {0, kGroupBranching};
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

    // {n}, {n,} and {n,m}, however odd the text between the braces.
    void repeat(Size& size) {
        std::uint64_t copies = 1;
        std::uint64_t number = 0;
        bool exact = true;
        for (++p_; *p_ != '\0' && *p_ != '}'; ++p_) {
            if (!is_digit(*p_)) exact = false;
            number = is_digit(*p_) ? std::min(10 * number + (*p_ - '0'), kHuge) : 0;
            copies = std::max(copies, number);
        }
        unbounded_ |= p_[-1] == ',';
        if (*p_ == '}') ++p_;
        size *= copies;
        if (!exact) size += {0, kRepetitionBranching * copies};
    }

    const char* p_;
    std::uint64_t references_ = 0;
    bool repeated_reference_ = false;
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
    if (meter.hard_references(size.branching))
        return "Back-references beside repetitions or too many alternatives";
    return nullptr;
}

}  // namespace morva
