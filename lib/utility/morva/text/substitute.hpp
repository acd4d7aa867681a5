// Matches replaced by templates; see morva/morph.h for the language.
#pragma once

#include <regex.h>

#include <string_view>

#include "base/memory.hpp"

namespace morva {

// As many groups as a template can name.
constexpr std::size_t kGroups = 10;

// Collects a result of at most `most` characters.
class Substitution {
  public:
    explicit Substitution(std::size_t most = SIZE_MAX) : most_(most) {}
    void add(std::string_view piece) {
        const std::size_t room = most_ - text_.size();
        if (piece.size() > room) cut_ = true;
        text_.append(piece.substr(0, room));
    }
    // The source with its match replaced.
    void replace(std::string_view source, const char* template_text, const regmatch_t* matches);
    void clear() { text_.clear(); }
    const String& text() const { return text_; }
    bool cut() const { return cut_; }

    // Copies the text with its terminator.
    void give(char* result) const {
        std::char_traits<char>::copy(result, text_.c_str(), text_.size() + 1);
    }

  private:
    void expand(std::string_view source, const char* template_text, const regmatch_t* matches);

    String text_;
    std::size_t most_;
    bool cut_ = false;
};

// Whether a template asks for any group but the whole match.
bool names_groups(const char* template_text);

}  // namespace morva
