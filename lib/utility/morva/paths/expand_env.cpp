// Variables of the environment in texts.
#include <skerrows.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/memory.hpp"
#include "morva/paths.h"
#include "paths/path.hpp"

namespace {

constexpr std::size_t kFirstRoom = 1024;
constexpr std::size_t kNameSize = 1024;  // with the terminating zero

// The text that is being made, as a block that its caller frees.
class Result {
  public:
    Result(std::size_t room, morva::Site site)
        : site_(site),
          room_(room),
          text_(static_cast<char*>(morva::must_malloc(room, "result", site))) {}

    void append(std::string_view piece) {
        if (piece.size() > room_ - length_) grow(piece.size());
        std::memcpy(text_.get() + length_, piece.data(), piece.size());
        length_ += piece.size();
    }

    char* finish() {
        append({"", 1});
        return text_.release();
    }

  private:
    void grow(std::size_t more) {
        room_ = std::max(2 * room_, length_ + more);
        void* larger = morva::must_realloc(text_.release(), room_, "result", site_);
        text_.reset(static_cast<char*>(larger));
    }
    const morva::Site site_;
    std::size_t room_;
    std::size_t length_ = 0;
    morva::malloced<char> text_;
};

// The same in every locale. An underscore ends a name.
bool is_name_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

struct Reference {
    std::string_view whole;  // with the "$"
    std::string_view name;
};

// The reference that a text begins with.
Reference reference_at(std::string_view text) {
    if (text.substr(1, 1) == "{") {
        const std::size_t brace = text.find('}', 2);
        return {text.substr(0, brace + (brace != text.npos)), text.substr(2, brace - 2)};
    }
    std::size_t end = 1;
    while (end < text.size() && is_name_character(text[end])) ++end;
    return {text.substr(0, end), text.substr(1, end - 1)};
}

const char* value_of(std::string_view name) {
    if (name.empty()) return nullptr;
    char terminated[kNameSize];
    name = name.substr(0, kNameSize - 1);
    std::memcpy(terminated, name.data(), name.size());
    terminated[name.size()] = '\0';
    return std_getenv(terminated);
}

}  // namespace

extern "C" char* expand_env(const char* text) {
    std::string_view rest = morva::paths::view(text);
    std::size_t dollar = rest.find('$');
    if (dollar == rest.npos)
        return morva::must_strdup(text != nullptr ? text : "", "result", MORVA_HERE);
    Result result(std::max(kFirstRoom, 2 * rest.size()), MORVA_HERE);
    for (; dollar != rest.npos; dollar = rest.find('$')) {
        result.append(rest.substr(0, dollar));
        rest.remove_prefix(dollar);
        const Reference reference = reference_at(rest);
        const char* value = value_of(reference.name);
        result.append(value != nullptr ? std::string_view(value) : reference.whole);
        rest.remove_prefix(reference.whole.size());
    }
    result.append(rest);
    return result.finish();
}
