// A path in a buffer of the family's one size. What does not fit is refused whole.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace morva::paths {

inline constexpr std::size_t kPathSize = 1024;  // with the terminating zero

class Path {
  public:
    Path() { text_[0] = '\0'; }
    // False, and nothing is changed, when the text would not fit. It may lie in this buffer.
    bool assign(std::string_view text) { return put(0, text); }
    bool append(std::string_view text) { return put(length_, text); }
    // With one slash between. False when it would not fit; what is there then means nothing.
    bool append_below(std::string_view text) {
        while (length_ > 0 && text_[length_ - 1] == '/') --length_;
        return append("/") &&
               append(text.substr(std::min(text.find_first_not_of('/'), text.size())));
    }
    // With a slash between, unless this is empty or ends in one.
    bool append_component(std::string_view component) {
        const bool slash = length_ > 0 && text_[length_ - 1] != '/';
        if (component.size() + slash >= kPathSize - length_) return false;
        if (slash) text_[length_++] = '/';
        std::memcpy(text_ + length_, component.data(), component.size());
        cut(length_ + component.size());
        return true;
    }
    void cut(std::size_t length) { text_[length_ = length] = '\0'; }
    const char* c_str() const { return text_; }
    std::string_view view() const { return {text_, length_}; }
    std::size_t size() const { return length_; }
    bool empty() const { return length_ == 0; }
    bool is_absolute() const { return text_[0] == '/'; }
    void copy_to(char* buffer) const { std::memcpy(buffer, text_, length_ + 1); }

  private:
    bool put(std::size_t at, std::string_view text) {
        if (text.size() >= kPathSize - at) return false;
        std::memmove(text_ + at, text.data(), text.size());
        cut(at + text.size());
        return true;
    }
    std::size_t length_ = 0;
    char text_[kPathSize];
};

// A null text reads as an empty one.
inline std::string_view view(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace morva::paths
