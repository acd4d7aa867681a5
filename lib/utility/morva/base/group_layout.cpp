#include "base/group_layout.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace morva {

// Walks over a pattern and counts the characters that it takes. The pattern is known to be well
// formed and to be in the language of PatternTable.
class LayoutReader {
  public:
    LayoutReader(const char* pattern, GroupLayout& layout) : p_(pattern), layout_(layout) {}

    bool read() {
        branch();
        if (*p_ != '\0' || here_.changing > 1) return false;
        layout_.count_ = std::min(groups_ + 1, GroupLayout::kGroups);
        for (std::size_t i = 1; i < layout_.count_; ++i)
            layout_.groups_[i] = {edge(ends_[i].begin), edge(ends_[i].end)};
        return !choice_;
    }

  private:
    // What stands in front of a place: so many characters, and so many elements of changing length.
    struct Place {
        int taken = 0;
        int changing = 0;
    };

    GroupLayout::Edge edge(Place place) const {
        const int distance = place.changing == 0 ? place.taken : -1 - (here_.taken - place.taken);
        return static_cast<GroupLayout::Edge>(distance);
    }

    void branch() {
        while (*p_ != '\0' && *p_ != '|' && *p_ != ')') piece();
    }

    void piece() {
        const char c = *p_++;
        if (c == '(') return group();
        if (c == '^' || c == '$') return;
        if (c == '\\') ++p_;
        if (c == '[') skip_list();
        if (*p_ == '{')
            interval();
        else if (*p_ == '*' || *p_ == '+' || *p_ == '?')
            ++here_.changing;
        else
            ++here_.taken;
        p_ += std::strspn(p_, "*+?");
    }

    void interval() {
        char* end;
        const long least = std::strtol(p_ + 1, &end, 10);
        const bool fixed = *end == '}' || std::strtol(end + 1, nullptr, 10) == least;
        if (fixed)
            here_.taken += static_cast<int>(least);
        else
            ++here_.changing;
        p_ = std::strchr(end, '}') + 1;
    }

    void skip_list() {
        if (*p_ == '^') ++p_;
        do {
            const bool named = *p_ == '[' && std::strchr(":.=", p_[1]) != nullptr;
            p_ = named ? std::strchr(p_, ']') + 1 : p_ + 1;
        } while (*p_ != ']');
        ++p_;
    }

    void group() {
        const std::size_t index = ++groups_;
        const Place begin = here_;
        branch();
        if (*p_ == '|') alternatives(begin, index);
        ++p_;
        if (index < GroupLayout::kGroups) ends_[index] = {begin, here_};
        // A repeated group is where it was last, or nowhere.
        if (*p_ != '\0' && std::strchr("*+?{", *p_) != nullptr) choice_ = true;
        p_ += std::strspn(p_, "*+?");
        if (*p_ == '{') p_ = std::strchr(p_, '}') + 1;
    }

    // Behind the first of several branches: all together are one element.
    void alternatives(Place begin, std::size_t index) {
        const Place first = here_;
        bool same = first.changing == begin.changing;
        while (*p_ == '|') {
            ++p_;
            here_ = begin;
            branch();
            same = same && here_.taken == first.taken && here_.changing == begin.changing;
        }
        if (groups_ != index) choice_ = true;
        here_ = same ? first : Place{begin.taken, begin.changing + 1};
    }

    struct Ends {
        Place begin, end;
    };

    const char* p_;
    GroupLayout& layout_;
    Place here_;
    std::array<Ends, GroupLayout::kGroups> ends_{};
    std::size_t groups_ = 0;
    bool choice_ = false;
};

bool GroupLayout::read(const char* pattern) {
    ready_ = LayoutReader(pattern, *this).read();
    return ready_;
}

void GroupLayout::place(int start, int length, regmatch_t* matches, std::size_t count) const {
    const auto position = [=](Edge edge) -> regoff_t {
        return edge >= 0 ? start + edge : start + length + 1 + edge;
    };
    for (std::size_t i = 0; i < count; ++i)
        if (i == 0)
            matches[i] = {start, start + length};
        else if (i < count_)
            matches[i] = {position(groups_[i].begin), position(groups_[i].end)};
        else
            matches[i] = {-1, -1};
}

}  // namespace morva
